// What opening and closing brackets do in the walk over a PHP file.
#include <algorithm>
#include <memory>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/machine.h"

namespace qiv {

bool CPhpMachine::IsIndexBrace() const {
  const PhpToken* const before = tokens_.Before();
  if (operand_next_ || before == nullptr || frames_.back().in_foreach) return false;
  return before->kind == PhpTokenKind::kVariable || before->Is("]");
}

void CPhpMachine::OpenBracket(char bracket) {
  if (!HasRoomForFrame()) {
    PushFrame(FrameKind::kParen);
    return;
  }
  if (bracket == '{') {
    if (BeforeIs("(") && frames_.back().kind == FrameKind::kCall) {
      ++stray_braces_;
      return;
    }
    if (!IsIndexBrace()) return OpenBlock();
    bracket = '[';
  }
  if (bracket == '[') {
    if (operand_next_) {
      PushFrame(FrameKind::kArray);
      return;
    }
    Operand base = PopOperand();
    Frame& frame = *PushFrame(FrameKind::kIndex);
    if (FrameValues* const more = MoreOf(frame)) more->callee = std::move(base);
    return;
  }
  if (!operand_next_) {  // a call
    Operand callee = PopOperand();
    Frame& frame = *PushFrame(FrameKind::kCall);
    frame.named = callee.is_name;
    frame.is_member = callee.is_member;
    frame.callee_name = callee.name;
    frame.is_new = std::exchange(pending_new_, false);
    if (!callee.is_name || callee.is_member || callee.value.origin != 0 || callee.value.HasText()) {
      if (FrameValues* const more = MoreOf(frame)) more->callee = std::move(callee);
    }
    return;
  }
  // A cast is "(", a type's name, ")".
  if (Next() && Next()->kind == PhpTokenKind::kName && NextIs(")", 2)) {
    const std::string_view type = names_.Text(LowerOf(NameOf(*Next())));
    const bool plain = type == "string" || type == "array" || type == "object" || type == "binary";
    if (plain || type == "int" || type == "integer" || type == "bool" || type == "boolean" || type == "float" ||
        type == "double") {
      tokens_.Advance();
      tokens_.Advance();
      PushPending(plain ? kPlainCast : kNumberCast, kUnary, true);
      return;
    }
  }
  PushFrame(FrameKind::kParen);
}

void CPhpMachine::OpenBlock() {
  const std::uint32_t scope = pending_scope_;
  if (scope == 0 && !pending_class_) Reduce(kLowest);
  PushFrame(FrameKind::kBlock)->is_class = pending_class_;
  pending_class_ = false;
  pending_scope_ = 0;
  if (scope != 0) scope_ = scope;
  weak_ = false;
}

// A "}" also closes the brackets that were left open inside its block.
void CPhpMachine::CloseBlock() {
  if (stray_braces_ > 0 && frames_.back().kind == FrameKind::kCall) {
    --stray_braces_;
    return;
  }
  if (frames_.back().kind == FrameKind::kVariable) return CloseVariable();
  const std::size_t depth = frames_.back().block;
  Reduce(kLowest);
  if (depth == 0) {
    DropOperands(frames_.back().values);
    operand_next_ = true;
    return;  // one too many
  }
  const Frame frame = frames_[depth];
  DropOperands(frame.values);
  operations_.Shrink(frame.operations);
  DropArguments(frame.arguments);
  const bool closure =
      frame.scope != scope_ && values_.size() > frames_[depth - 1].values && values_.back().value.Has(kClosure);
  scope_ = frame.scope;
  while (frames_.size() > depth) PopFrame();
  operand_next_ = !closure;
  weak_ = false;
}

// "${...}": the variable that the text between the brackets names.
void CPhpMachine::CloseVariable() {
  Reduce(kLowest);
  const Operand name = PopOperand();
  PopFrame();
  if (name.value.Has(kFromRequest)) {
    if (Function* const get = FindMagic(kGet)) CallUser(*get, std::span(&name.value, 1));
  }
  operand_next_ = true;
  Operand operand;
  if (name.value.HasText()) {
    operand = Lookup(NameOf(name.value.Text()));
    if (name.value.Has(kComputed) && operand.value.Has(kFromRequest) && operand.value.Has(kWholeRequest)) {
      operand.value.origin |= kComputed;
      operand.value.way = name.value.way;
    }
  } else {
    operand.request_named = name.value.Has(kFromRequest);
    operand.value = name.value.Taint();
  }
  PushOperand(std::move(operand));
}

void CPhpMachine::CloseBracket(char bracket) {
  if (skipped_ > 0) {
    --skipped_;
    operand_next_ = bracket == '}';
    return;
  }
  if (bracket == '}' && !(frames_.back().kind == FrameKind::kIndex && frames_.size() > 1)) return CloseBlock();
  if (frames_.back().kind == FrameKind::kBlock) return;  // one too many
  const bool empty = !HasOperand() && operations_.size() <= frames_.back().operations;
  const bool list = frames_.back().kind == FrameKind::kCall || frames_.back().kind == FrameKind::kArray;
  if (list && !empty) {
    Comma();
  } else if (!list) {
    Reduce(kLowest);
  }
  const Frame frame = frames_.back();
  frames_.Pop();  // what more there is of it stays until the end
  // The last operand of the bracket becomes the one that the bracket is.
  if (values_.size() > frame.values + 1U) {
    std::swap(values_[frame.values], values_.back());
    DropOperands(frame.values + 1U);
  }
  const bool in_place = values_.size() > frame.values;
  operand_next_ = true;
  if (frame.statement) {
    DropOperands(frame.values);
    weak_ = true;
  } else {
    operand_next_ = !in_place;
    Operand& result = NextOperand();
    if (!in_place) result = {};
    CloseInto(frame, empty, &result);
    Placed(result);
  }
  if (frame.more != nullptr) {
    frame.more->callee.Release();
    frame.more->element = {};
    frame_values_.Pop();
  }
}

// `*result` is what stood last between the brackets.
void CPhpMachine::CloseInto(const Frame& frame, bool empty, Operand* result) {
  const Operand none;
  const Operand& callee = frame.more != nullptr ? frame.more->callee : none;
  switch (frame.kind) {
    case FrameKind::kIndex:
      *result = Element(callee, empty ? nullptr : &result->value);
      break;
    case FrameKind::kArray:
      MakeArray(frame, result);
      DropArguments(frame.arguments);
      break;
    case FrameKind::kCall: {
      const std::span<PhpValue> arguments(arguments_.data() + frame.arguments, arguments_.size() - frame.arguments);
      result->value = Call(frame, callee, arguments);
      DropArguments(frame.arguments);
      break;
    }
    default:
      result->is_name = false;
  }
}

void CPhpMachine::MakeArray(const Frame& frame, Operand* result) {
  const std::span<const PhpValue> elements(arguments_.data() + frame.arguments, arguments_.size() - frame.arguments);
  if (NextIs("=") && frames_.size() < kPrepaid && operations_.size() < kPrepaid) {
    result->list = std::make_unique<std::vector<VariableKey>>(
        argument_keys_.begin() + static_cast<std::ptrdiff_t>(frame.arguments), argument_keys_.end());
  }
  PhpValue& value = result->value;
  for (const PhpValue& element : elements) value.Join(element);
  value.origin = (value.origin & ~static_cast<std::uint32_t>(kClosure)) | kArrayLiteral;
  if (elements.size() > kMostElements || !budget_.HasRoom(PhpArray::RoomFor(elements.size()))) return;
  value.array = NewArray();
  value.array->elements.reserve(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const PhpName key = argument_names_[frame.arguments + i];
    value.array->Add(key == kNoName || key == kEmptyName ? NameOfNumber(i) : key, elements[i]);
  }
  if (!Account(&*value.array)) value.array = {};
}

}  // namespace qiv
