#include "config/extended_functions.h"

#include <algorithm>

namespace qiv {
namespace {

constexpr ExtendedFunctionName kNames[] = {
    {"website_js", "makes the keys `js`, `js_urls`, `js_out_freeurls` and `js_out_codes` count"},
    {"website_body",
     "bodies of any method are examined, also without a type, without a length, or compressed (gzip, deflate), and the "
     "path of a PUT is the name of an uploaded file"},
    {"website_headers", "headers of any name are examined, X-Forwarded-For among them"},
    {"website_path", "the segments of the path are examined like values of the query"},
    {kLogOnlyFunction,
     "nothing is blocked: what would be is an event with the action `would block`, and locks nobody; "
     "`website_log_only:CHECK` does so for one check alone (the names of checks are those of events)"},
};

}  // namespace

std::span<const ExtendedFunctionName> ExtendedFunctionNames() { return kNames; }

bool ExtendedFunctions::IsLogOnly(std::string_view check) const {
  return log_only || std::find(log_only_checks.begin(), log_only_checks.end(), check) != log_only_checks.end();
}

ExtendedFunctions ReadExtendedFunctions(std::string_view names) {
  ExtendedFunctions functions;
  while (!names.empty()) {
    const std::size_t comma = std::min(names.find(','), names.size());
    const std::string_view name = names.substr(0, comma);
    names.remove_prefix(std::min(comma + 1, names.size()));
    if (name == "website_js") functions.scripts = true;
    if (name == "website_body") functions.body = true;
    if (name == "website_headers") functions.headers = true;
    if (name == "website_path") functions.path = true;
    if (!name.starts_with(kLogOnlyFunction)) continue;
    const std::string_view rest = name.substr(kLogOnlyFunction.size());
    if (rest.empty()) functions.log_only = true;
    if (rest.size() > 1 && rest[0] == ':') functions.log_only_checks.emplace_back(rest.substr(1));
  }
  return functions;
}

}  // namespace qiv
