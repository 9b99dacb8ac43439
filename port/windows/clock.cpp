#include "port/clock.h"

#include <time.h>
#include <windows.h>

namespace qiv {
namespace {

constexpr std::int64_t kFileTimeToUnix = 116'444'736'000'000'000;  // 100 ns steps from 1601 to 1970

CalendarTime FromTm(const tm& t) {
  return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday};
}

}  // namespace

std::int64_t UnixMicroseconds() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const std::int64_t steps = static_cast<std::int64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
  return (steps - kFileTimeToUnix) / 10;
}

std::int64_t UnixSeconds() { return UnixMicroseconds() / 1'000'000; }

std::int64_t MonotonicMicroseconds() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER count;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&count);
  // Split so that the multiplication cannot overflow after a long uptime.
  const std::int64_t whole = count.QuadPart / frequency.QuadPart;
  const std::int64_t rest = count.QuadPart % frequency.QuadPart;
  return whole * 1'000'000 + rest * 1'000'000 / frequency.QuadPart;
}

CalendarTime LocalTime(std::int64_t unix_seconds) {
  const __time64_t seconds = unix_seconds;
  tm parts{};
  _localtime64_s(&parts, &seconds);
  return FromTm(parts);
}

CalendarTime UtcTime(std::int64_t unix_seconds) {
  const __time64_t seconds = unix_seconds;
  tm parts{};
  _gmtime64_s(&parts, &seconds);
  return FromTm(parts);
}

}  // namespace qiv
