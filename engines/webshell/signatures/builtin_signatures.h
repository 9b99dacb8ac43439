// The built-in signatures: PHP, ASP and ASPX rules as library text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/language.h"

namespace qiv {

/// Rule kind numbers of library records and results.
inline constexpr std::uint32_t kPhpRuleKind = 4;
inline constexpr std::uint32_t kAspRuleKind = 5;

/// The built-in rules in their order, PHP, ASP, ASPX, with display names in `language` (GBK). See signature_text.h for
/// the form.
std::string BuiltinSignatures(Language language);

/// Texts that scatter a word without changing what it does: deleted before a page is judged for variants.
std::vector<std::string> BuiltinRemoval();

}  // namespace qiv
