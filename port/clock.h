// Time.
#pragma once

#include <cstdint>

namespace qiv {

/// Whole seconds since 1970-01-01 00:00 UTC. Thread safe, a few nanoseconds.
std::int64_t UnixSeconds();

/// Microseconds since 1970-01-01 00:00 UTC.
std::int64_t UnixMicroseconds();

/// Microseconds of a clock that never goes back; only differences mean something.
std::int64_t MonotonicMicroseconds();

/// A moment taken apart, in the machine's local time zone.
struct CalendarTime {
  int year;     ///< 1970...
  int month;    ///< 1-12
  int day;      ///< 1-31
  int hour;     ///< 0-23
  int minute;   ///< 0-59
  int second;   ///< 0-60
  int weekday;  ///< 0 = Sunday ... 6
};
CalendarTime LocalTime(std::int64_t unix_seconds);
CalendarTime UtcTime(std::int64_t unix_seconds);

}  // namespace qiv
