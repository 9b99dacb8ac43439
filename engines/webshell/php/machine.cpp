#include "engines/webshell/php/machine.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

int BinaryPrecedence(std::uint32_t code) {
  switch (code) {
    case PhpOperator("**"):
      return 15;
    case PhpOperator("*"):
    case PhpOperator("/"):
    case PhpOperator("%"):
      return 13;
    case PhpOperator("+"):
    case PhpOperator("-"):
    case PhpOperator("."):
      return 12;
    case PhpOperator("<<"):
    case PhpOperator(">>"):
      return 11;
    case PhpOperator("<"):
    case PhpOperator(">"):
    case PhpOperator("<="):
    case PhpOperator(">="):
      return 10;
    case PhpOperator("=="):
    case PhpOperator("!="):
    case PhpOperator("<>"):
    case PhpOperator("==="):
    case PhpOperator("!=="):
    case PhpOperator("<=>"):
      return 9;
    case PhpOperator("&"):
      return 8;
    case PhpOperator("^"):
      return 7;
    case PhpOperator("|"):
      return 6;
    case PhpOperator("&&"):
    case PhpOperator("||"):
      return 5;
    case PhpOperator("?\?"):
      return 4;
    default:
      return -1;
  }
}

// Room that is there before a byte has earned any: for brackets as deep as they may stand. Each byte earns its part of
// the rest: names and variables of ordinary programs take some three, their texts and arrays less.
std::size_t FirstRoom(std::size_t source, std::size_t most_room) {
  constexpr std::size_t kLeastEarned = 4;  // by a byte
  return std::min(kPhpRoomAnyway, most_room - std::min(most_room, source * kLeastEarned));
}

}  // namespace

CPhpMachine::CPhpMachine(std::string_view source, bool in_code, std::size_t most_room)
    : source_(source),
      room_per_byte_((most_room - FirstRoom(source.size(), most_room)) / (source.size() + 1) + 1),
      budget_(kWorkAnyway, FirstRoom(source.size(), most_room), most_room),
      in_code_(in_code),
      tokens_(source, in_code) {
  budget_.Hold(kPrepaid * (sizeof(Frame) + sizeof(PhpValue) + sizeof(Operand) + sizeof(Operation)));
  nested_left_ = kWorkAnyway + source.size() * 4;
  constexpr std::array<std::string_view, 4> kMagic = {"__invoke", "__get", "__call", "__construct"};
  for (std::size_t i = 0; i < kMagic.size(); ++i) magic_names_[i] = names_.OfAnyway(kMagic[i]);
}

PhpName CPhpMachine::NameOf(PhpToken& token) {
  if (token.code == kNoName) token.code = names_.Of(TextOf(token), true);
  if (token.code == kNoName) token.code = NameWithoutRoom(TextOf(token));
  return token.code;
}

PhpName CPhpMachine::NameOf(std::string_view text) {
  constexpr std::size_t kShort = 64;  // bytes that are read whatever the budget
  if (text.size() > kShort && !Spend(text.size())) return kNoName;
  const PhpName name = names_.Of(text);
  return name == kNoName ? NameWithoutRoom(text) : name;
}

PhpFlowResult CPhpMachine::Run(CWalkBudget* walks) {
  const int in_any_case = in_code_ ? 1 : 2;  // passes; what is defined behind its use takes the second
  std::size_t steps = 0;
  for (pass_ = 0; pass_ < kPasses; ++pass_) {
    if (pass_ >= in_any_case && !walks->Spend(steps)) break;
    steps = Pass() * CWalkBudget::kPhpToken;
    if (pass_ < in_any_case) walks->Owe(steps);
    if (!result_.findings.empty() && pass_ > 0) break;
  }
  return std::move(result_);
}

// The number of tokens.
std::size_t CPhpMachine::Pass() {
  DropOperands(0);
  operations_.Shrink(0);
  while (!frames_.empty()) PopFrame();
  DropArguments(0);
  next_function_ = 0;
  made_.clear();
  handlers_.clear();
  arrows_.clear();
  stray_braces_ = 0;
  scope_ = 0;
  pending_scope_ = 0;
  pending_class_ = false;
  weak_ = false;
  operand_next_ = true;
  skipped_ = 0;
  PushFrame(FrameKind::kBlock);
  std::size_t tokens = 0;
  std::size_t earned = 0;  // bytes that the budget was given for
  for (tokens_ = CPhpTokens(source_, in_code_); tokens_.Advance();) {
    const std::size_t end = tokens_.At().End();
    if (end > earned) budget_.EarnWork((end - std::exchange(earned, end)) * kWorkPerByte);
    if (end > earned_) budget_.EarnRoom((end - std::exchange(earned_, end)) * room_per_byte_);
    ++tokens;
    Token();
  }
  EndStatement();
  return tokens;
}

void CPhpMachine::Token() {
  PhpToken& token = tokens_.At();
  switch (token.kind) {
    case PhpTokenKind::kVariable:
      OnVariable(token);
      break;
    case PhpTokenKind::kName:
      OnName(token);
      break;
    case PhpTokenKind::kString:
    case PhpTokenKind::kTemplate:
    case PhpTokenKind::kCommand:
      OnString(token);
      break;
    case PhpTokenKind::kMarkup:
      EndStatement();
      break;
    case PhpTokenKind::kOperator:
      OnOperator(token);
      break;
  }
}

// Null when brackets stand too deep: this one is only counted.
CPhpMachine::Frame* CPhpMachine::PushFrame(FrameKind kind) {
  operand_next_ = true;
  if (!HasRoomForFrame()) {
    ++skipped_;
    DropOperands(frames_.back().values);
    return nullptr;
  }
  const std::size_t number = frames_.size();
  const std::uint32_t block =
      kind == FrameKind::kBlock || number == 0 ? static_cast<std::uint32_t>(number) : frames_.back().block;
  Frame& frame = frames_.Push();
  frame = {};
  frame.kind = kind;
  frame.values = static_cast<std::uint32_t>(values_.size());
  frame.operations = static_cast<std::uint32_t>(operations_.size());
  frame.arguments = static_cast<std::uint32_t>(arguments_.size());
  frame.block = block;
  frame.scope = scope_;
  return &frame;
}

void CPhpMachine::SetElement(PhpValue&& value) {
  Frame& frame = frames_.back();
  if (frame.element == nullptr) {
    if (!Grow(elements_.size(), &most_elements_, sizeof(PhpValue))) return;
    frame.element = &elements_.Push();
  }
  *frame.element = std::move(value);
}

void CPhpMachine::PopFrame() {
  if (frames_.back().element != nullptr) {
    *frames_.back().element = {};
    elements_.Pop();
  }
  frames_.Pop();
}

void CPhpMachine::OnOperator(const PhpToken& token) {
  const std::uint32_t code = token.code;
  switch (code) {
    case PhpOperator("("):
      return OpenBracket('(');
    case PhpOperator("["):
      return OpenBracket('[');
    case PhpOperator("{"):
      return OpenBracket('{');
    case PhpOperator(")"):
      return CloseBracket(')');
    case PhpOperator("]"):
      return CloseBracket(']');
    case PhpOperator("}"):
      return CloseBracket('}');
    case PhpOperator(";"):
      return EndStatement();
    case PhpOperator(","):
      return Comma();
    case PhpOperator("=>"):
      return Arrow();
    case PhpOperator("?"):
    case PhpOperator(":"):
      return Ternary();
    case PhpOperator("->"):
    case PhpOperator("?->"):
    case PhpOperator("::"):
      return OnMember();
    case PhpOperator("++"):
    case PhpOperator("--"):
      return Increment(code, operand_next_);
    default:
      break;
  }
  if (code == PhpOperator("$") && operand_next_) {  // "$$name", "${...}"
    if (!NextIs("{")) return PushPending(code, kUnary + 1, true);
    tokens_.Advance();
    PushFrame(FrameKind::kVariable);
    return;
  }
  if (operand_next_) {
    PushPending(code, kUnary, true);
  } else if (IsPhpAssignment(code)) {
    PushOperation(code, kAssignment, false, true);
  } else if (const int precedence = BinaryPrecedence(code); precedence >= 0) {
    PushOperation(code, precedence, false);
  }
}

void CPhpMachine::Ternary() {
  if (tokens_.At().Is("?")) {
    if (operand_next_) return;  // a nullable type
    if (NextIs(":")) {
      tokens_.Advance();
      return PushOperation(PhpOperator("?\?"), kTernary, false);
    }
    Reduce(kTernary);
    PopOperand();  // the condition
    PushPending(PhpOperator("?"), kTernary - 1, true);
    operand_next_ = true;
    return;
  }
  Reduce(kTernary);
  if (operations_.size() > frames_.back().operations && operations_.back().code == PhpOperator("?")) {
    operations_.back() = {PhpOperator("?\?"), kTernary, false};
    operand_next_ = true;
  } else if (frames_.back().kind == FrameKind::kBlock) {
    EndStatement();  // a label, a case, "if (...):"
  }
}

void CPhpMachine::Comma() {
  Frame& frame = frames_.back();
  Reduce(kLowest);
  if (frame.kind == FrameKind::kCall || frame.kind == FrameKind::kArray) {
    if (HasOperand()) {
      Operand& operand = values_.back();
      if (arguments_.size() - frame.arguments > kMostElements || arguments_.size() >= kMostArguments ||
          !GrowArguments()) {
        if (arguments_.size() > frame.arguments) arguments_.back().Join(operand.value);
      } else {
        argument_facts_.push_back({operand.indexed ? 0 : operand.key, frame.has_key ? frame.array_key : kNoName});
        arguments_.push_back(std::move(operand.value));
      }
      if (frame.kind == FrameKind::kArray && frame.element != nullptr && arguments_.size() > frame.arguments) {
        arguments_.back().Join(std::exchange(*frame.element, PhpValue()));
      }
    }
    frame.has_key = false;
  }
  DropOperands(frame.values);
  operand_next_ = true;
}

// "key => value" in an array; what "foreach" gives.
void CPhpMachine::Arrow() {
  Reduce(kLowest);
  const Operand key = PopOperand();
  Frame& frame = frames_.back();
  if (frame.kind == FrameKind::kArray) {
    if (frame.element != nullptr || key.value.origin != 0 || key.value.way != HidingWay::kNone) {
      SetElement(key.value.Taint());
    }
    frame.array_key = IndexOf(key.value);
    frame.has_key = frame.array_key != kNoName;
  }
  operand_next_ = true;
}

void CPhpMachine::EndStatement() {
  Reduce(kLowest);
  Frame& frame = frames_.back();
  DropOperands(frame.values);
  operand_next_ = true;
  if (frame.kind == FrameKind::kBlock) weak_ = false;
  pending_new_ = false;
  pending_scope_ = 0;
}

}  // namespace qiv
