// Names, keywords, variables, strings and closing brackets of the walk over a PHP file.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/php_machine.h"

namespace qiv {
namespace {

constexpr std::size_t kLongestKeyword = 12;  // "require_once", "include_once"

template <std::size_t n>
bool IsOneOf(std::string_view name, const std::array<std::string_view, n>& names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

void CPhpMachine::OnName(const PhpToken& token) {
  const std::string_view text = TextOf(token);
  if (IsDigit(text[0])) return OnNumber(text);
  const std::string lower = CCharSet::LowerAscii(text);
  const bool member = at_ > 0 && (tokens_[at_ - 1].Is("->") || tokens_[at_ - 1].Is("::") || tokens_[at_ - 1].Is("?->"));
  if (!member && lower.size() <= kLongestKeyword && OnKeyword(lower)) return;
  Operand operand;
  operand.name = lower;
  operand.is_name = NextIs("(") || NextIs("::");
  if (!operand.is_name && lower != "true" && lower != "false") {
    const auto constant = variables_.find("const " + std::string(text));
    operand.value = constant != variables_.end() ? constant->second.value
                                                 : PhpValue::OfText(lower == "null" ? "" : std::string(text));
  }
  PushOperand(std::move(operand));
}

void CPhpMachine::OnNumber(std::string_view text) {
  Operand operand;
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
  PushOperand(std::move(operand));
}

void CPhpMachine::Prefix(std::uint32_t code) {
  operations_.push_back({code, kPrefixWord, true});
  operand_next_ = true;
}

// "if (...)", "while (...)": what follows the bracket is a statement, not an operator.
void CPhpMachine::Statement(FrameKind kind) {
  EndStatement();
  if (!NextIs("(")) return;
  ++at_;
  PushFrame(kind);
  frames_.back().statement = true;
}

bool CPhpMachine::SkipTo(std::string_view a, std::string_view b) {
  while (Next() && !NextIs(a) && !NextIs(b)) ++at_;
  return Next() != nullptr;
}

bool CPhpMachine::OnKeyword(std::string_view name) {
  constexpr std::array<std::string_view, 4> kIncludes = {"include", "include_once", "require", "require_once"};
  constexpr std::array<std::string_view, 5> kEchoes = {"echo", "print", "throw", "yield", "case"};
  constexpr std::array<std::string_view, 8> kStatements = {"if",      "elseif", "while", "for",
                                                           "foreach", "switch", "catch", "declare"};
  if (IsOneOf(name, kIncludes)) {
    result_.standalone = false;
    return Prefix(kIncludeCode), true;
  }
  if (IsOneOf(name, kEchoes)) return Prefix(kEchoCode), true;
  if (IsOneOf(name, kStatements)) return Statement(FrameKind::kParen), true;
  if (name == "return") return Prefix(kReturnCode), true;
  if (name == "else" || name == "do" || name == "try" || name == "finally" || name == "default") {
    EndStatement();
    weak_ = name == "else";
    return true;
  }
  if (name == "new" || name == "clone") {
    pending_new_ = name == "new";
    return true;
  }
  if (name == "array" || name == "list") {
    if (!NextIs("(")) return false;
    ++at_;
    PushFrame(FrameKind::kArray);
    return true;
  }
  if (name == "and" || name == "or" || name == "xor") {
    Reduce(kLowest);
    PopOperand();
    operand_next_ = true;
    return true;
  }
  if (name == "instanceof") return PushOperation(PhpOperator("<"), 14, false), true;
  if (name == "as") {
    Reduce(kLowest);
    const Operand list = PopOperand();
    if (frames_.back().kind == FrameKind::kParen) {
      frames_.back().element = Each(list.value);
      frames_.back().in_foreach = true;
    }
    operand_next_ = true;
    return true;
  }
  return OnStructure(name);
}

bool CPhpMachine::OnStructure(std::string_view name) {
  constexpr std::array<std::string_view, 4> kClasses = {"class", "interface", "trait", "enum"};
  constexpr std::array<std::string_view, 7> kModifiers = {"public", "private",  "protected", "var",
                                                          "final",  "abstract", "readonly"};
  if (name == "function") return Declaration(operand_next_ && (NextIs("(") || (NextIs("&") && NextIs("(", 2)))), true;
  if (name == "fn" && NextIs("(")) {
    SkipTo("=>", ";");
    if (NextIs("=>")) ++at_;
    return true;
  }
  if (IsOneOf(name, kClasses) && Next() && (Next()->kind == PhpTokenKind::kName || pending_new_)) {
    result_.standalone &= pending_new_;
    pending_new_ = false;
    SkipTo("{", ";");
    pending_class_ = NextIs("{");
    return true;
  }
  if (IsOneOf(name, kModifiers) || name == "static") return frames_.back().is_class || !NextIs("::");
  if (name == "global") {
    for (; Next() && !NextIs(";"); ++at_) {
      if (Next()->kind == PhpTokenKind::kVariable) globals_.insert(KeyOf(TextOf(*Next())));
    }
    return true;
  }
  if (name == "namespace" || name == "use") {
    if (frames_.back().kind != FrameKind::kBlock || !operand_next_) return false;
    result_.standalone = false;
    SkipTo(";", "{");
    return true;
  }
  if (name == "const" && frames_.back().kind == FrameKind::kBlock) {
    if (Next() && NextIs("=", 2) && Next()->kind == PhpTokenKind::kName) {
      ++at_;
      Operand constant;
      constant.key = "const " + std::string(TextOf(tokens_[at_]));
      PushOperand(std::move(constant));
    }
    return true;
  }
  return false;
}

// "function name(parameters)", "function (parameters) use (variables)"; the body's block comes next.
void CPhpMachine::Declaration(bool is_closure) {
  while (NextIs("&")) ++at_;
  std::string name;
  if (!is_closure && Next() && Next()->kind == PhpTokenKind::kName) {
    ++at_;
    name = CCharSet::LowerAscii(TextOf(tokens_[at_]));
  }
  const std::uint32_t number = next_function_++;
  if (number == functions_.size()) functions_.emplace_back();
  std::vector<std::string_view> parameters;
  int depth = 0;
  bool in_use = false;
  std::vector<std::string_view> used;
  while (Next() && !NextIs("{") && !NextIs(";")) {
    ++at_;
    const PhpToken& token = tokens_[at_];
    if (token.Is("(") || token.Is("[")) ++depth;
    if (token.Is(")") || token.Is("]")) --depth;
    if (token.kind == PhpTokenKind::kName && depth == 0 && TextOf(token) == "use") in_use = true;
    if (token.kind == PhpTokenKind::kVariable && depth == 1) (in_use ? used : parameters).push_back(TextOf(token));
    if (depth < 0) break;
  }
  Function& function = functions_[number];
  if (!name.empty()) {
    function.name = name;
    function_numbers_.try_emplace(name, number);
  }
  if (function.values.size() < parameters.size()) function.values.resize(parameters.size());
  function.parameters = std::move(parameters);
  std::vector<PhpValue> carried;
  for (const std::string_view variable : used) carried.push_back(Load(KeyOf(variable), variable));
  if (is_closure) {
    Operand closure;
    closure.value.origin = kClosure;
    closure.value.function = number + 1;
    PushOperand(std::move(closure));
  } else {
    EndStatement();
  }
  pending_scope_ = NextIs("{") ? number + 1 : 0;
  const std::uint32_t outer = scope_;
  scope_ = number + 1;
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    Store(KeyOf(function.parameters[i]), function.values[i], false);
  }
  for (std::size_t i = 0; i < used.size(); ++i) Store(KeyOf(used[i]), carried[i], false);
  scope_ = outer;
}

void CPhpMachine::OnVariable(const PhpToken& token) {
  const std::string_view name = TextOf(token);
  Operand operand;
  if (frames_.back().is_class && operand_next_ && operations_.size() <= frames_.back().operations) {
    operand.key = "->" + std::string(name);
    operand.value = Load(operand.key, name);
  } else {
    operand = Lookup(name);
  }
  while (operations_.size() > frames_.back().operations && operations_.back().code == PhpOperator("$")) {
    operations_.pop_back();
    const PhpValue value = operand.value;
    operand = {};
    if (value.HasText()) {
      operand = Lookup(value.Text());
      if (value.Has(kComputed) && operand.value.Has(kWholeRequest)) {
        operand.value.origin |= kComputed;
        operand.value.way = value.way;
      }
    } else {
      operand.request_named = value.Has(kFromRequest);
      operand.value = value.Taint();
    }
  }
  PushOperand(std::move(operand));
}

void CPhpMachine::OnString(const PhpToken& token) {
  Operand operand;
  const std::string_view inner = TextOf(token);
  if (token.kind == PhpTokenKind::kString) {
    bool escapes = false;
    if (Spend(inner.size())) {
      operand.value = PhpValue::OfText(PhpUnquote(inner, static_cast<char>(token.code), &escapes));
      if (escapes) {
        operand.value.origin = kComputed;
        operand.value.way = HidingWay::kCharacters;
      }
    }
  } else {
    operand.value = Template(inner, '"');
    if (token.kind == PhpTokenKind::kCommand) {
      RunCommand("shell_exec", std::span<const PhpValue>(&operand.value, 1));
      operand.value = {};
    }
  }
  PushOperand(std::move(operand));
}

// "->name", "::name", "::$name": a property, or what is called next.
void CPhpMachine::OnMember() {
  const bool is_static = tokens_[at_].Is("::");
  Operand object = PopOperand();
  operand_next_ = true;
  if (!Next()) return;
  Operand operand;
  const PhpToken& next = *Next();
  if (next.Is("{")) {
    ++at_;
    return PushFrame(FrameKind::kVariable);
  }
  if (next.kind != PhpTokenKind::kName && next.kind != PhpTokenKind::kVariable) return;
  ++at_;
  const std::string_view name = TextOf(next);
  const bool called = NextIs("(");
  if (next.kind == PhpTokenKind::kName && called) {
    operand.is_name = true;
    operand.is_member = true;
    operand.name = CCharSet::LowerAscii(name);
    operand.value = std::move(object.value);
  } else if (next.kind == PhpTokenKind::kName && !is_static) {
    operand.key = "->" + std::string(name);
    operand.value = Load(operand.key, name);
  } else if (next.kind == PhpTokenKind::kVariable && is_static && !called) {
    operand.key = "->" + std::string(name);
    operand.value = Load(operand.key, name);
  } else if (called) {
    operand.is_name = true;
    operand.is_member = true;
    const PhpValue method = Lookup(name).value;
    if (method.HasText()) operand.name = CCharSet::LowerAscii(method.Text());
  }
  PushOperand(std::move(operand));
}

void CPhpMachine::CloseBracket(char bracket) {
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
  frames_.pop_back();
  values_.resize(std::min(values_.size(), frame.values));
  operand_next_ = true;
  Operand result;
  switch (frame.kind) {
    case FrameKind::kIndex:
      result = Element(frame.callee, empty ? nullptr : &inner.value);
      break;
    case FrameKind::kArray:
    case FrameKind::kCall: {
      const std::span<PhpValue> arguments(arguments_.data() + frame.arguments, arguments_.size() - frame.arguments);
      const bool list = frame.kind == FrameKind::kArray;
      if (list) {
        result.list = std::make_shared<std::vector<std::string>>(
            argument_keys_.begin() + static_cast<std::ptrdiff_t>(frame.arguments), argument_keys_.end());
        for (const PhpValue& argument : arguments) result.value.Join(argument);
        result.value.origin = (result.value.origin & ~static_cast<std::uint32_t>(kClosure)) | kArrayLiteral;
        if (arguments.size() <= kMostElements && Spend(arguments.size())) {
          result.value.array = std::make_shared<PhpArray>();
          for (std::size_t i = 0; i < arguments.size(); ++i) {
            const std::string& key = argument_names_[frame.arguments + i];
            result.value.array->Add(key.empty() ? std::to_string(i) : key, arguments[i]);
          }
        }
      } else {
        result.value = Call(frame, arguments);
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
