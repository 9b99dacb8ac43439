// The built-in signatures: rules for PHP, ASP and ASPX, and the removal list, from
// rules/webshell/builtin_signatures.txt.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qiv {

/// Rule kind numbers of library records and results.
inline constexpr std::uint32_t kPhpRuleKind = 4;
inline constexpr std::uint32_t kAspRuleKind = 5;

struct BuiltinSignatures {
  /// The rules in their order, PHP, ASP, ASPX, as records of a library (signature_text.h).
  std::string rules;
  /// Texts that scatter a word without changing what it does: deleted before a page is judged for variants.
  std::vector<std::string> removal;
};

BuiltinSignatures ReadBuiltinSignatures();

}  // namespace qiv
