#include "engines/webshell/php/expressions.h"

#include <algorithm>
#include <memory>
#include <span>
#include <utility>

namespace qiv {

void CPhpExpressions::PushOperand(PhpOperand&& operand) {
  PhpOperand& placed = stacks_.NextOperand();
  placed = std::move(operand);
  Placed(placed);
}

// What "foreach" puts into a variable that stands behind its "as".
void CPhpExpressions::Placed(PhpOperand& operand) {
  const PhpFrame& frame = stacks_.Top();
  if (frame.in_foreach && operand.key != 0) {
    scopes_.Store(operand.key, frame.element != nullptr ? *frame.element : PhpValue(), false);
  }
}

void CPhpExpressions::PushOperator(std::uint32_t code, int precedence, bool keep_left) {
  if (!keep_left) Reduce(precedence);
  if (!stacks_.HasRoomForOperation()) Reduce(PhpPrecedence::kLowest);
  stacks_.PushOperation({code, static_cast<std::int16_t>(precedence), false});
  stacks_.ExpectOperand();
}

void CPhpExpressions::PushPending(std::uint32_t code, int precedence) {
  if (!stacks_.HasRoomForOperation()) Reduce(PhpPrecedence::kLowest);
  stacks_.PushOperation({code, static_cast<std::int16_t>(precedence), true});
}

void CPhpExpressions::PushPrefix(std::uint32_t code) {
  PushPending(code, PhpPrecedence::kPrefixWord);
  stacks_.ExpectOperand();
}

void CPhpExpressions::Reduce(int precedence) {
  for (PhpOperation operation; stacks_.TakeOperation(precedence, &operation);) Apply(operation);
}

// The result takes the place of what it is made of; an operand that is missing is an empty one.
void CPhpExpressions::Apply(const PhpOperation& operation) {
  const std::size_t below = stacks_.Top().values;
  const std::size_t operands = stacks_.Operands() - std::min(stacks_.Operands(), below);
  if (operands == 0) stacks_.PushOperand().Clear();
  PhpOperand& right = stacks_.LastOrBeyond();
  if (operation.unary) return ApplyUnary(operation.code, &right);
  if (operands > 1) stacks_.PopTaken();  // it stays where it is until the next one comes
  PhpOperand none;
  PhpOperand& left = operands > 1 ? stacks_.LastOperand() : none;
  if (operation.precedence == PhpPrecedence::kAssignment) {
    scopes_.Assign(operation.code, left, right.value);
    left.value = std::move(right.value);
  } else if (operation.code == PhpOperator("?")) {
    std::swap(left, right);
  } else {
    PhpValue made = operators_.Binary(operation.code, std::move(left.value), right.value);
    left.Clear();
    left.value = std::move(made);
  }
  right.Release();
  if (operands <= 1) right = std::move(none);
}

void CPhpExpressions::ApplyUnary(std::uint32_t code, PhpOperand* operand) {
  PhpValue& value = operand->value;
  PhpValue made;
  switch (code) {
    case PhpOperator("@"):
    case PhpOperator("&"):
    case PhpOperator("+"):
      return;
    case PhpOperator("..."):
      return Spread(value);
    case PhpWordCode::kInclude:
      sinks_.Include(value);
      break;
    case PhpWordCode::kReturn:
      if (const PhpScope scope = scopes_.Current(); scope != kPhpFileScope) {
        functions_.Return(functions_.At(scope - 1), value);
      }
      break;
    case PhpWordCode::kEcho:
      calls_.Print(value);
      break;
    case PhpWordCode::kArrow:
      made = ApplyArrow(value);
      break;
    case PhpWordCode::kPlainCast:
      made = std::move(value);
      break;
    case PhpOperator("~"):
      made = operators_.Bitwise(code, value, value);
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

// "...": the request fills all arguments, also the callback among them.
void CPhpExpressions::Spread(const PhpValue& value) {
  const PhpFrame& frame = stacks_.Top();
  if (frame.kind != PhpFrameKind::kCall || !value.Has(kWholeRequest)) return;
  const PhpFunction* const function = symbols_.OwnFunction(frame.callee_name);
  if (!frame.named || (function != nullptr &&
                       (function->kind == PhpFunctionKind::kCallback || function->kind == PhpFunctionKind::kPattern))) {
    findings_.Report(PhpFindingKind::kRequestCall, function != nullptr ? function->name : "$");
  }
}

PhpValue CPhpExpressions::ApplyArrow(const PhpValue& value) {
  PhpValue closure;
  if (arrows_.empty()) return closure;
  PhpUserFunction& function = functions_.At(arrows_.back());
  function.returns = value;
  function.has_return = true;
  closure.origin = kClosure;
  closure.function = arrows_.back() + 1;
  arrows_.pop_back();
  return closure;
}

void CPhpExpressions::Step(std::uint32_t code, bool prefix) {
  if (!stacks_.HasOperand()) return;
  PhpOperand& operand = stacks_.LastOperand();
  const PhpValue old = operand.value;
  const PhpValue value = operators_.Stepped(code, old);
  scopes_.Assign(PhpOperator("="), operand, value);
  operand.value = prefix ? value : old;
  stacks_.ExpectOperator();
}

PhpOperand CPhpExpressions::OfVariables(PhpOperand operand) {
  while (stacks_.HasOperation() && stacks_.LastOperation().code == PhpOperator("$")) {
    stacks_.PopOperation();
    const PhpValue value = std::move(operand.value);
    operand = {};
    if (value.HasText()) {
      operand = scopes_.Lookup(symbols_.NameOf(value.Text()));
      if (value.Has(kComputed) && operand.value.Has(kWholeRequest)) {
        operand.value.origin |= kComputed;
        operand.value.way = value.way;
      }
    } else {
      operand.request_named = value.Has(kFromRequest);
      operand.value = value.Taint();
    }
  }
  return operand;
}

PhpOperand CPhpExpressions::OfBraces(const PhpValue& name) {
  if (name.Has(kFromRequest)) {
    if (PhpUserFunction* const get = functions_.FindMagic(PhpMagic::kGet)) functions_.Bind(*get, std::span(&name, 1));
  }
  PhpOperand operand;
  if (name.HasText()) {
    operand = scopes_.Lookup(symbols_.NameOf(name.Text()));
    if (name.Has(kComputed) && operand.value.Has(kFromRequest) && operand.value.Has(kWholeRequest)) {
      operand.value.origin |= kComputed;
      operand.value.way = name.way;
    }
  } else {
    operand.request_named = name.Has(kFromRequest);
    operand.value = name.Taint();
  }
  return operand;
}

void CPhpExpressions::Condition() {
  Reduce(PhpPrecedence::kTernary);
  stacks_.PopOperand();
  PushPending(PhpOperator("?"), PhpPrecedence::kTernary - 1);
  stacks_.ExpectOperand();
}

bool CPhpExpressions::Alternative() {
  Reduce(PhpPrecedence::kTernary);
  if (!stacks_.HasOperation() || stacks_.LastOperation().code != PhpOperator("?")) return false;
  stacks_.LastOperation() = {PhpOperator("?\?"), PhpPrecedence::kTernary, false};
  stacks_.ExpectOperand();
  return true;
}

void CPhpExpressions::Comma() {
  PhpFrame& frame = stacks_.Top();
  Reduce(PhpPrecedence::kLowest);
  if (frame.kind == PhpFrameKind::kCall || frame.kind == PhpFrameKind::kArray) {
    if (stacks_.HasOperand()) {
      stacks_.AddArgument(&stacks_.LastOperand(), frame.has_key ? frame.array_key : kNoName);
      const std::span<PhpValue> arguments = stacks_.Arguments(frame);
      if (frame.kind == PhpFrameKind::kArray && frame.element != nullptr && !arguments.empty()) {
        arguments.back().Join(std::exchange(*frame.element, PhpValue()));
      }
    }
    frame.has_key = false;
  }
  stacks_.DropOperands(frame.values);
  stacks_.ExpectOperand();
}

void CPhpExpressions::Arrow() {
  Reduce(PhpPrecedence::kLowest);
  const PhpOperand key = stacks_.PopOperand();
  PhpFrame& frame = stacks_.Top();
  if (frame.kind == PhpFrameKind::kArray) {
    if (frame.element != nullptr || key.value.origin != 0 || key.value.way != HidingWay::kNone) {
      stacks_.SetElement(key.value.Taint());
    }
    frame.array_key = symbols_.IndexOf(key.value);
    frame.has_key = frame.array_key != kNoName;
  }
  stacks_.ExpectOperand();
}

void CPhpExpressions::As() {
  Reduce(PhpPrecedence::kLowest);
  const PhpOperand list = stacks_.PopOperand();
  if (stacks_.Top().kind == PhpFrameKind::kParen) {
    stacks_.SetElement(operators_.Each(list.value));
    stacks_.Top().in_foreach = true;
  }
  stacks_.ExpectOperand();
}

void CPhpExpressions::BeginArrowFunction(std::uint32_t function) {
  arrows_.push_back(function);
  PushPrefix(PhpWordCode::kArrow);
}

void CPhpExpressions::EndStatement() {
  Reduce(PhpPrecedence::kLowest);
  const PhpFrame& frame = stacks_.Top();
  stacks_.DropOperands(frame.values);
  stacks_.ExpectOperand();
  if (frame.kind == PhpFrameKind::kBlock) scopes_.SetConditional(false);
}

void CPhpExpressions::CloseIndex(const PhpFrame& frame, bool empty) {
  const PhpOperand none;
  const bool has_index = stacks_.Operands() > frame.values;
  const PhpOperand index = has_index ? std::move(stacks_.LastOperand()) : PhpOperand();
  stacks_.DropOperands(frame.values);
  PhpOperand element = scopes_.Element(frame.has_callee ? stacks_.LastOperand() : none, empty ? nullptr : &index.value);
  PhpOperand& result = ResultOf(frame);
  result = std::move(element);
  Placed(result);
}

void CPhpExpressions::CloseCall(const PhpFrame& frame) {
  const PhpOperand none;
  PhpValue value = calls_.Call(frame, frame.has_callee ? stacks_.LastOperand() : none, stacks_.Arguments(frame),
                               stacks_.ArgumentFacts(frame));
  stacks_.DropArguments(frame.arguments);
  PhpOperand& result = ResultOf(frame);
  result = {};
  result.value = std::move(value);
}

void CPhpExpressions::CloseArray(const PhpFrame& frame, bool assigned) {
  PushOperand(MakeArray(frame, assigned));
  stacks_.DropArguments(frame.arguments);
}

// The last operand of the bracket becomes the one that the bracket is.
void CPhpExpressions::CloseParen(const PhpFrame& frame) {
  stacks_.KeepLastAt(frame.values);
  if (frame.statement) {
    stacks_.DropOperands(frame.values);
    scopes_.SetConditional(true);
  } else if (stacks_.Operands() > frame.values) {
    stacks_.ExpectOperator();
    stacks_.LastOperand().is_name = false;
    Placed(stacks_.LastOperand());
  } else {
    PushOperand({});
  }
}

// Where the result of a call or an index goes: in the place of what was called or looked into.
PhpOperand& CPhpExpressions::ResultOf(const PhpFrame& frame) {
  stacks_.ExpectOperand(!frame.has_callee);
  return stacks_.NextOperand();
}

PhpOperand CPhpExpressions::MakeArray(const PhpFrame& frame, bool assigned) {
  const std::span<const PhpValue> elements = stacks_.Arguments(frame);
  const std::span<const PhpArgumentFacts> facts = stacks_.ArgumentFacts(frame);
  PhpOperand result;
  if (assigned && stacks_.IsShallow()) {
    result.list = std::make_unique<std::vector<PhpVariableKey>>();
    for (const PhpArgumentFacts& fact : facts) result.list->push_back(fact.key);
  }
  PhpValue& value = result.value;
  for (const PhpValue& element : elements) value.Join(element);
  value.origin = (value.origin & ~static_cast<std::uint32_t>(kClosure)) | kArrayLiteral;
  if (elements.size() > kPhpMostElements || !budget_.HasRoom(PhpArray::RoomFor(elements.size()))) return result;
  value.array = operators_.NewArray();
  value.array->elements.reserve(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const PhpName key = facts[i].name;
    value.array->Add(key == kNoName || key == kEmptyName ? NameOfNumber(i) : key, elements[i]);
  }
  if (!operators_.Account(&*value.array)) value.array = {};
  return result;
}

}  // namespace qiv
