// Expressions of a PHP file: operators are applied by precedence to the operands on the stacks, brackets give a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engines/webshell/php/operand.h"
#include "engines/webshell/php/parts.h"

namespace qiv {

class CPhpExpressions : CWithPhpParts {
 public:
  explicit CPhpExpressions(const PhpParts& parts) : CWithPhpParts(parts) {}

  /// Before each pass.
  void Restart() { arrows_.clear(); }

  void PushOperand(PhpOperand&& operand);
  /// The operand has got its place: "foreach" may give it a value.
  void Placed(PhpOperand& operand);
  /// A binary operator; `keep_left`: what stands to its left is not applied first, as for assignments.
  void PushOperator(std::uint32_t code, int precedence, bool keep_left = false);
  /// An operation that waits for its right side. A chain that is longer than anybody writes is applied as far as it
  /// goes.
  void PushPending(std::uint32_t code, int precedence);
  /// A word in front of an expression, as "return".
  void PushPrefix(std::uint32_t code);
  /// Applies what binds at least as tightly.
  void Reduce(int precedence);
  /// "++" or "--" of the last operand.
  void Step(std::uint32_t code, bool prefix);
  /// "$$name": the variable that a variable names, once for each "$" that waits.
  PhpOperand OfVariables(PhpOperand operand);
  /// The variable that the text between the brackets of "${...}" names.
  PhpOperand OfBraces(const PhpValue& name);

  /// "?" of "condition ? value : value".
  void Condition();
  /// ":" of it; false: there is no "?".
  bool Alternative();
  void Comma();
  /// "key => value" in an array; what "foreach" gives.
  void Arrow();
  /// "as" of a "foreach".
  void As();
  /// "fn (parameters) =>" of that function: the expression behind it is what it returns.
  void BeginArrowFunction(std::uint32_t function);
  void EndStatement();

  /// The brackets that were opened by the frame, which is no longer on the stack, become their value.
  void CloseIndex(const PhpFrame& frame, bool empty);
  void CloseCall(const PhpFrame& frame);
  /// `assigned`: a list that is assigned to.
  void CloseArray(const PhpFrame& frame, bool assigned);
  void CloseParen(const PhpFrame& frame);

 private:
  void Apply(const PhpOperation& operation);
  void ApplyUnary(std::uint32_t code, PhpOperand* operand);
  PhpValue ApplyArrow(const PhpValue& value);
  void Spread(const PhpValue& value);
  PhpOperand MakeArray(const PhpFrame& frame, bool assigned);
  PhpOperand& ResultOf(const PhpFrame& frame);

  std::vector<std::uint32_t> arrows_;  // the functions whose "fn (...) =>" has been met but not its end
};

}  // namespace qiv
