// The variables of a PHP file, by scope, and the elements of those that hold arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/flow/stack.h"
#include "engines/webshell/php/operand.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/stacks.h"
#include "engines/webshell/php/symbols.h"

namespace qiv {

/// A scope: of a function its number + 1; 0: the rest of the file.
using PhpScope = std::uint32_t;
inline constexpr PhpScope kPhpFileScope = 0;
inline constexpr PhpScope kPhpSuperScope = 0xFFFFFFFF;   ///< superglobals
inline constexpr PhpScope kPhpMemberScope = 0xFFFFFFFE;  ///< properties, of whatever object
inline constexpr PhpScope kPhpConstScope = 0xFFFFFFFD;

struct PhpVariable {
  PhpValue value;
  PhpScope scope = 0;
  PhpName name = kNoName;
  std::uint32_t depth = 0;
  bool assigned = false;
  bool is_global = false;  ///< in a function: it stands for the file's variable of its name
};

class CPhpScopes {
 public:
  /// `stacks`: how deep the walk stands in brackets.
  CPhpScopes(CFlowBudget* budget, CPhpSymbols* symbols, CPhpOperators* operators, const CPhpStacks* stacks)
      : budget_(*budget), symbols_(*symbols), operators_(*operators), stacks_(*stacks) {}

  /// Before each pass; that of the first is 0.
  void Restart(int pass);
  /// Whether this pass left something otherwise than it found it: the next one would see that.
  bool Changed() const { return changed_; }

  PhpScope Current() const { return scope_; }
  void Enter(PhpScope scope) { scope_ = scope; }
  /// Whether what is stored now may not happen: a branch without braces.
  void SetConditional(bool conditional) { conditional_ = conditional; }

  /// The variable of that name in that scope; made, if there is none. 0: there is no room for it.
  PhpVariableKey KeyIn(PhpScope scope, PhpName name);
  /// What a name means in the current scope.
  PhpVariableKey KeyOf(PhpName name);
  const PhpVariable& At(PhpVariableKey key) const { return variables_[key - 1]; }
  /// "global $x": the file's variable, from now on.
  void MakeGlobal(PhpName name);

  PhpValue Load(PhpVariableKey key);
  PhpOperand Lookup(PhpName name);
  /// The constant of that name; without one, the text.
  PhpValue Constant(PhpName name, std::string_view otherwise);
  /// base[index]; index is null for "[]".
  PhpOperand Element(const PhpOperand& base, const PhpValue* index);
  /// A value stored on a deeper level than the last one, or in a branch, adds to it: either may hold. `join`: it adds
  /// to it in any case.
  void Store(PhpVariableKey key, const PhpValue& value, bool join);
  /// `code`: of the operator that assigns.
  void Assign(std::uint32_t code, PhpOperand& target, PhpValue value);

  /// The request may set any variable from now on.
  void TaintAll() {
    changed_ = changed_ || !all_tainted_;
    all_tainted_ = true;
  }
  /// The request may set any property that has been assigned.
  void TaintMembers();
  /// The same of those that never are.
  void TaintUnknownMembers() {
    changed_ = changed_ || !members_tainted_;
    members_tainted_ = true;
  }

 private:
  bool AllTainted() const { return all_tainted_ || symbols_.Overflowed(); }
  PhpVariableKey AddVariable(PhpScope scope, PhpName name, std::size_t room);
  void StoreElement(const PhpOperand& target, const PhpValue& value);
  PhpOperand GlobalElement(PhpOperand operand, const PhpValue* index);

  CFlowBudget& budget_;
  CPhpSymbols& symbols_;
  CPhpOperators& operators_;
  const CPhpStacks& stacks_;
  CFlowStack<PhpVariable> variables_;
  CProbeTable table_;
  PhpScope scope_ = kPhpFileScope;
  int pass_ = 0;
  bool conditional_ = false;
  bool all_tainted_ = false;
  bool members_tainted_ = false;
  bool changed_ = false;  // in this pass
};

}  // namespace qiv
