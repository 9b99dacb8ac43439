// Settings as people write them: JSON with comments ("// ..." to the end of the line, "/* ... */") and with a comma
// behind the last item.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qiv {

enum class TrailingCommas { kKeep, kBlank };

/// The text with blanks in the place of comments, so that every other byte keeps its place and its line. A comment that
/// is not closed stays, and is no JSON. Linear in the text.
std::string BlankComments(std::string_view text, TrailingCommas commas);

/// Behind the string whose opening quote is at `begin`: behind its closing quote, or the end of the text.
std::size_t EndOfString(std::string_view text, std::size_t begin);

}  // namespace qiv
