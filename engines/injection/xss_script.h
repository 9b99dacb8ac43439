// Reads a value as a browser reads a script that the value is printed into.
//
// A value that stands in a string of a script ends it with the string's quote, so the first such quote in the value is
// the only one that counts (the first one behind a backslash too: a site may escape the quote and not the backslash).
// What follows must go on as an expression or as statements, do something on the way (call, set, build), and end so
// that the rest of the page's script still parses: in a comment, in a string that the page's own quote ends. Prose and
// code samples fail at once: what stands behind their first quote is a quoted text. Each reading is one pass over the
// text; there are at most eight of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "common/text.h"

namespace qiv {

/// From the quote, or "${", that begins the break-out to where it was certain. The text is in lower case. A blank may
/// stand for a "+" in a text that holds none (queries are decoded so).
std::optional<TextPlace> FindScriptBreakout(std::string_view text);

/// Tells the script tags of a text that are only named, in quotes, from those that begin a script: prose about
/// "`<script>`". Linear: once reading what might be scripts has taken some times the text's length, every tag begins
/// one.
class CNamedTags {
 public:
  /// `text` is in lower case and kept by reference.
  explicit CNamedTags(std::string_view text) : text_(text), left_(kReadings * text.size()) {}

  /// Of the tag at [begin, end): whether a quote stands on either side, and what follows up to "</script" would do
  /// nothing as a script. Tags are asked for from the front to the back, each any number of times.
  bool IsNamed(std::size_t begin, std::size_t end);

 private:
  static constexpr std::size_t kReadings = 4;
  static constexpr std::string_view kQuotes = "`'\"";

  static constexpr std::string_view kClose = "</script";
  static constexpr std::array<std::string_view, 3> kBeyondReading = {"<!--", "-->", "${"};

  std::size_t FindClose(std::size_t from) const;
  bool IsBeyondReading();
  /// Where the next tag in quotes of this kind stands at or behind `from`, its opening quote; else the text's end.
  std::size_t NextTag(std::size_t quote, std::size_t from);

  std::string_view text_;
  std::size_t left_;       // bytes that may be read to the end of a script
  std::size_t close_ = 0;  // of the "</script" last looked for
  std::optional<bool> beyond_reading_;
  std::array<std::size_t, kQuotes.size()> next_{};  // by kind of quotes
};

/// Where a URL stands.
enum class UrlPlace : std::uint8_t {
  kAttribute,  ///< it is an attribute's value
  kPicture,    ///< the same of a picture, which may hold its data
  kAnywhere,   ///< somewhere in an attribute's value: a list, "0;url=..."
};

/// Whether an attribute's value, as written in the page, is a URL that runs when it is opened: "javascript:" and what
/// browsers read as it, unless nothing or void(0) follows; "data:" pages.
bool IsRunningUrl(std::string_view value, UrlPlace place);

/// Whether a whole value is such a URL and what follows is script that does something.
bool IsScriptUrl(std::string_view value);

/// Whether a value is script from its beginning to its end, and calls what scripts of attackers call.
bool IsWholeScript(std::string_view value);

}  // namespace qiv
