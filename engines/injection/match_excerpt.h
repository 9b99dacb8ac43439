// Cuts a readable piece around a match, for pages and events.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace qiv {

/// About 500 bytes of `text` around the first occurrence of `keyword`, with "..." where something was cut off; never
/// splits a double-byte character. Empty when either is empty; a text of at most 500 bytes is returned whole.
std::string MatchExcerpt(std::string_view text, std::string_view keyword);

/// The same around a match whose place is known; {npos, n} is one that is not there.
std::string MatchExcerpt(std::string_view text, TextPlace match);

/// The same around the first word of the list.
std::string MatchExcerpt(std::string_view text, const std::vector<std::string>& keywords);

}  // namespace qiv
