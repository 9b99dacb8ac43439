// The detectors as they are described: by restarts and repeated searches, without a thought for cost.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "engines/injection/injection_rule.h"

namespace qiv::slow {

using Rules = std::vector<InjectionRule>;

std::string SqlCommentStripper(std::string_view text);
std::ptrdiff_t MatchUnit(std::string_view text, const Rules& rules, const Rules& keys);

std::string EventCheck(std::string_view text, const Rules& events);
std::string ScriptTagCheck(std::string_view text);
std::string JavascriptUrlCheck(std::string_view text);

/// Index of the first matching rule, or -1. Of a text that is lower-cased byte by byte for words of ASCII bytes.
std::ptrdiff_t FirstKeywordRule(std::string_view text, const Rules& rules);

/// Rules of one word each; the word is also what is shown.
Rules OneWordRules(const std::vector<std::string>& words);

}  // namespace qiv::slow
