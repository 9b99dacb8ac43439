// Server variables of a request.
#pragma once

#include <string>
#include <string_view>

namespace qiv::host {

class CHostContext;

/// A value as the server computes it: bytes, or UTF-16 for those made from the decoded URL.
struct VariableValue {
  bool is_wide = false;
  std::string bytes;
  std::u16string wide;
};

/// Finds a variable by its name in upper case. False when there is no such variable, or (by option) when it names a
/// header that the request does not have. Known variables without a value give an empty one.
bool FindServerVariable(CHostContext& context, std::string_view name, VariableValue* value);

}  // namespace qiv::host
