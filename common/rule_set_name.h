// The rule set that this process has in force, for the event log to name. Process-wide: a process has one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qiv {

/// "name version" as config/_rules.db says; empty: unknown. At most kLongestRuleSetName bytes of printable ASCII count,
/// any other text as empty. Thread safe.
void SetRuleSetName(std::string_view name);

inline constexpr std::size_t kLongestRuleSetName = 60;

/// The name once after it was set to another one than before, then empty. `always`: in any case.
std::string TakeRuleSetName(bool always);

}  // namespace qiv
