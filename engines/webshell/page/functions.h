// The functions of a page: their parameters, what these are given, what they return.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/held_names.h"
#include "engines/webshell/page/scopes.h"
#include "engines/webshell/page/value.h"

namespace qiv {

struct PageFunction {
  std::vector<std::string_view> parameters;
  std::vector<std::uint32_t> marks;  ///< of the parameters, from all calls
  std::uint32_t returns = 0;
};

/// Names are views that must outlive the object.
class CPageFunctions {
 public:
  /// `room`: bytes of memory. `service`: clients call the functions, what they are given is the request.
  CPageFunctions(std::size_t room, bool service, CPageScopes* scopes, CPageFindings* findings)
      : service_(service), scopes_(*scopes), findings_(*findings), functions_(room) {}

  PageFunction* Find(std::string_view name);
  bool Has(std::string_view name) const { return functions_.Has(name); }
  /// The name as the page's code holds it; empty if it is no function's.
  std::string_view NameOf(std::string_view name) const { return functions_.NameOf(name); }

  /// The function whose body begins; its parameters are stored as variables.
  void Begin(std::string_view name, std::vector<std::string_view> parameters);
  /// Behind a body, or at the begin of a part.
  void End() { current_ = {}; }
  /// The name of the function whose body is walked; empty for none.
  std::string_view Current() const { return current_; }

  /// Binds the arguments of a call; what it gives.
  PageValue Bind(std::string_view name, const std::vector<PageValue>& arguments);
  /// A value of those marks is given to the function's own name, which is what it returns.
  void Return(std::string_view name, std::uint32_t marks);

  bool IsService() const { return service_; }
  /// Whether any went.
  bool Lost() const { return functions_.Lost(); }

 private:
  PageFunction& Declare(std::string_view name, std::vector<std::string_view> parameters);

  bool service_;
  CPageScopes& scopes_;
  CPageFindings& findings_;
  CHeldNames<PageFunction> functions_;
  std::string_view current_;
};

}  // namespace qiv
