// The operands and operators that wait on the stacks of the walk over a PHP file. Operands stay where they are pushed:
// what is made of them takes their place.
#include <algorithm>
#include <utility>

#include "engines/webshell/php/machine.h"

namespace qiv {

bool IsPhpAssignment(std::uint32_t code) {
  switch (code) {
    case PhpOperator("="):
    case PhpOperator(".="):
    case PhpOperator("+="):
    case PhpOperator("-="):
    case PhpOperator("*="):
    case PhpOperator("/="):
    case PhpOperator("%="):
    case PhpOperator("^="):
    case PhpOperator("|="):
    case PhpOperator("&="):
    case PhpOperator("?\?="):
    case PhpOperator("<<="):
    case PhpOperator(">>="):
    case PhpOperator("**="):
      return true;
    default:
      return false;
  }
}

// Whether there is room for one more argument.
bool CPhpMachine::GrowArguments() {
  constexpr std::size_t kArgument = sizeof(PhpValue) + sizeof(ArgumentFacts);
  const std::size_t old = arguments_.capacity();
  if (arguments_.size() < old) return true;
  const std::size_t grown = std::max(kPrepaid, old + old / 4);
  if (old == 0) {
    budget_.Hold(grown * kArgument);
  } else if (!budget_.Take(grown * kArgument)) {
    return false;
  }
  arguments_.reserve(grown);
  argument_facts_.reserve(grown);
  budget_.Give(old * kArgument);
  return true;
}

void CPhpMachine::DropArguments(std::size_t count) {
  if (arguments_.size() <= count) return;
  arguments_.resize(count);
  argument_facts_.resize(count);
}

// Where the next operand goes, in whatever state; without an operator between them only the last counts.
CPhpMachine::Operand& CPhpMachine::NextOperand() {
  const bool replaces = !operand_next_ && HasOperand();
  operand_next_ = false;
  if (replaces) return values_.back();
  return Grow(values_.size(), &most_values_, sizeof(Operand)) ? values_.Push() : beyond_;
}

void CPhpMachine::PushOperand(Operand&& operand) {
  Operand& placed = NextOperand();
  placed = std::move(operand);
  Placed(placed);
}

// What "foreach" puts into a variable that stands behind its "as".
void CPhpMachine::Placed(Operand& operand) {
  const Frame& frame = frames_.back();
  if (frame.in_foreach && operand.key != 0) {
    Store(operand.key, frame.element != nullptr ? *frame.element : PhpValue(), false);
  }
}

CPhpMachine::Operand CPhpMachine::PopOperand() {
  if (!HasOperand()) return {};
  Operand operand = std::move(values_.back());
  values_.Pop();
  return operand;
}

void CPhpMachine::DropOperand() {
  values_.back().Release();
  values_.Pop();
}

// Until no more than that many are left.
void CPhpMachine::DropOperands(std::size_t size) {
  while (values_.size() > size) DropOperand();
}

void CPhpMachine::PushOperation(std::uint32_t code, int precedence, bool unary, bool keep_left) {
  if (!unary && !keep_left) Reduce(precedence);
  PushPending(code, precedence, unary);
  operand_next_ = true;
}

// A chain that is longer than anybody writes is applied as far as it goes.
void CPhpMachine::PushPending(std::uint32_t code, int precedence, bool unary) {
  const auto fits = [&] { return Grow(operations_.size(), &most_operations_, sizeof(Operation)); };
  if (operations_.size() - frames_.back().operations >= kMostPending || !fits()) {
    Reduce(kLowest);
    if (!fits()) return;
  }
  operations_.Push() = {code, static_cast<std::int16_t>(precedence), unary};
}

// Applies what binds at least as tightly.
void CPhpMachine::Reduce(int precedence) {
  const std::size_t first = frames_.back().operations;
  while (operations_.size() > first && operations_.back().precedence >= precedence) {
    const Operation operation = operations_.back();
    operations_.Pop();
    Apply(operation);
  }
}

// The result takes the place of what it is made of; an operand that is missing is an empty one.
void CPhpMachine::Apply(const Operation& operation) {
  const std::size_t operands = values_.size() - std::min<std::size_t>(values_.size(), frames_.back().values);
  if (operands == 0) (Grow(values_.size(), &most_values_, sizeof(Operand)) ? values_.Push() : beyond_).Clear();
  Operand& last = values_.size() > frames_.back().values ? values_.back() : beyond_;
  if (operation.unary) return ApplyUnary(operation.code, &last);
  Operand alone;  // stands for the left side where there is none
  if (operands > 1) values_.Pop();
  Operand& right = last;  // stays where it is
  Operand& left = operands > 1 ? values_.back() : alone;
  if (operation.precedence == kAssignment) {
    Assign(operation.code, left, right.value);
    left.value = std::move(right.value);
  } else if (operation.code == PhpOperator("?")) {
    std::swap(left, right);
  } else {
    PhpValue made = Binary(operation.code, std::move(left.value), right.value);
    left.Clear();
    left.value = std::move(made);
  }
  right.Release();
  if (operands <= 1) last = std::move(alone);
}

void CPhpMachine::Return(const PhpValue& value) {
  if (scope_ == 0) return;
  Function& function = functions_[scope_ - 1];
  const std::uint32_t origin = function.returns.origin;
  if (!function.has_return) {
    function.returns = value;
  } else if (!value.HasText() || !SameText(value, function.returns)) {
    function.returns = function.returns.Taint();
    function.returns.Join(value);
  }
  function.returns.origin |= origin;
  function.has_return = true;
}

void CPhpMachine::ApplyUnary(std::uint32_t code, Operand* operand) {
  PhpValue& value = operand->value;
  PhpValue made;
  switch (code) {
    case PhpOperator("@"):
    case PhpOperator("&"):
    case PhpOperator("+"):
      return;
    case PhpOperator("..."):  // the request fills all arguments: also the callback among them
      if (frames_.back().kind == FrameKind::kCall && value.Has(kWholeRequest)) {
        const PhpFunction* const function = OwnFunction(frames_.back().callee_name);
        if (!frames_.back().named || (function != nullptr && (function->kind == PhpFunctionKind::kCallback ||
                                                              function->kind == PhpFunctionKind::kPattern))) {
          Report(PhpFindingKind::kRequestCall, function != nullptr ? function->name : "$");
        }
      }
      return;
    case kIncludeCode:
      Include(value);
      break;
    case kReturnCode:
      Return(value);
      break;
    case kEchoCode:
      printed_.Join(value);
      if (value.Has(kFromNetwork)) Report(PhpFindingKind::kRemoteText, "echo");
      break;
    case kArrowCode:
      if (!arrows_.empty()) {
        Function& function = functions_[arrows_.back()];
        function.returns = value;
        function.has_return = true;
        made.origin = kClosure;
        made.function = arrows_.back() + 1;
        arrows_.pop_back();
      }
      break;
    case kPlainCast:
      made = std::move(value);
      break;
    case PhpOperator("~"):
      made = Bitwise(code, value, value);
      break;
    case PhpOperator("-"):
      if (value.is_number) made = PhpValue::OfNumber(-value.number);
      break;
    default:
      break;
  }
  operand->Clear();
  value = std::move(made);
}

}  // namespace qiv
