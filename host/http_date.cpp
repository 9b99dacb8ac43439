#include "host/http_date.h"

#include "host/ascii.h"
#include "port/clock.h"

namespace qiv::host {
namespace {

constexpr std::string_view kDays = "SunMonTueWedThuFriSat";
constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";

void AppendTwo(int number, std::string* out) {
  out->push_back(static_cast<char>('0' + number / 10 % 10));
  out->push_back(static_cast<char>('0' + number % 10));
}

bool ReadNumber(std::string_view text, int* value) {
  std::uint64_t number = 0;
  if (!ParseDecimal(text, &number)) return false;
  *value = static_cast<int>(number);
  return true;
}

/// Days since 1970-01-01 of a day of the Gregorian calendar.
std::int64_t DaysSinceEpoch(int year, int month, int day) {
  const int shifted = month <= 2 ? year - 1 : year;  // years that begin in March
  const int era = shifted / 400;
  const int of_era = shifted - era * 400;
  const int day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return std::int64_t{era} * 146097 + of_era * 365 + of_era / 4 - of_era / 100 + day_of_year - 719468;
}

}  // namespace

std::string HttpDate(std::int64_t unix_seconds) {
  const CalendarTime time = UtcTime(unix_seconds);
  std::string text(kDays.substr(static_cast<std::size_t>(time.weekday) * 3, 3));
  text += ", ";
  AppendTwo(time.day, &text);
  text.append(" ").append(kMonths.substr(static_cast<std::size_t>(time.month - 1) * 3, 3)).append(" ");
  text += std::to_string(time.year) + " ";
  AppendTwo(time.hour, &text);
  text += ':';
  AppendTwo(time.minute, &text);
  text += ':';
  AppendTwo(time.second, &text);
  return text + " GMT";
}

bool ParseHttpDate(std::string_view text, std::int64_t* unix_seconds) {
  if (text.size() != 29 || text.substr(3, 2) != ", " || text.substr(25) != " GMT" || text[19] != ':') return false;
  const std::size_t month = kMonths.find(text.substr(8, 3));
  int day = 0, year = 0, hour = 0, minute = 0, second = 0;
  if (month == std::string_view::npos || month % 3 != 0) return false;
  if (!ReadNumber(text.substr(5, 2), &day) || !ReadNumber(text.substr(12, 4), &year) ||
      !ReadNumber(text.substr(17, 2), &hour) || !ReadNumber(text.substr(20, 2), &minute) ||
      !ReadNumber(text.substr(23, 2), &second)) {
    return false;
  }
  if (day < 1 || day > 31 || year < 1970 || hour > 23 || minute > 59 || second > 60) return false;
  const std::int64_t days = DaysSinceEpoch(year, static_cast<int>(month / 3) + 1, day);
  *unix_seconds = ((days * 24 + hour) * 60 + minute) * 60 + second;
  return true;
}

const std::string& CurrentHttpDate() {
  thread_local std::int64_t made_for = -1;
  thread_local std::string text;
  const std::int64_t now = UnixSeconds();
  if (now != made_for) {
    text = HttpDate(now);
    made_for = now;
  }
  return text;
}

}  // namespace qiv::host
