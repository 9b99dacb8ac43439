// Reads a value as a browser reads a script that the value is printed into.
//
// A value that stands in a string of a script ends it with the string's quote, so the first such quote in the value is
// the only one that counts (the first one behind a backslash too: a site may escape the quote and not the backslash).
// What follows must go on as an expression or as statements, do something on the way (call, set, build), and end so
// that the rest of the page's script still parses: in a comment, in a string that the page's own quote ends. Prose and
// code samples fail at once: what stands behind their first quote is a quoted text. Each reading is one pass over the
// text; there are at most eight of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "common/text.h"

namespace qiv {

/// From the quote, or "${", that begins the break-out to where it was certain. The text is in lower case. A blank may
/// stand for a "+" in a text that holds none (queries are decoded so).
std::optional<TextPlace> FindScriptBreakout(std::string_view text);

/// Whether the script tag at [begin, end) is only named, in quotes, and what follows would not run as its script:
/// prose about "`<script>`". Only a name's closing quote is looked at, and what script it would begin.
bool IsNamedTag(std::string_view text, std::size_t begin, std::size_t end);

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
