// What calls give: functions of PHP's own and of the file, methods, values that are called, callbacks.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/findings.h"
#include "engines/webshell/php/functions.h"
#include "engines/webshell/php/operand.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/scopes.h"
#include "engines/webshell/php/sinks.h"
#include "engines/webshell/php/symbols.h"

namespace qiv {

/// Names the functions of create_function, and no others.
inline constexpr std::string_view kPhpMadeFunction = "\1lambda";

/// What is called: by the text of a name, and what is known of it.
struct PhpCallee {
  std::string_view name;
  PhpUserFunction* user = nullptr;     ///< of the file
  const PhpFunction* known = nullptr;  ///< of PHP's own
};

/// Propagates taint through calls, and hands sinks their arguments.
class CPhpCalls {
 public:
  CPhpCalls(std::size_t source, CFlowBudget* budget, CPhpSymbols* symbols, CPhpOperators* operators, CPhpScopes* scopes,
            CPhpFunctions* functions, CPhpSinks* sinks, CPhpFindings* findings)
      : source_(source),
        budget_(*budget),
        symbols_(*symbols),
        operators_(*operators),
        scopes_(*scopes),
        functions_(*functions),
        sinks_(*sinks),
        findings_(*findings) {}

  /// Before each pass.
  void Restart();
  /// What the call gives whose bracket is `frame`.
  PhpValue Call(const PhpFrame& frame, const PhpOperand& callee, std::span<PhpValue> arguments,
                std::span<const PhpArgumentFacts> facts);
  /// The file prints the value.
  void Print(const PhpValue& value);
  /// Whether something of one pass is known in the next: what is printed, thrown or made.
  bool Keeps() const {
    const auto is_told = [](const PhpValue& value) { return value.origin != 0 || value.way != HidingWay::kNone; };
    return is_told(printed_) || is_told(thrown_) || com_objects_;
  }

 private:
  // A function that create_function made.
  struct MadeFunction {
    std::string parameters;
    std::string body;
  };

  PhpCallee CalledBy(std::string_view lower_name);
  PhpCallee CalledBy(PhpName lower_name);
  std::string CalledName(const PhpValue& callee);
  PhpUserFunction* FindUser(std::string_view lower_name) { return functions_.Find(symbols_.NameOf(lower_name)); }

  PhpValue CallValue(const PhpOperand& called_value, std::span<PhpValue> arguments);
  PhpValue CallNamed(const PhpCallee& called, std::span<PhpValue> arguments, bool hidden, HidingWay way);
  PhpValue CallKnown(const PhpFunction& function, std::span<PhpValue> arguments);
  PhpValue CallOther(const PhpCallee& called, std::span<PhpValue> arguments);
  PhpValue Evaluate(const PhpFunction& function, std::span<const PhpValue> arguments);
  PhpValue Derived(const PhpCallee& called, std::span<const PhpValue> arguments);
  void GiveBack(PhpName name, const PhpCallee& called, std::span<const PhpValue> values,
                std::span<const PhpArgumentFacts> facts);

  PhpValue MakeFunction(std::span<const PhpValue> arguments);
  PhpValue CallMade(std::string_view name, std::span<const PhpValue> arguments);

  PhpValue RunCallback(const PhpFunction& function, std::span<PhpValue> arguments);
  PhpValue RunNamedCallback(const PhpFunction& function, const PhpValue& callback, const PhpValue& value,
                            std::span<PhpValue> arguments);
  void CallBack(PhpUserFunction& user, std::string_view caller, const PhpValue& value);
  void CallElements(const PhpCallee& called, std::span<const PhpValue> arguments);
  void RunHandlers(const PhpValue& given);

  PhpValue New(const PhpFrame& frame, const PhpValue& name_value, std::span<PhpValue> arguments);
  PhpValue CallMember(std::string_view name, std::span<PhpValue> arguments, const PhpOperand& callee);

  std::size_t source_;  // bytes of the file
  CFlowBudget& budget_;
  CPhpSymbols& symbols_;
  CPhpOperators& operators_;
  CPhpScopes& scopes_;
  CPhpFunctions& functions_;
  CPhpSinks& sinks_;
  CPhpFindings& findings_;
  std::vector<MadeFunction> made_;
  std::vector<PhpUserFunction*> handlers_;  // called for errors and output
  PhpValue printed_;                        // what the file prints, without its text
  PhpValue thrown_;                         // what its exceptions say
  bool com_objects_ = false;
};

}  // namespace qiv
