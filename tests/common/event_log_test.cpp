#include "common/event_log.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/json.h"
#include "common/text.h"
#include "port/file.h"
#include "port/module_path.h"
#include "tests/port/child_processes.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

TEST(EventLog, EveryFieldInItsPlace) {
  const CTemporaryDirectory directory;
  CEventLog log(directory.Path("debug") + kPathSeparator);  // created by the first line
  Event event;
  event.time_us = 1709251199007999;
  event.event_id = "00ff";
  event.site = 7;
  event.client = "10.0.0.1";
  event.forwarded = "::1";
  event.method = "GET";
  event.url = "/a?b=\"1\"\r\n{\"forged\":1}";
  event.phase = 1;
  event.check = "url";
  event.item = "item";
  event.reason = "\xD6\xD0\xCE\xC4";  // GBK
  event.detail = "\xE4\xB8\xAD";      // UTF-8
  event.action = "block";
  event.status = 403;
  event.rule = "r-1";
  event.user_agent = "agent\xFF";
  event.elapsed_us = 1234;
  log.Write(event);
  log.WriteRequest(event);
  EXPECT_EQ(Content(directory.Path("debug/_log.log")),
            "{\"time\":\"2024-02-29T23:59:59.007Z\",\"event_id\":\"00ff\",\"site\":7,\"client\":\"10.0.0.1\","
            "\"forwarded\":\"::1\",\"method\":\"GET\",\"url\":\"/a?b=\\\"1\\\"\\r\\n{\\\"forged\\\":1}\",\"phase\":1,"
            "\"check\":\"url\",\"item\":\"item\",\"reason\":\"中文\",\"detail\":\"中\",\"action\":\"block\","
            "\"status\":403,\"rule\":\"r-1\",\"user_agent\":\"agent\uFFFD\",\"elapsed_us\":1234}\n");
  EXPECT_EQ(Content(directory.Path("debug/_log_req.log")),
            "{\"time\":\"2024-02-29T23:59:59.007Z\",\"event_id\":\"00ff\",\"site\":7,\"client\":\"10.0.0.1\","
            "\"forwarded\":\"::1\",\"method\":\"GET\",\"url\":\"/a?b=\\\"1\\\"\\r\\n{\\\"forged\\\":1}\","
            "\"check\":\"url\",\"action\":\"block\",\"status\":403,\"user_agent\":\"agent\uFFFD\","
            "\"elapsed_us\":1234}\n");
}

TEST(EventLog, TextsOfAnyBytesAndLength) {
  std::string chinese_utf8;
  std::string chinese_gbk;
  std::string every_byte;
  for (int i = 0; i < 2000; ++i) chinese_utf8 += "中";
  for (int i = 0; i < 2000; ++i) chinese_gbk += "\xD6\xD0";
  for (int i = 0; i < 256; ++i) every_byte.push_back(static_cast<char>(i));
  const struct {
    std::string detail;  // its limit is 1,024 bytes
    std::string written;
  } cases[] = {
      {std::string(1024, 'a'), std::string(1024, 'a')},
      {std::string(1025, 'a'), std::string(1024, 'a')},
      {chinese_utf8, chinese_utf8.substr(0, 1023)},  // 341 characters of three bytes
      {"x" + chinese_utf8, "x" + chinese_utf8.substr(0, 1023)},
      {"xy" + chinese_utf8, "xy" + chinese_utf8.substr(0, 1020)},
      {chinese_gbk, chinese_utf8.substr(0, 512 * 3)},  // 512 characters of two bytes
      {"x" + chinese_gbk, "x" + chinese_utf8.substr(0, 511 * 3)},
      {"\xC4\xA3\xCA\xBD", "模式"},  // GBK whose bytes are valid two-byte UTF-8 too
      {"\xD6", "\uFFFD"},
      {"", ""},
  };
  for (const auto& c : cases) {
    Event event;
    event.detail = c.detail;
    const auto line = ParseJson(EventLine(event));
    ASSERT_NE(line, nullptr) << c.detail;
    EXPECT_EQ(line->AsObject()->GetText("detail"), c.written);
  }
  for (std::size_t length = 1; length <= 16; ++length) {
    for (std::size_t pos = 0; pos + length <= every_byte.size(); ++pos) {
      Event event;
      event.url = std::string_view(every_byte).substr(pos, length);
      const std::string line = EventLine(event);
      ASSERT_NE(ParseJson(line), nullptr) << pos << " " << length;
      ASSERT_EQ(line.find('\n'), line.size() - 1) << pos << " " << length;
    }
  }
}

TEST(EventLog, IdentifiersDiffer) {
  std::set<std::string> ids;
  for (int i = 0; i < 10'000; ++i) ids.insert(CEventLog::NewEventId());
  EXPECT_EQ(ids.size(), 10'000U);
  EXPECT_EQ(ids.begin()->size(), 16U);
}

// What several writers left in the five files: every line once, whole, and no file moved away before it was full.
void ExpectAllLines(const CTemporaryDirectory& directory, int writers, int lines_each, std::uint64_t limit,
                    int fewest_moved) {
  std::map<std::string, int> seen;
  int moved = 0;
  for (const char* suffix : {"", ".1", ".2", ".3", ".4"}) {
    const std::string content = Content(directory.Path(std::string("_log.log") + suffix));
    if (*suffix != '\0' && !content.empty()) {
      ++moved;
      EXPECT_GE(content.size(), limit) << suffix;
    }
    for (const std::string_view line : Split(content, '\n')) {
      if (line.empty()) continue;
      const auto value = ParseJson(line);
      ASSERT_NE(value, nullptr) << line;
      ++seen[value->AsObject()->GetText("event_id")];
    }
  }
  EXPECT_GE(moved, fewest_moved);
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(writers * lines_each));
  for (const auto& [id, count] : seen) EXPECT_EQ(count, 1) << id;
}

void WriteMany(CEventLog* log, int writer, int lines) {
  for (int i = 0; i < lines; ++i) {
    const std::string id = std::to_string(writer) + "-" + std::to_string(i);
    const std::string detail(static_cast<std::size_t>(i % 400), 'd');
    Event event;
    event.event_id = id;
    event.detail = detail;
    log->Write(event);
  }
}

// About 500 bytes a line: 4 writers and 600 lines make 1.1 MB. A file may pass the limit by 64 lines of each writer, so
// at least two are moved away, and the five files hold all lines.
constexpr int kWriters = 4;
constexpr int kLinesEach = 600;
constexpr std::uint64_t kLimit = 256 * 1024;

TEST(EventLog, ProcessesRotateWithoutLoss) {
  if (RunsUnderWine()) GTEST_SKIP() << "wine appends in two steps";
  if (const auto child = ChildNumber()) {
    CEventLog log(ChildArgument(), kLimit);
    WriteMany(&log, *child, kLinesEach);
    return;
  }
  const CTemporaryDirectory directory;
  ASSERT_TRUE(RunChildren(kWriters, directory.Path("")));
  ExpectAllLines(directory, kWriters, kLinesEach, kLimit, 2);
}

TEST(EventLog, ThreadsRotateWithoutLoss) {
  const CTemporaryDirectory directory;
  CEventLog log(directory.Path(""), kLimit);
  std::vector<std::thread> threads;
  for (int t = 0; t < kWriters; ++t) threads.emplace_back([&log, t] { WriteMany(&log, t, kLinesEach); });
  for (std::thread& thread : threads) thread.join();
  ExpectAllLines(directory, kWriters, kLinesEach, kLimit, 2);
}

TEST(EventLog, KeepsTheNewestAndStaysBounded) {
  const CTemporaryDirectory directory;
  constexpr std::uint64_t kSmall = 20'000;
  CEventLog log(directory.Path(""), kSmall);
  WriteMany(&log, 0, 2000);
  std::uint64_t total = 0;
  for (const char* suffix : {"", ".1", ".2", ".3", ".4"}) {
    const auto size = FileSize(directory.Path(std::string("_log.log") + suffix));
    if (*suffix != '\0') {
      ASSERT_TRUE(size) << suffix;
    }
    total += size.value_or(0);
  }
  EXPECT_EQ(FileSize(directory.Path("_log.log.5")), std::nullopt);
  EXPECT_LT(total, 8 * kSmall + 5 * 64 * 1000);  // 64 lines of at most 1,000 bytes may pass between two looks
  // The newest lines, in order, across the files from the oldest to the newest.
  std::vector<std::string> lines;
  for (const char* suffix : {".4", ".3", ".2", ".1", ""}) {
    const std::string content = Content(directory.Path(std::string("_log.log") + suffix));
    for (const std::string_view line : Split(content, '\n')) {
      if (!line.empty()) lines.push_back(ParseJson(line)->AsObject()->GetText("event_id"));
    }
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    ASSERT_EQ(lines[i], "0-" + std::to_string(2000 - lines.size() + i));
  }
}

TEST(EventLog, WritesNoFurtherWhenTheFileCannotBeMoved) {
  const CTemporaryDirectory directory;
  constexpr std::uint64_t kSmall = 20'000;
  // Somebody else seems to rename, for ever.
  const CFileLock held(directory.Path("_log.log.lock"));
  ASSERT_TRUE(held.Held());
  CEventLog log(directory.Path(""), kSmall);
  WriteMany(&log, 0, 1000);
  const auto size = FileSize(directory.Path("_log.log"));
  ASSERT_TRUE(size);
  EXPECT_GE(*size, 4 * kSmall);
  EXPECT_LT(*size, 4 * kSmall + 64 * 1000);
}

TEST(EventLog, ADirectoryThatCannotBeMadeIsSilent) {
  const CTemporaryDirectory directory;
  CEventLog log(directory.Path("missing/debug") + kPathSeparator);
  log.Write(Event());
  log.WriteRequest(Event());
  EXPECT_FALSE(FileSize(directory.Path("missing/debug/_log.log")));
}

}  // namespace
}  // namespace qiv
