#include "common/messages.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/char_set.h"

namespace qiv {
namespace {

struct Row {
  const char* id;
  std::string english;
  std::string chinese;  // UTF-8
};

const std::vector<Row>& Rows() {
  static const std::vector<Row> rows = {
#define QIV_MESSAGE(id, english, chinese) {#id, english, chinese},
#include "common/messages.def"
#undef QIV_MESSAGE
  };
  return rows;
}

// Runs first: several threads meet at the first use.
TEST(Messages, FirstUseByManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (std::size_t i = 0; i < Rows().size(); ++i) {
        EXPECT_EQ(Message(Language::kChinese, static_cast<MessageId>(i)), CCharSet::Utf8ToLocal(Rows()[i].chinese));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Messages, BothCellsAreFilledAndFitTheirEncoding) {
  ASSERT_EQ(Rows().size(), static_cast<std::size_t>(MessageId::kCount));
  for (std::size_t i = 0; i < Rows().size(); ++i) {
    const Row& row = Rows()[i];
    EXPECT_FALSE(row.english.empty()) << row.id;
    EXPECT_FALSE(row.chinese.empty()) << row.id;
    EXPECT_TRUE(CCharSet::IsAscii(row.english)) << row.id << ": English is written to pages of any encoding";
    EXPECT_TRUE(CCharSet::IsValidUtf8(row.chinese)) << row.id;
    EXPECT_EQ(CCharSet::LocalToUtf8(Message(Language::kChinese, static_cast<MessageId>(i))), row.chinese)
        << row.id << ": a character that GBK does not hold";
    EXPECT_EQ(Message(Language::kEnglish, static_cast<MessageId>(i)), row.english);
  }
}

}  // namespace
}  // namespace qiv
