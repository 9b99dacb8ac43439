#include "port/clock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace qiv {
namespace {

std::string Text(const CalendarTime& t) {
  const auto two = [](int n) { return (n < 10 ? "0" : "") + std::to_string(n); };
  return std::to_string(t.year) + "-" + two(t.month) + "-" + two(t.day) + " " + two(t.hour) + ":" + two(t.minute) +
         ":" + two(t.second) + " day " + std::to_string(t.weekday);
}

TEST(Clock, UtcCalendar) {
  const struct {
    std::int64_t seconds;
    const char* text;
  } cases[] = {
      {0, "1970-01-01 00:00:00 day 4"},          {951782399, "2000-02-28 23:59:59 day 1"},
      {951782400, "2000-02-29 00:00:00 day 2"},  {1709251199, "2024-02-29 23:59:59 day 4"},
      {2147483648, "2038-01-19 03:14:08 day 2"},  // past 31 bits
      {4107542400, "2100-03-01 00:00:00 day 1"},  // 2100 is no leap year
  };
  for (const auto& c : cases) EXPECT_EQ(Text(UtcTime(c.seconds)), c.text) << c.seconds;
}

TEST(Clock, LocalTimeIsWithinADayOfUtc) {
  const std::int64_t noon = 1718452800;  // 2024-06-15 12:00 UTC: every zone is on the 15th, save at its very ends
  const CalendarTime local = LocalTime(noon);
  EXPECT_EQ(local.year, 2024);
  EXPECT_EQ(local.month, 6);
  EXPECT_NEAR(local.day, 15, 1);
  EXPECT_EQ(local.second, 0);
  EXPECT_EQ(local.minute % 15, 0);
}

}  // namespace
}  // namespace qiv
