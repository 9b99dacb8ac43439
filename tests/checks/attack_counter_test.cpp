#include "checks/attack_counter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <list>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace qiv {
namespace {

using OnTrigger = CAttackCounter::OnTrigger;

std::atomic<std::int64_t> test_now{0};
std::int64_t TestClock() { return test_now; }

/// An odd one is a /64, of which `host` is the last byte.
CIpAddress Client(std::uint32_t number, std::uint32_t host = 0) {
  if (number % 2 == 0) return CIpAddress::FromIpv4(number);
  std::array<std::uint8_t, 16> bytes{0x20, 0x01};
  bytes[7] = static_cast<std::uint8_t>(number);
  bytes[15] = static_cast<std::uint8_t>(host);
  return CIpAddress::FromIpv6(bytes);
}

/// The same by searching lists.
class CSlowCounter {
 public:
  CSlowCounter(std::int64_t limit, std::int64_t period) : limit_(limit), period_(period) {}

  bool Count(const CIpAddress& client, bool* just_reached) {
    const std::int64_t number = test_now / period_;
    if (buckets_.empty() || buckets_.front().number != number) {
      buckets_.push_front({number, {}});
      if (buckets_.size() > CAttackCounter::kMaxBuckets) buckets_.pop_back();
    }
    for (Entry& entry : buckets_.front().entries) {
      if (entry.client != client) continue;
      if (entry.count >= limit_) return true;
      ++entry.count;
      *just_reached = entry.count == limit_;
      return *just_reached;
    }
    buckets_.front().entries.push_back({client, 1});
    *just_reached = limit_ == 1;
    return limit_ == 1;
  }
  void Remove(const CIpAddress& client) {
    if (!buckets_.empty()) buckets_.front().entries.remove_if([&](const Entry& e) { return e.client == client; });
  }
  bool IsOverLimit(const CIpAddress& client) const {
    if (buckets_.empty() || buckets_.front().number != test_now / period_) return false;
    return std::any_of(buckets_.front().entries.begin(), buckets_.front().entries.end(),
                       [&](const Entry& e) { return e.client == client && e.count >= limit_; });
  }
  void Prune() {
    const std::int64_t number = test_now / period_;
    if (number >= last_prune_ && number - last_prune_ < 2) return;
    last_prune_ = number;
    std::list<Bucket> kept;
    for (Bucket& bucket : buckets_) {
      if (kept.empty() || bucket.number == number || bucket.number + 1 == number) {
        kept.push_back(bucket);
      } else {
        reserve_ = std::max(reserve_, bucket.entries.size());
      }
    }
    buckets_ = kept;
  }
  std::size_t BucketCount() const { return buckets_.size(); }
  std::size_t ReserveSize() const { return reserve_; }

 private:
  struct Entry {
    CIpAddress client;
    std::int64_t count;
  };
  struct Bucket {
    std::int64_t number;
    std::list<Entry> entries;
  };
  const std::int64_t limit_;
  const std::int64_t period_;
  std::list<Bucket> buckets_;
  std::size_t reserve_ = 0;
  std::int64_t last_prune_ = 0;
};

TEST(AttackCounter, AgreesWithASlowOne) {
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    const std::int64_t limit = 1 + seed % 5;
    const std::int64_t period = 1 + seed % 7 * 3;
    test_now = 1'000'000;
    CAttackCounter counter(TestClock);
    counter.SetLimits(limit, period);
    CSlowCounter slow(limit, period);
    for (int step = 0; step < 2000; ++step) {
      const std::uint32_t number = random() % 6;
      const CIpAddress client = Client(number);
      const CIpAddress neighbour = Client(number, random() % 3);  // the same client
      switch (random() % 8) {
        case 0:
          test_now += random() % 3 * random() % 12;
          if (random() % 16 == 0) test_now -= random() % 60;  // a clock that is set back
          break;
        case 1:
          counter.Prune();
          slow.Prune();
          break;
        case 2:
          counter.Remove(neighbour);
          slow.Remove(client);
          break;
        case 3:
          ASSERT_EQ(counter.IsOverLimit(neighbour), slow.IsOverLimit(client));
          break;
        default: {
          bool reached = false;
          bool slow_reached = false;
          const OnTrigger on_trigger = random() % 2 == 0 ? OnTrigger::kKeep : OnTrigger::kRemove;
          const bool triggered = slow.Count(client, &slow_reached);
          ASSERT_EQ(counter.Count(neighbour, "text", on_trigger, &reached), triggered);
          ASSERT_EQ(reached, slow_reached);
          if (triggered && on_trigger == OnTrigger::kRemove) slow.Remove(client);
        }
      }
      ASSERT_EQ(counter.BucketCount(), slow.BucketCount());
      ASSERT_EQ(counter.ReserveSize(), slow.ReserveSize());
    }
  }
}

TEST(AttackCounter, WithoutLimitsOrWithAnotherPeriodNothingIsOver) {
  test_now = 1'000'000;
  CAttackCounter counter(TestClock);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(counter.Count(Client(1), {}, OnTrigger::kKeep));
  EXPECT_EQ(counter.BucketCount(), 0U);
  counter.SetLimits(2, 60);
  counter.Count(Client(1), {}, OnTrigger::kKeep);
  EXPECT_TRUE(counter.Count(Client(1), {}, OnTrigger::kKeep));
  counter.SetLimits(0, 0);  // what is not positive changes nothing
  EXPECT_TRUE(counter.IsOverLimit(Client(1)));
  counter.SetLimits(2, 30);
  EXPECT_FALSE(counter.IsOverLimit(Client(1)));
}

TEST(AttackCounter, StaysWithinItsBounds) {
  test_now = 1'000'000;
  CAttackCounter counter(TestClock);
  counter.SetLimits(2, 10);
  for (int i = 0; i < 100; ++i) {
    test_now += i % 2 == 0 ? 10 : -10;  // a clock that jumps about
    counter.Count(Client(1), {}, OnTrigger::kKeep);
  }
  EXPECT_LE(counter.BucketCount(), CAttackCounter::kMaxBuckets);

  for (std::uint32_t i = 0; i < CAttackCounter::kMaxClients + 10; ++i) {
    counter.Count(CIpAddress::FromIpv4(i), {}, OnTrigger::kKeep);
  }
  EXPECT_TRUE(counter.Count(CIpAddress::FromIpv4(5), {}, OnTrigger::kKeep));
  const CIpAddress late = CIpAddress::FromIpv4(CAttackCounter::kMaxClients + 5);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(counter.Count(late, {}, OnTrigger::kKeep));
}

TEST(AttackCounter, SixteenThreadsTriggerOnceForEachLimit) {
  constexpr int kThreads = 16;
  constexpr int kRounds = 3000;
  constexpr int kLimit = 8;
  constexpr std::uint32_t kClients = 4;
  test_now = 1'000'000;
  CAttackCounter removing(TestClock);
  CAttackCounter keeping(TestClock);
  removing.SetLimits(kLimit, 60);
  keeping.SetLimits(kLimit, 60);
  std::atomic<int> removed{0};
  std::atomic<int> kept{0};
  std::atomic<int> reached{0};
  // A period's first attack opens the bucket; done before, so that no thread counts in two.
  for (std::uint32_t c = 0; c < kClients; ++c) {
    removing.Count(Client(c), {}, OnTrigger::kRemove);
    keeping.Count(Client(c), {}, OnTrigger::kKeep);
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        for (std::uint32_t c = 0; c < kClients; ++c) {
          bool just_reached = false;
          removed += removing.Count(Client(c), "a", OnTrigger::kRemove) ? 1 : 0;
          kept += keeping.Count(Client(c), "b", OnTrigger::kKeep, &just_reached) ? 1 : 0;
          reached += just_reached ? 1 : 0;
        }
        removing.Prune();
        keeping.IsOverLimit(Client(0));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const int attacks = kThreads * kRounds + 1;  // on each client
  EXPECT_EQ(removed, static_cast<int>(kClients) * (attacks / kLimit));
  EXPECT_EQ(kept, static_cast<int>(kClients) * (attacks - kLimit + 1));
  EXPECT_EQ(reached, static_cast<int>(kClients));
}

}  // namespace
}  // namespace qiv
