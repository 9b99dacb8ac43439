// The names that the key extend_functions may hold: what goes beyond the protection that every site has.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

struct ExtendedFunctions {
  bool scripts = false;  ///< website_js
  bool body = false;     ///< website_body: bodies of any method, without a length or a type, compressed ones too
  bool headers = false;  ///< website_headers: headers that the server has no number for
  bool path = false;     ///< website_path: the segments of the path

  bool log_only = false;                     ///< website_log_only: of every check
  std::vector<std::string> log_only_checks;  ///< website_log_only:CHECK: names of the check table

  bool AnyLogOnly() const { return log_only || !log_only_checks.empty(); }
  /// Whether what this check would block goes on, with an event.
  bool IsLogOnly(std::string_view check) const;
};

/// `names`: as the configuration holds them, wrapped in commas. Unknown names mean nothing.
ExtendedFunctions ReadExtendedFunctions(std::string_view names);

/// A name, and what it switches on (English Markdown).
struct ExtendedFunctionName {
  std::string_view name;
  std::string_view meaning;
};
std::span<const ExtendedFunctionName> ExtendedFunctionNames();

inline constexpr std::string_view kLogOnlyFunction = "website_log_only";

}  // namespace qiv
