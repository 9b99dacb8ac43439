// The text form of rule lists: records end with "{#}", fields are separated by "{*}".
//
// Field 1 is "shown==word<sep>word..." (without "==" the field is both the shown text and the word list), field 2 a
// free text, 3 the remark, 4 the identifier. <sep> is the list's separator setting. A record with fewer than 4 fields
// is skipped. "A"-"Z" are lower-cased everywhere but in the remark and the identifier; the second byte of a character
// of two bytes is none of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engines/injection/injection_rule.h"

namespace qiv {

/// The separator setting: one character stands for itself, "space" for a blank, anything else for "*".
char RuleWordSeparator(std::string_view setting);

/// Rules of `text` in order. `user_defined` (the user-defined library, a site's keyword lists): the shown text and each
/// word are percent-decoded after the division, so that a word may hold the separator ("%2A"), "%" ("%25"), "==",
/// "{#}".
std::vector<InjectionRule> ParseRules(std::string_view text, char word_separator, bool user_defined = false);

}  // namespace qiv
