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
    const bool has_base = HasOperand();
    PushFrame(FrameKind::kIndex)->has_callee = has_base;
    return;
  }
  if (!operand_next_) {  // a call
    const bool has_callee = HasOperand();
    const Operand none;
    const Operand& callee = has_callee ? values_.back() : none;
    Frame& frame = *PushFrame(FrameKind::kCall);
    frame.named = callee.is_name;
    frame.is_member = callee.is_member;
    frame.callee_name = callee.name;
    frame.is_new = std::exchange(pending_new_, false);
    frame.has_callee = has_callee;
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
  PopFrame();
  operand_next_ = true;
  switch (frame.kind) {
    case FrameKind::kIndex: {
      const Operand none;
      const bool has_index = values_.size() > frame.values;
      Operand index = has_index ? std::move(values_.back()) : Operand();
      DropOperands(frame.values);
      Operand element = Element(frame.has_callee ? values_.back() : none, empty ? nullptr : &index.value);
      Operand& result = ResultOf(frame);
      result = std::move(element);
      return Placed(result);
    }
    case FrameKind::kCall: {
      const Operand none;
      const std::span<PhpValue> arguments(arguments_.data() + frame.arguments, arguments_.size() - frame.arguments);
      PhpValue value = Call(frame, frame.has_callee ? values_.back() : none, arguments);
      DropArguments(frame.arguments);
      Operand& result = ResultOf(frame);
      result = {};
      result.value = std::move(value);
      return;
    }
    case FrameKind::kArray:
      PushOperand(MakeArray(frame));
      DropArguments(frame.arguments);
      return;
    default:
      break;
  }
  // The last operand of the bracket becomes the one that the bracket is.
  if (values_.size() > frame.values + 1U) {
    std::swap(values_[frame.values], values_.back());
    DropOperands(frame.values + 1U);
  }
  if (frame.statement) {
    DropOperands(frame.values);
    weak_ = true;
  } else if (values_.size() > frame.values) {
    operand_next_ = false;
    values_.back().is_name = false;
    Placed(values_.back());
  } else {
    PushOperand({});
  }
}

// Where the result of a call or an index goes: in the place of what was called or looked into.
CPhpMachine::Operand& CPhpMachine::ResultOf(const Frame& frame) {
  operand_next_ = !frame.has_callee;
  return NextOperand();
}

CPhpMachine::Operand CPhpMachine::MakeArray(const Frame& frame) {
  const std::span<const PhpValue> elements(arguments_.data() + frame.arguments, arguments_.size() - frame.arguments);
  Operand result;
  if (NextIs("=") && frames_.size() < kPrepaid && operations_.size() < kPrepaid) {
    result.list = std::make_unique<std::vector<VariableKey>>();
    for (std::size_t i = frame.arguments; i < argument_facts_.size(); ++i) {
      result.list->push_back(argument_facts_[i].key);
    }
  }
  PhpValue& value = result.value;
  for (const PhpValue& element : elements) value.Join(element);
  value.origin = (value.origin & ~static_cast<std::uint32_t>(kClosure)) | kArrayLiteral;
  if (elements.size() > kMostElements || !budget_.HasRoom(PhpArray::RoomFor(elements.size()))) return result;
  value.array = NewArray();
  value.array->elements.reserve(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const PhpName key = argument_facts_[frame.arguments + i].name;
    value.array->Add(key == kNoName || key == kEmptyName ? NameOfNumber(i) : key, elements[i]);
  }
  if (!Account(&*value.array)) value.array = {};
  return result;
}

}  // namespace qiv
