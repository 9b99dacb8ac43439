#include "port/clock.h"

#include <time.h>

namespace qiv {
namespace {

std::int64_t Microseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000;
}

CalendarTime FromTm(const tm& t) {
  return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday};
}

}  // namespace

std::int64_t UnixSeconds() { return ::time(nullptr); }

std::int64_t UnixMicroseconds() { return Microseconds(CLOCK_REALTIME); }

std::int64_t MonotonicMicroseconds() { return Microseconds(CLOCK_MONOTONIC); }

CalendarTime LocalTime(std::int64_t unix_seconds) {
  const time_t seconds = unix_seconds;
  tm parts{};
  localtime_r(&seconds, &parts);
  return FromTm(parts);
}

CalendarTime UtcTime(std::int64_t unix_seconds) {
  const time_t seconds = unix_seconds;
  tm parts{};
  gmtime_r(&seconds, &parts);
  return FromTm(parts);
}

}  // namespace qiv
