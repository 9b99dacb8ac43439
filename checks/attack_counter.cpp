#include "checks/attack_counter.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace qiv {
namespace {

constexpr std::int64_t kPeriodsBetweenPrunes = 2;

std::uint64_t Mix(std::uint64_t value) {
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9U;
  value = (value ^ value >> 27) * 0x94D049BB133111EBU;
  return value ^ value >> 31;
}

}  // namespace

std::size_t CAttackCounter::Hash::operator()(const CIpAddress& client) const {
  const std::array<std::uint8_t, 16> bytes = client.Bytes();
  std::uint64_t halves[2];
  std::memcpy(halves, bytes.data(), sizeof(halves));
  return static_cast<std::size_t>(Mix(Mix(halves[0] ^ seed) ^ halves[1]));
}

CAttackCounter::CAttackCounter(Clock clock)
    : clock_(clock),
      hash_{Mix(static_cast<std::uint64_t>(UnixMicroseconds()) ^ reinterpret_cast<std::uintptr_t>(this))} {}

void CAttackCounter::SetLimits(std::int64_t limit, std::int64_t period) {
  std::deque<Bucket> discarded;  // ends outside the lock
  {
    const CAutoLock lock(buckets_lock_);
    if (limit > 0) limit_ = limit;
    if (period <= 0 || period == period_) return;
    period_ = period;
    discarded.swap(buckets_);  // their numbers count other periods
  }
  const CAutoLock lock(prune_lock_);
  last_prune_ = 0;
}

std::int64_t CAttackCounter::Limit() const {
  const CAutoLock lock(buckets_lock_);
  return limit_;
}

std::int64_t CAttackCounter::Period() const {
  const CAutoLock lock(buckets_lock_);
  return period_;
}

bool CAttackCounter::Count(const CIpAddress& client, std::string_view text, OnTrigger on_trigger, bool* just_reached) {
  const CIpAddress network = ClientNetwork(client);
  std::deque<Bucket> discarded;  // ends outside the lock
  const CAutoLock lock(buckets_lock_);
  if (limit_ <= 0 || period_ <= 0) return false;
  // Read under the lock, so that a thread that waited does not bring back a period that is over.
  auto& clients = CurrentBucket(PeriodNow(), &discarded)->clients;
  auto found = clients.find(network);
  if (found == clients.end()) {
    if (clients.size() >= kMaxClients) return false;
    found = clients.emplace(network, Entry{}).first;
  }
  Entry& entry = found->second;
  if (entry.count < limit_) {
    ++entry.count;
    if (!text.empty()) entry.text = text;
    if (entry.count < limit_) return false;
    if (just_reached != nullptr) *just_reached = true;
  }
  if (on_trigger == OnTrigger::kRemove) clients.erase(found);
  return true;
}

CAttackCounter::Bucket* CAttackCounter::CurrentBucket(std::int64_t period, std::deque<Bucket>* discarded) {
  if (buckets_.empty() || buckets_.front().period != period) {
    buckets_.push_front(Bucket{period, std::unordered_map<CIpAddress, Entry, Hash>(reserve_size_, hash_)});
    if (buckets_.size() > kMaxBuckets) {
      discarded->push_back(std::move(buckets_.back()));
      buckets_.pop_back();
    }
  }
  return &buckets_.front();
}

bool CAttackCounter::IsOverLimit(const CIpAddress& client) const {
  const CAutoLock lock(buckets_lock_);
  if (limit_ <= 0 || period_ <= 0 || buckets_.empty() || buckets_.front().period != PeriodNow()) return false;
  const auto found = buckets_.front().clients.find(ClientNetwork(client));
  return found != buckets_.front().clients.end() && found->second.count >= limit_;
}

void CAttackCounter::Remove(const CIpAddress& client) {
  const CAutoLock lock(buckets_lock_);
  if (!buckets_.empty()) buckets_.front().clients.erase(ClientNetwork(client));
}

bool CAttackCounter::ClaimPrune(std::int64_t period) {
  const CAutoLock lock(prune_lock_);
  // A number before the last one comes from a clock that was set back.
  if (period >= last_prune_ && period - last_prune_ < kPeriodsBetweenPrunes) return false;
  last_prune_ = period;
  return true;
}

void CAttackCounter::Prune() {
  const std::int64_t length = Period();
  if (length <= 0) return;
  const std::int64_t period = clock_() / length;
  if (!ClaimPrune(period)) return;

  std::vector<Bucket> discarded;  // ends outside the lock
  const CAutoLock lock(buckets_lock_);
  for (std::size_t i = buckets_.size(); i-- > 1;) {
    if (buckets_[i].period + 1 >= period && buckets_[i].period <= period) continue;
    reserve_size_ = std::max(reserve_size_, buckets_[i].clients.size());
    discarded.push_back(std::move(buckets_[i]));
    buckets_.erase(buckets_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

std::size_t CAttackCounter::BucketCount() const {
  const CAutoLock lock(buckets_lock_);
  return buckets_.size();
}

std::size_t CAttackCounter::ReserveSize() const {
  const CAutoLock lock(buckets_lock_);
  return reserve_size_;
}

}  // namespace qiv
