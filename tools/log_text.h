// The lines of _out.log as people and programs read them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

/// One line without its end, UTF-8 without control characters: "2026-01-31 12:00:00 lock   denylist 192.0.2.7 until
/// ...". `line` is plain, in GBK.
std::string LogLineText(std::string_view line);

/// The same as one JSON object: "kind" is "lock", "msg", "check", "tongji" or "unknown".
std::string LogLineJson(std::string_view line);

/// "2026-01-31 12:00:00", local time.
std::string LocalTimeText(std::int64_t unix_seconds);

/// Field texts in UTF-8; what is valid UTF-8 already stays.
std::string FieldToUtf8(std::string_view field);

}  // namespace qiv
