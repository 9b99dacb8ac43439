// Counts attacks per client within fixed periods of time. IPv6 clients of one /64 are one client.
//
// Periods are aligned to multiples of their length. Each has a bucket with an entry for every client that attacked in
// it, so a look-up costs the same however many clients there are. Buckets that nobody asks for any more are discarded
// at most once in two periods. Tested by tests/checks/attack_counter_test.cpp against a plain list.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

#include "common/ip_address.h"
#include "port/clock.h"
#include "port/critical_section.h"

namespace qiv {

/// Thread safe. Neither lock is held while the other is taken.
class CAttackCounter {
 public:
  using Clock = std::int64_t (*)();  ///< seconds since 1970
  /// Clients of one period that are counted; further ones are not, so that an attack from endless IPv6 addresses takes
  /// some 30 MiB and no more.
  static constexpr std::size_t kMaxClients = std::size_t{1} << 18;
  /// Buckets that are kept when a clock that jumps about makes new ones faster than they are pruned.
  static constexpr std::size_t kMaxBuckets = 8;

  explicit CAttackCounter(Clock clock = &UnixSeconds);

  /// `limit` attacks within `period` seconds trigger; what is not positive stays as it was. Without both nothing
  /// triggers. Another period starts all counts anew.
  void SetLimits(std::int64_t limit, std::int64_t period);
  std::int64_t Limit() const;
  std::int64_t Period() const;

  enum class OnTrigger { kKeep, kRemove };

  /// Counts an attack. True when the client has reached the limit in the current period: the attack that reaches it (a
  /// limit of 1: the first), and every one after it, which is no longer counted. With kRemove a client that triggers
  /// starts anew, in the same step. `text` is kept when it is not empty. *just_reached tells the first of these from
  /// the others.
  bool Count(const CIpAddress& client, std::string_view text, OnTrigger on_trigger, bool* just_reached = nullptr);

  /// Whether the client has reached the limit in the current period.
  bool IsOverLimit(const CIpAddress& client) const;
  /// Forgets the client's count of the current period.
  void Remove(const CIpAddress& client);

  /// Discards the periods that are over, and those of a clock that was set back since.
  void Prune();
  std::size_t BucketCount() const;
  std::size_t ReserveSize() const;

 private:
  struct Entry {
    std::uint32_t count = 0;
    std::string text;
  };
  struct Hash {
    std::uint64_t seed;  ///< clients choose their addresses, but not where they fall
    std::size_t operator()(const CIpAddress& client) const;
  };
  struct Bucket {
    std::int64_t period;  ///< number of the period
    std::unordered_map<CIpAddress, Entry, Hash> clients;
  };

  std::int64_t PeriodNow() const QIV_REQUIRES(buckets_lock_) { return clock_() / period_; }
  Bucket* CurrentBucket(std::int64_t period, std::deque<Bucket>* discarded) QIV_REQUIRES(buckets_lock_);
  bool ClaimPrune(std::int64_t period);

  const Clock clock_;
  const Hash hash_;

  mutable CCriticalSection buckets_lock_;
  std::int64_t limit_ QIV_GUARDED_BY(buckets_lock_) = 0;
  std::int64_t period_ QIV_GUARDED_BY(buckets_lock_) = 0;       ///< seconds
  std::deque<Bucket> buckets_ QIV_GUARDED_BY(buckets_lock_);    ///< newest first
  std::size_t reserve_size_ QIV_GUARDED_BY(buckets_lock_) = 0;  ///< clients of the fullest discarded bucket

  CCriticalSection prune_lock_;
  std::int64_t last_prune_ QIV_GUARDED_BY(prune_lock_) = 0;  ///< number of the period
};

}  // namespace qiv
