#include "port/critical_section.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace qiv {
namespace {

TEST(CriticalSection, KeepsThreadsApart) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20'000;
  CCriticalSection section;
  std::vector<int> shared;  // not safe by itself
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        const CAutoLock lock(section);
        shared.push_back(static_cast<int>(shared.size()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(shared.size(), static_cast<std::size_t>(kThreads * kRounds));
  for (std::size_t i = 0; i < shared.size(); ++i) ASSERT_EQ(shared[i], static_cast<int>(i));
}

}  // namespace
}  // namespace qiv
