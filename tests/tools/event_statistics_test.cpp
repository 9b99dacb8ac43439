// From lines of the event log to the report: whatever stands in them.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "common/event_log.h"
#include "common/json.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tools/event_log_files.h"
#include "tools/event_statistics.h"
#include "tools/files.h"
#include "tools/heavy_hitters.h"
#include "tools/printable.h"
#include "tools/report_page.h"
#include "tools/report_run.h"

namespace qiv {
namespace {

constexpr std::int64_t kNow = 1'777'622'400;  // 2026-05-01T08:00:00Z

std::string Line(std::int64_t time, std::string_view url, std::string_view client = "192.0.2.7",
                 std::string_view action = "block") {
  Event event;
  event.time_us = time * 1'000'000;
  event.event_id = "0123456789abcdef";
  event.client = client;
  event.url = url;
  event.method = "GET";
  event.check = "injection";
  event.reason = url;
  event.detail = url;
  event.rule = "101001";
  event.action = action;
  return EventLine(event);
}

const std::string kHostile[] = {
    "</script><script>x</script>",
    "\"><img src=x onerror=alert(1)>",
    "\x1B[2J",
    "a\xE2\x80\xAEgpj.exe",
    "\xC2\x9B"
    "2J",
    "'",
    "&lt;",
    "back\\slash\\",
    "\xE4\xB8\xAD\xE6\x96\x87",
    "\xD6\xD0\xCE\xC4\xD6",
    "\xF0\x9F\x98\x80",
    std::string("a\0b", 3),
};

TEST(EventLine, ReadsWhatTheJsonParserReadsAndNoTornLine) {
  CEventLineReader reader;
  for (const std::string& text : kHostile) {
    std::string line = Line(kNow, text);
    line.pop_back();
    const auto parsed = ParseJson(line);
    const EventLineFields* const fields = reader.Read(line);
    ASSERT_TRUE(parsed != nullptr && fields != nullptr) << line;
    EXPECT_EQ(fields->time, kNow);
    EXPECT_EQ((*fields)[EventField::kUrl], parsed->AsObject()->GetText("url"));
    EXPECT_EQ((*fields)[EventField::kDetail], parsed->AsObject()->GetText("detail"));
    EXPECT_EQ((*fields)[EventField::kElapsed], "0");
    for (std::size_t length = 0; length < line.size(); ++length) {
      EXPECT_EQ(reader.Read(std::string(line, 0, length)), nullptr) << length;
    }
  }
  const std::string rest = R"(,"action":"block","x":"\ud83d\ude00"})";
  const std::string good = R"({"time":"2026-05-01T08:00:00.000Z")";
  EXPECT_NE(reader.Read(good + rest), nullptr);
  for (const std::string& bad :
       {good + R"(,"action":"\ud83d"})", good + R"(,"action":"\q"})", good + R"(,"action":["block"]})",
        good + rest + "x", R"({"time":"2026-02-30T08:00:00.000Z")" + rest, good + R"(,"url":"/"})", "{}" + rest}) {
    EXPECT_EQ(reader.Read(bad), nullptr) << bad;
  }
  // A character of GBK may end in a backslash.
  ASSERT_NE(reader.Read(good + ",\"url\":\"\x81\\\"" + rest), nullptr);
  EXPECT_EQ(reader.Read(good + ",\"url\":\"" + std::string(CEventLineReader::kLongestLine, 'a') + "\"" + rest),
            nullptr);
}

TEST(HeavyHitters, CountsAreNeverTooHighAndLackNoMoreThanTheySay) {
  std::mt19937 random(7);
  for (const std::size_t capacity : {1U, 10U, 50U, 1000U}) {
    CHeavyHitters table(capacity);
    std::map<std::string, std::uint64_t> all;
    for (int i = 0; i < 20'000; ++i) {
      const auto key = std::to_string(random() % (random() % 400 + 1));
      ++all[key];
      table.Add(key, i % CHeavyHitters::kColumns);
    }
    EXPECT_EQ(table.Total(), 20'000U);
    EXPECT_EQ(table.Overflowed(), all.size() > capacity);
    std::map<std::string, bool> held;
    for (const CHeavyHitters::Entry& entry : table.Entries()) {
      held[entry.key] = true;
      EXPECT_LE(entry.Counted(), all[entry.key]);
      EXPECT_GE(entry.Counted() + entry.missed, all[entry.key]);
    }
    for (const auto& [key, count] : all) EXPECT_TRUE(held[key] || count <= table.Total() / capacity) << key;
  }
}

TEST(EventStatistics, CountsAPeriodAndItsTimesWithoutProtection) {
  const auto protection = [](std::int64_t time, std::string_view state) {
    return StateEvent{.time_us = time * 1'000'000,
                      .event_id = "1",
                      .kind = "protection",
                      .state = state,
                      .file = "",
                      .item = "",
                      .reason = "why",
                      .detail = ""};
  };
  const CTemporaryDirectory directory;
  CEventLog log(directory.Path("debug/"));
  log.WriteState(protection(kNow - 5000, "off"));
  log.WriteState(protection(kNow - 4000, "off"));
  log.WriteState(protection(kNow - 2000, "on"));
  log.WriteState(protection(kNow - 100, "off"));
  for (const std::int64_t age : {5000, 3000, 3000, 10, -10})
    AppendLine(directory.Path("debug/_log.log"), Line(kNow - age, "/a?b"));
  StatisticsOptions options;
  options.since = kNow - 3500;
  options.until = kNow;
  options.now = kNow + 50;
  CEventStatistics statistics(options);
  CEventLogFiles files(directory.Path(""));
  files.ReadAll([&](std::string_view line) { return statistics.Take(line), true; });
  EXPECT_EQ(statistics.Requests(), 3U);
  EXPECT_EQ(statistics.Of(CEventStatistics::kUrls).Entries()[0].key, "/a");
  EXPECT_EQ(statistics.First(), kNow - 3000);
  EXPECT_EQ(statistics.UnprotectedSeconds(), 1500 + 100);
  ASSERT_EQ(statistics.Gaps().size(), 2U);
  EXPECT_EQ(statistics.Gaps()[1].end, 0);
}

TEST(EventStatistics, ACourseOfTimeHasFewBarsAndLosesNothing) {
  CTimeCourse course;
  std::uint64_t all = 0;
  for (std::int64_t time = kNow; time < kNow + 4000 * std::int64_t{86400}; time += time - kNow + 7, ++all) {
    course.Add(time, EventOutcome::kStopped);
    course.Add(kNow - all, EventOutcome::kWouldStop);
    std::uint64_t stopped = 0;
    const std::vector<CTimeCourse::Bar> bars = course.Bars();
    for (const CTimeCourse::Bar& bar : bars) stopped += bar.counts[0];
    EXPECT_EQ(stopped, all + 1);
    EXPECT_LE(bars.size(), static_cast<std::size_t>(CTimeCourse::kMostBars));
    EXPECT_GT(bars.back().begin + course.SecondsPerBar(), time);
  }
}

TEST(EventLogFiles, FollowsALogThatIsMovedAwayAndCutShort) {
  const CTemporaryDirectory directory;
  MakeDirectory(directory.Path("debug"));
  const std::string log = directory.Path("debug/_log.log");
  CEventLogFiles files(directory.Path(""));
  std::string seen;
  const auto look = [&] {
    seen.clear();
    files.ReadNew([&](std::string_view line) { return seen += line, seen += ' ', true; });
    return seen;
  };
  EXPECT_EQ(look(), "");
  ReplaceFile(log + ".1", "old\n");
  ReplaceFile(log, "one\ntw");
  EXPECT_EQ(look(), "old one ");
  AppendToFile(log, "o\nthree\n");
  EXPECT_EQ(look(), "two three ");
  AppendToFile(log, "four\nto");
  for (int moved = 2; moved > 0; --moved) {  // twice between two looks
    RenameFile(log + ".1", log + ".2");
    RenameFile(log, log + ".1");
    AppendToFile(log, "file" + std::to_string(moved) + "\n");
  }
  EXPECT_EQ(look(), "four to file2 file1 ");
  AppendToFile(log + ".1", "late\n");
  AppendToFile(log, std::string(3U << 20, 'x') + "\nshort\n");
  EXPECT_EQ(look(), "late " + std::string(CEventLineReader::kLongestLine + 1, 'x') + " short ");
  AppendToFile(log, std::string(100, 'y') + "\n");
  look();
  std::filesystem::resize_file(log, 0);
  AppendToFile(log, "new\n");
  EXPECT_EQ(look(), "new ");
}

TEST(ReportPage, HoldsNoMarkupAndNoHiddenCharacterOfTheLog) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  ASSERT_TRUE(MakeDirectories(module + "/config") && MakeDirectories(module + "/debug"));
  const std::string page = directory.Path("page.html");
  ReportRequest request;
  request.directory = module;
  request.output = page;
  const auto made = [&] {
    EXPECT_EQ(WriteReport(request), 0);
    std::string html;
    ReadWholeFile(page, 100U << 20, &html);
    return html;
  };
  EXPECT_NE(made().find("The log holds no event"), std::string::npos);

  std::string log;
  for (const std::string& text : kHostile) {
    log += Line(kNow, "/" + text, text, text) + Line(kNow, "/x", "192.0.2.8", "would block");
    log += "{\"time\":\"2026-05-01T08:00:00.000Z\",\"kind\":" + WriteJson(JsonString(text)) + ",\"state\":\"fault\"}\n";
  }
  log += "{\"time\":\"2026-05-01T08:00:00.000Z\",\"action\":\"block\",\"url\":\"\xD6\xD0\xD6\"}\n" +
         std::string(1U << 20, 'x') + "\n{\"time\":\"2026";
  ReplaceFile(module + "/debug/_log.log", log);
  for (const auto& language : {std::optional<Language>(), std::optional(Language::kChinese)}) {
    request.language = language;
    const std::string html = made();
    EXPECT_NE(html.find("2 lines of the log are torn"), std::string::npos);
    EXPECT_NE(html.find("\xE4\xB8\xAD\xEF\xBF\xBD</span>"), std::string::npos) << "GBK, and half a character of it";
    EXPECT_EQ(html.find(" checked") > html.find("id=\"zh\""), language.has_value());
    std::string body = html.substr(html.find("<body>"));
    body = body.substr(0, body.find("<script nonce"));
    for (const char* const bad : {"<script", "<img", "\x1B", "\xE2\x80\xAE", "\xC2\x9B", "style=", "href=", "src=x>"}) {
      EXPECT_EQ(body.find(bad), std::string::npos) << bad;
    }
    EXPECT_NE(body.find("/a\\u202Egpj.exe"), std::string::npos);
    EXPECT_NE(body.find("<td class=\"name\">192.0.2.8<svg"), std::string::npos);
  }
}

TEST(ReportPage, TakesPeriodsAndDates) {
  EXPECT_EQ(ParseMoment("24h", kNow), kNow - 86400);
  EXPECT_EQ(ParseMoment("2w", kNow), kNow - 14 * 86400);
  const auto midnight = ParseMoment("2026-05-01", kNow);
  ASSERT_TRUE(midnight);
  EXPECT_EQ(WallText(CLocalTimes().Wall(*midnight)), "2026-05-01 00:00:00");
  EXPECT_EQ(ParseMoment("2026-05-01 12:30", kNow), *midnight + 45000);
  for (const char* const bad :
       {"", "h", "7", "-7d", "7x", "99999999d", "2026-13-01", "2026-05-01x", "2026-05-01 24:00"}) {
    EXPECT_FALSE(ParseMoment(bad, kNow)) << bad;
  }
}

}  // namespace
}  // namespace qiv
