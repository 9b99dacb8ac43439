// Counts requests per client within fixed periods of time, in memory that does not grow.
//
// A table of buckets with eight places each; a client's bucket follows from a keyed hash of its network (an IPv6 /64 is
// one client), so nobody chooses whom he shares it with. A new client takes an empty place of its bucket, else one of a
// period that is over, else that of the client with the lowest count: a flood from endless addresses pushes out its own
// addresses, which have asked once, while those that ask often stay. What is lost is the count of a client that asked
// less than seven others of its bucket; it starts again from 1. Clients are told apart by 64 bits of the hash.
//
// Each bucket belongs to one of 64 locks, held for the eight places alone. Tested by
// tests/checks/client_counter_test.cpp.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "common/ip_address.h"
#include "port/critical_section.h"

namespace qiv {

/// Thread safe. Takes its memory, kTableBytes, when it first counts, and keeps it.
class CClientCounter {
 public:
  static constexpr std::size_t kPlaces = 8;  ///< of a bucket
  static constexpr std::size_t kBuckets = std::size_t{1} << 16;

  CClientCounter();
  CClientCounter(const CClientCounter&) = delete;
  CClientCounter& operator=(const CClientCounter&) = delete;

  struct Count {
    std::uint32_t requests = 0;  ///< in the current period, this one included; stays at the largest number
    bool held = false;           ///< Hold is in force
  };
  /// Counts a request at the time `now`; `period` in seconds, at least 1. Throws std::bad_alloc the first time.
  Count Add(const CIpAddress& client, std::int64_t now, std::int64_t period);
  /// What Add would say without counting.
  Count Look(const CIpAddress& client, std::int64_t now, std::int64_t period) const;

  /// Marks a client that was counted until the time `until`; a held client is pushed out last.
  void Hold(const CIpAddress& client, std::int64_t until);
  /// Forgets the client's count and mark, for a reason that came up at the time `since`; once for each reason, so that
  /// nobody is forgiven twice for the same. False when that was done before, or there is nothing to forget.
  bool Forgive(const CIpAddress& client, std::int64_t since);

  std::size_t Bytes() const;  ///< that the table takes: 0 or kTableBytes

 private:
  struct Place {
    std::uint64_t client = 0;  ///< hash; 0: empty
    std::uint32_t period = 0;  ///< number of the period, its low 32 bits
    std::uint32_t requests = 0;
    std::uint32_t held_until = 0;  ///< seconds since 1970
    std::uint32_t forgiven = 0;    ///< `since` of the last Forgive
  };
  using Bucket = std::array<Place, kPlaces>;

 public:
  static constexpr std::size_t kTableBytes = kBuckets * sizeof(Bucket);

 private:
  static constexpr std::size_t kLocks = 64;

  std::uint64_t HashOf(const CIpAddress& client) const;
  Bucket* BucketOf(std::uint64_t client) const;
  CCriticalSection& LockOf(std::uint64_t client) const { return locks_[client % kBuckets % kLocks]; }
  void MakeTable();

  const std::uint64_t seed_;
  CCriticalSection make_lock_;
  std::unique_ptr<Bucket[]> owned_ QIV_GUARDED_BY(make_lock_);
  std::atomic<Bucket*> table_{nullptr};  ///< a bucket's places are guarded by its lock
  mutable std::array<CCriticalSection, kLocks> locks_;
};

}  // namespace qiv
