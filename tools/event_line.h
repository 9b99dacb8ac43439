// Lines of debug/_log.log, read fast: a report goes over a million of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum class EventField : std::uint8_t {
  // In the order in which the module writes them.
  kTime,
  kEventId,
  kSite,
  kClient,
  kForwarded,
  kMethod,
  kUrl,
  kPhase,
  kCheck,
  kItem,
  kReason,
  kDetail,
  kAction,
  kStatus,
  kRule,
  kUserAgent,
  kElapsed,
  // Of lines about the installation.
  kKind,
  kState,
  kFile,
  kVersion,
  kCount,
};

/// A line's fields, UTF-8, with the escapes resolved: whatever a client sent stands in them. Empty where the line has
/// none.
struct EventLineFields {
  std::int64_t time = 0;  ///< seconds since 1970
  std::array<std::string_view, static_cast<std::size_t>(EventField::kCount)> texts;

  std::string_view operator[](EventField field) const { return texts[static_cast<std::size_t>(field)]; }
  /// A line about the installation, not about a request.
  bool IsState() const { return !(*this)[EventField::kKind].empty(); }
};

/// Seconds since 1970 of "2024-05-01T08:03:07.250Z", as the log writes times; -1 for another text.
std::int64_t ParseLogTime(std::string_view text);

/// Reads one line after the other. Bytes that are no UTF-8 are taken for GBK; what is neither becomes U+FFFD.
class CEventLineReader {
 public:
  /// Longer lines are none of the module's: its texts are limited, and escapes make six bytes of one at most.
  static constexpr std::size_t kLongestLine = std::size_t{128} << 10;

  /// Null when the line is no event: torn, too long, no JSON object of plain values, without a time, about nothing. The
  /// views last until the next call and as long as `line`.
  const EventLineFields* Read(std::string_view line);

 private:
  bool ReadObject();
  bool ReadValue(std::string_view* value);
  bool ReadString(std::string_view* text);
  bool Unescape(std::string_view escaped, std::string_view* text);
  bool ReadCharacter(std::string_view escaped, std::size_t* pos);
  void SkipBlanks();
  bool Take(char c);

  EventLineFields fields_;
  std::string converted_;  // the line, when it was GBK
  std::string unescaped_;  // never longer than the line: views into it stay good
  std::string_view text_;
  std::size_t pos_ = 0;
};

}  // namespace qiv
