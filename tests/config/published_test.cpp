#include "common/published.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace qiv {
namespace {

std::atomic<int> alive{0};

struct Counted {
  explicit Counted(int number) : first(number), second(number) { ++alive; }
  ~Counted() {
    first = second = -1;
    --alive;
  }
  int first;
  int second;
};

TEST(Published, ReadersKeepWhatTheyTook) {
  {
    CPublished<Counted> slot(std::make_shared<Counted>(1));
    const std::shared_ptr<const Counted> kept = slot.Load();
    slot.Store(std::make_shared<Counted>(2));
    slot.Store(std::make_shared<Counted>(3));
    EXPECT_EQ(kept->first, 1);
    EXPECT_EQ(slot.Load()->first, 3);
    EXPECT_EQ(alive, 2);  // 2 went at once, 1 is still held
  }
  EXPECT_EQ(alive, 0);
}

TEST(Published, SixteenReadersOneWriter) {
  constexpr int kStores = 3000;
  {
    CPublished<Counted> slot(std::make_shared<Counted>(0));
    std::atomic<bool> done{false};
    std::atomic<int> faults{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 16; ++i) {
      readers.emplace_back([&slot, &done, &faults] {
        int last = 0;
        while (!done) {
          const std::shared_ptr<const Counted> value = slot.Load();
          if (value->first != value->second || value->first < last) ++faults;
          last = value->first;
        }
      });
    }
    for (int i = 1; i <= kStores; ++i) slot.Store(std::make_shared<Counted>(i));
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(faults, 0);
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace qiv
