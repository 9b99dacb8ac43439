#include "engines/webshell/php/stacks.h"

#include <algorithm>
#include <utility>

#include "engines/webshell/php/operators.h"

namespace qiv {

void CPhpStacks::Clear() {
  DropOperands(0);
  operations_.Shrink(0);
  while (!frames_.empty()) PopFrame();
  DropArguments(0);
  operand_next_ = true;
  skipped_ = 0;
}

PhpFrame* CPhpStacks::PushFrame(PhpFrameKind kind, std::uint32_t scope) {
  operand_next_ = true;
  if (!HasRoomForFrame()) {
    ++skipped_;
    DropOperands(frames_.back().values);
    return nullptr;
  }
  const std::size_t number = frames_.size();
  const std::uint32_t block =
      kind == PhpFrameKind::kBlock || number == 0 ? static_cast<std::uint32_t>(number) : frames_.back().block;
  PhpFrame& frame = frames_.Push();
  frame = {};
  frame.kind = kind;
  frame.values = static_cast<std::uint32_t>(operands_.size());
  frame.operations = static_cast<std::uint32_t>(operations_.size());
  frame.arguments = static_cast<std::uint32_t>(arguments_.size());
  frame.block = block;
  frame.scope = scope;
  return &frame;
}

void CPhpStacks::PopFrame() {
  if (frames_.back().element != nullptr) {
    *frames_.back().element = {};
    elements_.Pop();
  }
  frames_.Pop();
}

bool CPhpStacks::CloseSkipped() {
  if (skipped_ == 0) return false;
  --skipped_;
  return true;
}

void CPhpStacks::SetElement(PhpValue&& value) {
  PhpFrame& frame = frames_.back();
  if (frame.element == nullptr) {
    if (!elements_.MayPush()) return;
    frame.element = &elements_.Push();
  }
  *frame.element = std::move(value);
}

PhpOperand& CPhpStacks::NextOperand() {
  const bool replaces = !operand_next_ && HasOperand();
  operand_next_ = false;
  if (replaces) return operands_.back();
  return PushOperand();
}

PhpOperand CPhpStacks::PopOperand() {
  if (!HasOperand()) return {};
  PhpOperand operand = std::move(operands_.back());
  operands_.Pop();
  return operand;
}

void CPhpStacks::DropOperands(std::size_t size) {
  while (operands_.size() > size) {
    operands_.back().Release();
    operands_.Pop();
  }
}

void CPhpStacks::KeepLastAt(std::size_t place) {
  if (operands_.size() <= place + 1) return;
  std::swap(operands_[place], operands_.back());
  DropOperands(place + 1);
}

bool CPhpStacks::TakeOperation(int precedence, PhpOperation* operation) {
  if (!HasOperation() || operations_.back().precedence < precedence) return false;
  *operation = operations_.back();
  operations_.Pop();
  return true;
}

bool CPhpStacks::HasRoomForOperation() {
  return operations_.size() - frames_.back().operations < kMostPending && operations_.MayPush();
}

void CPhpStacks::PushOperation(const PhpOperation& operation) {
  if (operations_.MayPush()) operations_.Push() = operation;
}

bool CPhpStacks::IsShallow() const {
  return frames_.size() < CPaidStack<PhpFrame>::kPrepaid && operations_.size() < CPaidStack<PhpOperation>::kPrepaid;
}

void CPhpStacks::AddArgument(PhpOperand* operand, PhpName name) {
  const std::uint32_t first = frames_.back().arguments;
  if (arguments_.size() - first > kPhpMostElements || arguments_.size() >= kMostArguments || !GrowArguments()) {
    if (arguments_.size() > first) arguments_.back().Join(operand->value);
    return;
  }
  argument_facts_.push_back({operand->indexed ? 0 : operand->key, name});
  arguments_.push_back(std::move(operand->value));
}

// Whether there is room for one more argument.
bool CPhpStacks::GrowArguments() {
  constexpr std::size_t kArgument = sizeof(PhpValue) + sizeof(PhpArgumentFacts);
  const std::size_t old = arguments_.capacity();
  if (arguments_.size() < old) return true;
  const std::size_t grown = std::max(CPaidStack<PhpValue>::kPrepaid, old + old / 4);
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

void CPhpStacks::DropArguments(std::size_t count) {
  if (arguments_.size() <= count) return;
  arguments_.resize(count);
  argument_facts_.resize(count);
}

}  // namespace qiv
