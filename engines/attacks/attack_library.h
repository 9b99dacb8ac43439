// The stored form of the rules for attacks: the deciphered text of config/_badcode.db.
//
//   <badcode_lists>name{*}word word{#}...</badcode_lists>
//   <badcode_rules>identifier{*}family{*}where{*}pattern{*}remark{*}hits{*}misses{#}...</badcode_rules>
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engines/attacks/attack_rules.h"

namespace qiv {

inline constexpr std::string_view kAttackTags[] = {"badcode_lists", "badcode_rules"};

struct AttackLibraryText {
  WordLists lists;
  std::vector<AttackRule> rules;
};

/// False, with what is wrong in *fault, when the text is no library, or a record none. Patterns are not looked at.
bool ReadAttackLibrary(std::string_view text, AttackLibraryText* library, AttackFault* fault);
std::string WriteAttackLibrary(const AttackLibraryText& library);

}  // namespace qiv
