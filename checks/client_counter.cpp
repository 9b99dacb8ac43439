#include "checks/client_counter.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>

namespace qiv {
namespace {

std::uint64_t Mixed(std::uint64_t value) {
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9U;
  value = (value ^ value >> 27) * 0x94D049BB133111EBU;
  return value ^ value >> 31;
}

std::uint64_t Seed() {
  std::random_device source;
  return static_cast<std::uint64_t>(source()) << 32 | source();
}

std::uint32_t PeriodNumber(std::int64_t now, std::int64_t period) {
  return static_cast<std::uint32_t>(now / std::max<std::int64_t>(period, 1));
}

std::uint32_t Moment(std::int64_t seconds) {
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(seconds, 0, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

CClientCounter::CClientCounter() : seed_(Seed()) {}

std::uint64_t CClientCounter::HashOf(const CIpAddress& client) const {
  const std::array<std::uint8_t, 16> bytes = ClientNetwork(client).Bytes();
  std::uint64_t halves[2];
  std::memcpy(halves, bytes.data(), sizeof(halves));
  const std::uint64_t hash = Mixed(Mixed(halves[0] ^ seed_) ^ halves[1]);
  return hash != 0 ? hash : 1;
}

CClientCounter::Bucket* CClientCounter::BucketOf(std::uint64_t client) const {
  Bucket* const table = table_.load(std::memory_order_acquire);
  return table == nullptr ? nullptr : &table[client % kBuckets];
}

void CClientCounter::MakeTable() {
  const CAutoLock lock(make_lock_);
  if (owned_ != nullptr) return;
  owned_ = std::make_unique<Bucket[]>(kBuckets);
  table_.store(owned_.get(), std::memory_order_release);
}

std::size_t CClientCounter::Bytes() const {
  return table_.load(std::memory_order_relaxed) == nullptr ? 0 : kTableBytes;
}

CClientCounter::Count CClientCounter::Add(const CIpAddress& client, std::int64_t now, std::int64_t period) {
  if (table_.load(std::memory_order_acquire) == nullptr) MakeTable();
  const std::uint64_t hash = HashOf(client);
  const std::uint32_t number = PeriodNumber(now, period);
  const std::uint32_t moment = Moment(now);

  const CAutoLock lock(LockOf(hash));
  Bucket& bucket = *BucketOf(hash);
  Place* place = nullptr;
  for (Place& candidate : bucket) {
    if (candidate.client == hash) place = &candidate;
  }
  if (place == nullptr) {
    // Held clients last; then those who asked most; of what is over nothing counts.
    const auto weight = [&](const Place& p) {
      const std::uint64_t held = p.held_until > moment ? std::uint64_t{1} << 32 : 0;
      return p.client == 0 ? 0 : 1 + held + (p.period == number ? p.requests : 0);
    };
    place = &*std::min_element(bucket.begin(), bucket.end(),
                               [&](const Place& a, const Place& b) { return weight(a) < weight(b); });
    *place = {hash, number, 0, 0, 0};
  }
  if (place->period != number) {
    place->period = number;
    place->requests = 0;
  }
  if (place->requests < std::numeric_limits<std::uint32_t>::max()) ++place->requests;
  return {place->requests, place->held_until > moment};
}

CClientCounter::Count CClientCounter::Look(const CIpAddress& client, std::int64_t now, std::int64_t period) const {
  const std::uint64_t hash = HashOf(client);
  if (table_.load(std::memory_order_acquire) == nullptr) return {};
  const CAutoLock lock(LockOf(hash));
  for (const Place& place : *BucketOf(hash)) {
    if (place.client != hash) continue;
    return {place.period == PeriodNumber(now, period) ? place.requests : 0, place.held_until > Moment(now)};
  }
  return {};
}

void CClientCounter::Hold(const CIpAddress& client, std::int64_t until) {
  const std::uint64_t hash = HashOf(client);
  if (table_.load(std::memory_order_acquire) == nullptr) return;
  const CAutoLock lock(LockOf(hash));
  for (Place& place : *BucketOf(hash)) {
    if (place.client == hash) place.held_until = Moment(until);
  }
}

bool CClientCounter::Forgive(const CIpAddress& client, std::int64_t since) {
  const std::uint64_t hash = HashOf(client);
  if (table_.load(std::memory_order_acquire) == nullptr) return false;
  const CAutoLock lock(LockOf(hash));
  for (Place& place : *BucketOf(hash)) {
    if (place.client != hash || place.forgiven >= Moment(since)) continue;
    place = {hash, place.period, 0, 0, Moment(since)};
    return true;
  }
  return false;
}

}  // namespace qiv
