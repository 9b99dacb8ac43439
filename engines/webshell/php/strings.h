// Strings of a PHP file: constant ones, and those with variables in them.
#pragma once

#include <cstddef>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/findings.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/scopes.h"
#include "engines/webshell/php/symbols.h"
#include "engines/webshell/php/value.h"

namespace qiv {

/// `inner`, here: what stands between the quotes, of the source.
class CPhpStrings {
 public:
  CPhpStrings(CFlowBudget* budget, CPhpSymbols* symbols, CPhpOperators* operators, CPhpScopes* scopes,
              CPhpFindings* findings)
      : budget_(*budget), symbols_(*symbols), operators_(*operators), scopes_(*scopes), findings_(*findings) {}

  PhpValue Constant(std::string_view inner, char quote);
  PhpValue Template(std::string_view inner);

 private:
  void Calls(std::string_view inner, std::size_t begin);
  PhpOperand Embedded(std::string_view inner, std::size_t begin, std::size_t* end, bool brace, bool* open_index);

  CFlowBudget& budget_;
  CPhpSymbols& symbols_;
  CPhpOperators& operators_;
  CPhpScopes& scopes_;
  CPhpFindings& findings_;
};

}  // namespace qiv
