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
  if (scope != 0) {
    scope_ = scope;
    function_ = scope;
  }
  weak_ = false;
}

// A "}" also closes the brackets that were left open inside its block.
void CPhpMachine::CloseBlock() {
  if (stray_braces_ > 0 && frames_.back().kind == FrameKind::kCall) {
    --stray_braces_;
    return;
  }
  if (frames_.back().kind == FrameKind::kVariable) {
    Reduce(kLowest);
    const Operand name = PopOperand();
    frames_.pop_back();
    if (name.value.Has(kFromRequest)) {
      if (Function* const get = FindUser("__get")) CallUser(*get, std::span(&name.value, 1));
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
    return;
  }
  const std::size_t depth = frames_.back().block;
  Reduce(kLowest);
  if (depth == 0) {
    values_.resize(std::min<std::size_t>(values_.size(), frames_.back().values));
    operand_next_ = true;
    return;  // one too many
  }
  const Frame& frame = frames_[depth];
  values_.resize(std::min<std::size_t>(values_.size(), frame.values));
  operations_.resize(std::min<std::size_t>(operations_.size(), frame.operations));
  DropArguments(frame.arguments);
  const bool closure =
      frame.function != function_ && values_.size() > frames_[depth - 1].values && values_.back().value.Has(kClosure);
  scope_ = frame.scope;
  function_ = frame.function;
  frames_.resize(depth);
  operand_next_ = !closure;
  weak_ = false;
}

void CPhpMachine::CloseBracket(char bracket) {
  if (skipped_ > 0) {
    --skipped_;
    operand_next_ = bracket == '}';
    return;
  }
  if (bracket == '}' && !(frames_.back().kind == FrameKind::kIndex && frames_.size() > 1)) return CloseBlock();
  if (frames_.back().kind == FrameKind::kBlock) return;  // one too many
  const bool empty = values_.size() <= frames_.back().values && operations_.size() <= frames_.back().operations;
  if (frames_.back().kind == FrameKind::kCall || frames_.back().kind == FrameKind::kArray) {
    if (!empty) Comma();
  } else {
    Reduce(kLowest);
  }
  Operand inner = PopOperand();
  Frame frame = std::move(frames_.back());
  const Operand none;
  const Operand& callee = frame.more ? frame.more->callee : none;
  frames_.pop_back();
  values_.resize(std::min<std::size_t>(values_.size(), frame.values));
  operand_next_ = true;
  Operand result;
  switch (frame.kind) {
    case FrameKind::kIndex:
      result = Element(callee, empty ? nullptr : &inner.value);
      break;
    case FrameKind::kArray:
    case FrameKind::kCall: {
      const std::span<PhpValue> arguments(arguments_.data() + frame.arguments, arguments_.size() - frame.arguments);
      const bool list = frame.kind == FrameKind::kArray;
      if (list) {
        if (NextIs("=") && frames_.size() < kPrepaid && operations_.size() < kPrepaid) {
          result.list = std::make_shared<std::vector<VariableKey>>(
              argument_keys_.begin() + static_cast<std::ptrdiff_t>(frame.arguments), argument_keys_.end());
        }
        for (const PhpValue& argument : arguments) result.value.Join(argument);
        result.value.origin = (result.value.origin & ~static_cast<std::uint32_t>(kClosure)) | kArrayLiteral;
        if (arguments.size() <= kMostElements && budget_.HasRoom(PhpArray::RoomFor(arguments.size()))) {
          result.value.array = NewArray();
          result.value.array->elements.reserve(arguments.size());
          for (std::size_t i = 0; i < arguments.size(); ++i) {
            const PhpName key = argument_names_[frame.arguments + i];
            result.value.array->Add(key == kNoName || key == kEmptyName ? NameOfNumber(i) : key, arguments[i]);
          }
          if (!Account(&*result.value.array)) result.value.array = {};
        }
      } else {
        result.value = Call(frame, callee, arguments);
      }
      DropArguments(frame.arguments);
      break;
    }
    default: {
      result = std::move(inner);
      result.is_name = false;
      if (frame.statement) {
        weak_ = true;
        return;
      }
    }
  }
  PushOperand(std::move(result));
}

}  // namespace qiv
