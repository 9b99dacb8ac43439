// What opening and closing brackets do in the walk over a PHP file.
#include <string_view>
#include <utility>

#include "engines/webshell/php/walk.h"

namespace qiv {

bool CPhpWalk::IsIndexBrace() const {
  const PhpToken* const before = tokens_.Before();
  if (stacks_.OperandNext() || before == nullptr || stacks_.Top().in_foreach) return false;
  return before->kind == PhpTokenKind::kVariable || before->Is("]");
}

void CPhpWalk::OpenBracket(char bracket) {
  if (!stacks_.HasRoomForFrame()) {
    PushFrame(PhpFrameKind::kParen);
    return;
  }
  if (bracket == '{') {
    if (tokens_.BeforeIs("(") && stacks_.Top().kind == PhpFrameKind::kCall) {
      ++stray_braces_;
      return;
    }
    if (!IsIndexBrace()) return OpenBlock();
    bracket = '[';
  }
  if (bracket == '(') return stacks_.OperandNext() ? OpenParen() : OpenCall();
  if (stacks_.OperandNext()) {
    PushFrame(PhpFrameKind::kArray);
    return;
  }
  const bool has_base = stacks_.HasOperand();
  PushFrame(PhpFrameKind::kIndex)->has_callee = has_base;
}

void CPhpWalk::OpenCall() {
  const bool has_callee = stacks_.HasOperand();
  const PhpOperand none;
  const PhpOperand& callee = has_callee ? stacks_.LastOperand() : none;
  PhpFrame& frame = *PushFrame(PhpFrameKind::kCall);
  frame.named = callee.is_name;
  frame.is_member = callee.is_member;
  frame.callee_name = callee.name;
  frame.is_new = std::exchange(pending_.is_new, false);
  frame.has_callee = has_callee;
  const PhpToken* const before = tokens_.Before();
  const bool is_variable = before != nullptr && before->kind == PhpTokenKind::kVariable;
  const bool is_word = is_variable || (before != nullptr && before->kind == PhpTokenKind::kName);
  frame.begin = is_word ? before->begin - (is_variable ? 1U : 0U) : findings_.StatementBegin();
}

// A cast is "(", a type's name, ")".
void CPhpWalk::OpenParen() {
  if (tokens_.Next() && tokens_.Next()->kind == PhpTokenKind::kName && tokens_.NextIs(")", 2)) {
    const std::string_view type = symbols_.Text(symbols_.LowerOf(symbols_.NameOf(*tokens_.Next())));
    const bool plain = type == "string" || type == "array" || type == "object" || type == "binary";
    if (plain || type == "int" || type == "integer" || type == "bool" || type == "boolean" || type == "float" ||
        type == "double") {
      tokens_.Advance();
      tokens_.Advance();
      expressions_.PushPending(plain ? PhpWordCode::kPlainCast : PhpWordCode::kNumberCast, PhpPrecedence::kUnary);
      return;
    }
  }
  PushFrame(PhpFrameKind::kParen);
}

void CPhpWalk::OpenBlock() {
  const PhpScope scope = pending_.scope;
  if (scope == kPhpFileScope && !pending_.is_class) expressions_.Reduce(PhpPrecedence::kLowest);
  findings_.EndStatement();
  PushFrame(PhpFrameKind::kBlock)->is_class = pending_.is_class;
  pending_.is_class = false;
  pending_.scope = kPhpFileScope;
  if (scope != kPhpFileScope) scopes_.Enter(scope);
  scopes_.SetConditional(false);
}

// A "}" also closes the brackets that were left open inside its block.
void CPhpWalk::CloseBlock() {
  if (stray_braces_ > 0 && stacks_.Top().kind == PhpFrameKind::kCall) {
    --stray_braces_;
    return;
  }
  if (stacks_.Top().kind == PhpFrameKind::kVariable) return CloseVariable();
  const std::size_t depth = stacks_.Top().block;
  expressions_.Reduce(PhpPrecedence::kLowest);
  findings_.EndStatement();
  if (depth == 0) {
    stacks_.DropOperands(stacks_.Top().values);
    stacks_.ExpectOperand();
    return;  // one too many
  }
  const PhpFrame frame = stacks_.FrameAt(depth);
  stacks_.DropOperands(frame.values);
  stacks_.DropOperations(frame.operations);
  stacks_.DropArguments(frame.arguments);
  const bool closure = frame.scope != scopes_.Current() && stacks_.Operands() > stacks_.FrameAt(depth - 1).values &&
                       stacks_.LastOperand().value.Has(kClosure);
  scopes_.Enter(frame.scope);
  while (stacks_.Depth() > depth) stacks_.PopFrame();
  stacks_.ExpectOperand(!closure);
  scopes_.SetConditional(false);
}

// "${...}": the variable that the text between the brackets names.
void CPhpWalk::CloseVariable() {
  expressions_.Reduce(PhpPrecedence::kLowest);
  const PhpOperand name = stacks_.PopOperand();
  stacks_.PopFrame();
  stacks_.ExpectOperand();
  expressions_.PushOperand(expressions_.OfBraces(name.value));
}

void CPhpWalk::CloseBracket(char bracket) {
  if (stacks_.CloseSkipped()) return stacks_.ExpectOperand(bracket == '}');
  if (bracket == '}' && !(stacks_.Top().kind == PhpFrameKind::kIndex && stacks_.Depth() > 1)) return CloseBlock();
  if (stacks_.Top().kind == PhpFrameKind::kBlock) return;  // one too many
  const bool empty = !stacks_.HasOperand() && !stacks_.HasOperation();
  const bool list = stacks_.Top().kind == PhpFrameKind::kCall || stacks_.Top().kind == PhpFrameKind::kArray;
  if (list && !empty) {
    expressions_.Comma();
  } else if (!list) {
    expressions_.Reduce(PhpPrecedence::kLowest);
  }
  const PhpFrame frame = stacks_.Top();
  stacks_.PopFrame();
  stacks_.ExpectOperand();
  switch (frame.kind) {
    case PhpFrameKind::kIndex:
      return expressions_.CloseIndex(frame, empty);
    case PhpFrameKind::kCall:
      findings_.BeginCall(frame.begin);
      expressions_.CloseCall(frame);
      return findings_.EndCall();
    case PhpFrameKind::kArray:
      return expressions_.CloseArray(frame, tokens_.NextIs("="));
    default:
      return expressions_.CloseParen(frame);
  }
}

}  // namespace qiv
