// The word that was probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// ` (did you mean "WORD"?)` with the nearest of the known words, or nothing when none is near.
std::string Suggestion(std::string_view name, const std::vector<std::string_view>& known);

}  // namespace qiv
