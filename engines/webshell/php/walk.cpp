#include "engines/webshell/php/walk.h"

#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include "common/text.h"

namespace qiv {

CPhpWalk::CPhpWalk(std::string_view source, bool in_code, const PhpParts& parts)
    : source_(source),
      in_code_(in_code),
      tokens_(source, in_code),
      symbols_(parts.symbols),
      operators_(parts.operators),
      stacks_(parts.stacks),
      scopes_(parts.scopes),
      functions_(parts.functions),
      findings_(parts.findings),
      sinks_(parts.sinks),
      strings_(&parts.budget, &parts.symbols, &parts.operators, &parts.scopes, &parts.findings),
      expressions_(parts) {}

void CPhpWalk::Restart() {
  expressions_.Restart();
  pending_ = {};
  stray_braces_ = 0;
  PushFrame(PhpFrameKind::kBlock);
  tokens_ = CPhpTokens(source_, in_code_);
}

bool CPhpWalk::Advance(std::size_t* end) {
  if (!tokens_.Advance()) return false;
  *end = tokens_.At().End();
  return true;
}

void CPhpWalk::Token() {
  PhpToken& token = tokens_.At();
  const bool is_quoted = token.kind == PhpTokenKind::kString || token.kind == PhpTokenKind::kTemplate ||
                         token.kind == PhpTokenKind::kCommand;
  if (token.kind != PhpTokenKind::kMarkup) {
    findings_.At(token.begin - (is_quoted || token.kind == PhpTokenKind::kVariable ? 1U : 0U),
                 std::min<std::size_t>(token.End() + (is_quoted ? 1 : 0), source_.size()));
  }
  switch (token.kind) {
    case PhpTokenKind::kVariable:
      return OnVariable(token);
    case PhpTokenKind::kName:
      return OnName(token);
    case PhpTokenKind::kString:
    case PhpTokenKind::kTemplate:
    case PhpTokenKind::kCommand:
      return OnString(token);
    case PhpTokenKind::kMarkup:
      return EndStatement();
    case PhpTokenKind::kOperator:
      return OnOperator(token);
  }
}

void CPhpWalk::OnOperator(const PhpToken& token) {
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
      return expressions_.Comma();
    case PhpOperator("=>"):
      return expressions_.Arrow();
    case PhpOperator("?"):
      return OnQuestion();
    case PhpOperator(":"):
      return OnColon();
    case PhpOperator("->"):
    case PhpOperator("?->"):
    case PhpOperator("::"):
      return OnMember();
    case PhpOperator("++"):
    case PhpOperator("--"):
      return OnStep(code);
    default:
      break;
  }
  if (stacks_.OperandNext()) {
    if (code == PhpOperator("$")) return OnDollar(code);
    expressions_.PushPending(code, PhpPrecedence::kUnary);
  } else if (IsPhpAssignment(code)) {
    expressions_.PushOperator(code, PhpPrecedence::kAssignment, true);
  } else if (const int precedence = PhpBinaryPrecedence(code); precedence >= 0) {
    expressions_.PushOperator(code, precedence);
  }
}

// "$$name", "${...}".
void CPhpWalk::OnDollar(std::uint32_t code) {
  if (!tokens_.NextIs("{")) return expressions_.PushPending(code, PhpPrecedence::kUnary + 1);
  tokens_.Advance();
  PushFrame(PhpFrameKind::kVariable);
}

void CPhpWalk::OnQuestion() {
  if (stacks_.OperandNext()) return;  // a nullable type
  if (!tokens_.NextIs(":")) return expressions_.Condition();
  tokens_.Advance();
  expressions_.PushOperator(PhpOperator("?\?"), PhpPrecedence::kTernary);
}

void CPhpWalk::OnColon() {
  if (expressions_.Alternative()) return;
  if (stacks_.Top().kind == PhpFrameKind::kBlock) EndStatement();  // a label, a case, "if (...):"
}

void CPhpWalk::OnStep(std::uint32_t code) {
  const bool prefix = stacks_.OperandNext();
  if (prefix) {
    if (!tokens_.Next() || tokens_.Next()->kind != PhpTokenKind::kVariable) {
      return expressions_.PushPending(code, PhpPrecedence::kUnary);
    }
    tokens_.Advance();
    OnVariable(tokens_.At());
  }
  expressions_.Step(code, prefix);
}

void CPhpWalk::OnName(PhpToken& token) {
  const std::string_view text = token.Text(source_);
  if (IsDigit(text[0])) return OnNumber(text);
  const PhpName name = symbols_.NameOf(token);
  const PhpName lower_name = symbols_.LowerOf(name);
  const PhpWord word = symbols_.FactsOf(lower_name).word;
  const auto is_member = [this] { return tokens_.BeforeIs("->") || tokens_.BeforeIs("::") || tokens_.BeforeIs("?->"); };
  if (word != PhpWord::kNone && !is_member() && OnKeyword(word)) return;
  const bool called = tokens_.NextIs("(");
  PhpOperand operand;
  operand.name = lower_name;
  operand.is_name = called || tokens_.NextIs("::");
  if (!operand.is_name) pending_.is_new = false;
  const std::string_view lower = symbols_.Text(lower_name);
  if (called && tokens_.NextIs("...", 2) && tokens_.NextIs(")", 3)) {  // the function itself as a value
    for (int i = 0; i < 3; ++i) tokens_.Advance();
    operand.is_name = false;
    operand.value = operators_.Made(std::string(lower));
  } else if (lower.starts_with("__") && lower.ends_with("__")) {  // what PHP fills in
    if (lower == "__file__") operand.value.origin = kOwnFile;
    if (const PhpScope scope = scopes_.Current(); lower == "__function__" && scope != kPhpFileScope) {
      operand.value = operators_.Made(std::string(symbols_.Text(functions_.At(scope - 1).name)));
    }
  } else if (!operand.is_name && word != PhpWord::kBoolean) {
    operand.value = scopes_.Constant(name, word == PhpWord::kNull ? "" : text);
  }
  expressions_.PushOperand(std::move(operand));
}

void CPhpWalk::OnNumber(std::string_view text) {
  PhpOperand operand;
  std::int64_t number = 0;
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const bool octal = !hexadecimal && text.size() > 1 && text[0] == '0';
  const std::int64_t base = hexadecimal ? 16 : octal ? 8 : 10;
  constexpr std::int64_t kMost = std::int64_t{1} << 48;
  for (const char c : text.substr(hexadecimal ? 2 : 0)) {
    const char lower = static_cast<char>(c | 0x20);
    const int digit = IsDigit(c) ? c - '0' : lower >= 'a' && lower <= 'f' && hexadecimal ? lower - 'a' + 10 : -1;
    if (digit < 0 || number > kMost) break;
    number = number * base + digit;
  }
  operand.value = PhpValue::OfNumber(number);
  expressions_.PushOperand(std::move(operand));
}

void CPhpWalk::OnVariable(PhpToken& token) {
  const PhpName name = symbols_.NameOf(token);
  const bool pending = stacks_.HasOperation();
  if (pending && stacks_.LastOperation().code == PhpOperator("$")) {
    return expressions_.PushOperand(expressions_.OfVariables(scopes_.Lookup(name)));
  }
  const bool is_member = stacks_.Top().is_class && stacks_.OperandNext() && !pending;
  const PhpVariableKey key = is_member ? scopes_.KeyIn(kPhpMemberScope, name) : scopes_.KeyOf(name);
  PhpOperand& operand = stacks_.NextOperand();
  operand.Clear();
  operand.key = key;
  operand.value = scopes_.Load(key);
  expressions_.Placed(operand);
}

void CPhpWalk::OnString(const PhpToken& token) {
  PhpOperand operand;
  const std::string_view inner = token.Text(source_);
  if (token.kind == PhpTokenKind::kString) {
    operand.value = strings_.Constant(inner, static_cast<char>(token.code));
  } else {
    operand.value = strings_.Template(inner);
    if (token.kind == PhpTokenKind::kCommand) {
      sinks_.RunCommand("shell_exec", std::span<const PhpValue>(&operand.value, 1));
      operand.value = {};
    }
  }
  expressions_.PushOperand(std::move(operand));
}

// "->name", "::name", "::$name": a property, or what is called next.
void CPhpWalk::OnMember() {
  const bool is_static = tokens_.At().Is("::");
  PhpOperand object = stacks_.PopOperand();
  stacks_.ExpectOperand();
  if (!tokens_.Next()) return;
  PhpOperand operand;
  PhpToken& next = *tokens_.Next();
  if (next.Is("{")) {
    tokens_.Advance();
    PushFrame(PhpFrameKind::kVariable);
    return;
  }
  const bool is_name = next.kind == PhpTokenKind::kName;
  const bool is_variable = next.kind == PhpTokenKind::kVariable;
  if (!is_name && !is_variable) return;
  tokens_.Advance();
  const bool called = tokens_.NextIs("(");
  if (is_name && called) {
    operand.is_name = true;
    operand.is_member = true;
    operand.name = symbols_.LowerOf(symbols_.NameOf(next));
    operand.value = std::move(object.value);
  } else if (is_name ? !is_static : is_static && !called) {
    operand.key = scopes_.KeyIn(kPhpMemberScope, symbols_.NameOf(next));
    operand.value = scopes_.Load(operand.key);
    if (object.value.Has(kWholeRequest)) operand.value.origin |= object.value.origin & kFromRequest;
  } else if (called) {
    operand.is_name = true;
    operand.is_member = true;
    const PhpValue method = scopes_.Lookup(symbols_.NameOf(next)).value;
    if (method.HasText()) operand.name = symbols_.LowerOf(symbols_.NameOf(method.Text()));
  }
  expressions_.PushOperand(std::move(operand));
}

// "if (...)", "while (...)": what follows the bracket is a statement, not an operator.
void CPhpWalk::BeginStatement() {
  EndStatement();
  if (!tokens_.NextIs("(")) return;
  tokens_.Advance();
  if (PhpFrame* const frame = PushFrame(PhpFrameKind::kParen)) frame->statement = true;
}

void CPhpWalk::EndStatement() {
  expressions_.EndStatement();
  findings_.EndStatement();
  pending_.is_new = false;
  pending_.scope = kPhpFileScope;
}

}  // namespace qiv
