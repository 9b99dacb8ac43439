// Names, keywords, variables, strings and closing brackets of the walk over a PHP file.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/machine.h"

namespace qiv {
namespace {

struct Keyword {
  std::string_view text;
  PhpWord word;
};

constexpr Keyword kKeywords[] = {
    {"include", PhpWord::kInclude},
    {"include_once", PhpWord::kInclude},
    {"require", PhpWord::kInclude},
    {"require_once", PhpWord::kInclude},
    {"echo", PhpWord::kEcho},
    {"print", PhpWord::kEcho},
    {"throw", PhpWord::kEcho},
    {"yield", PhpWord::kReturn},
    {"case", PhpWord::kEcho},
    {"if", PhpWord::kStatement},
    {"elseif", PhpWord::kStatement},
    {"while", PhpWord::kStatement},
    {"for", PhpWord::kStatement},
    {"foreach", PhpWord::kStatement},
    {"switch", PhpWord::kStatement},
    {"catch", PhpWord::kStatement},
    {"declare", PhpWord::kStatement},
    {"return", PhpWord::kReturn},
    {"else", PhpWord::kElse},
    {"do", PhpWord::kBlock},
    {"try", PhpWord::kBlock},
    {"finally", PhpWord::kBlock},
    {"default", PhpWord::kBlock},
    {"new", PhpWord::kNew},
    {"clone", PhpWord::kClone},
    {"array", PhpWord::kList},
    {"list", PhpWord::kList},
    {"and", PhpWord::kLogic},
    {"or", PhpWord::kLogic},
    {"xor", PhpWord::kLogic},
    {"instanceof", PhpWord::kInstanceof},
    {"as", PhpWord::kAs},
    {"function", PhpWord::kFunction},
    {"fn", PhpWord::kArrowFunction},
    {"class", PhpWord::kClass},
    {"interface", PhpWord::kClass},
    {"trait", PhpWord::kClass},
    {"enum", PhpWord::kClass},
    {"public", PhpWord::kModifier},
    {"private", PhpWord::kModifier},
    {"protected", PhpWord::kModifier},
    {"var", PhpWord::kModifier},
    {"final", PhpWord::kModifier},
    {"abstract", PhpWord::kModifier},
    {"readonly", PhpWord::kModifier},
    {"static", PhpWord::kModifier},
    {"global", PhpWord::kGlobal},
    {"namespace", PhpWord::kNamespace},
    {"use", PhpWord::kNamespace},
    {"const", PhpWord::kConst},
    {"true", PhpWord::kBoolean},
    {"false", PhpWord::kBoolean},
    {"null", PhpWord::kNull},
};

PhpWord WordOf(std::string_view lower) {
  const auto found =
      std::find_if(std::begin(kKeywords), std::end(kKeywords), [lower](const Keyword& k) { return k.text == lower; });
  return found == std::end(kKeywords) ? PhpWord::kNone : found->word;
}

}  // namespace

// There are more names than any program has: one that cannot be told from others may hold what the request says. Words,
// superglobals and known functions keep their meaning.
PhpName CPhpMachine::NameWithoutRoom(std::string_view text) {
  request_variables_ = true;
  constexpr std::size_t kLongest = 40;  // of those
  if (text.size() > kLongest) return kNoName;
  if (SuperglobalNumber(text) != 0) return names_.OfAnyway(text);
  const std::string lower = CCharSet::LowerAscii(text);
  return WordOf(lower) != PhpWord::kNone || FindPhpFunction(lower) ? names_.OfAnyway(lower) : kNoName;
}

PhpName CPhpMachine::LowerOf(PhpName name) {
  const PhpName lower = names_.Lower(name);
  return lower == kNoName && name != kNoName ? NameWithoutRoom(names_.Text(name)) : lower;
}

CPhpMachine::NameFacts& CPhpMachine::FactsOf(PhpName name) {
  if ((name & kNumberName) != 0) name = kNoName;
  while (name >= facts_.size()) facts_.Push();
  NameFacts& facts = facts_[name];
  if (!facts.known) {
    const std::string_view text = names_.Text(name);
    const PhpFunction* const function = FindPhpFunction(text);
    facts = {true, WordOf(text), SuperglobalNumber(text), 0, 0, 0, 0};
    if (function != nullptr) facts.function = static_cast<std::uint16_t>(function - PhpFunctions().data() + 1);
  }
  return facts;
}

void CPhpMachine::OnName(PhpToken& token) {
  const std::string_view text = TextOf(token);
  if (IsDigit(text[0])) return OnNumber(text);
  const PhpName name = NameOf(token);
  const PhpName lower_name = LowerOf(name);
  const PhpWord word = FactsOf(lower_name).word;
  const auto is_member = [this] { return BeforeIs("->") || BeforeIs("::") || BeforeIs("?->"); };
  if (word != PhpWord::kNone && !is_member() && OnKeyword(word)) return;
  const bool called = NextIs("(");
  Operand operand;
  operand.name = lower_name;
  operand.is_name = called || NextIs("::");
  if (!operand.is_name) pending_new_ = false;
  const std::string_view lower = names_.Text(lower_name);
  if (called && NextIs("...", 2) && NextIs(")", 3)) {  // the function itself as a value
    for (int i = 0; i < 3; ++i) tokens_.Advance();
    operand.is_name = false;
    operand.value = Made(std::string(lower));
    return PushOperand(std::move(operand));
  }
  if (lower.starts_with("__") && lower.ends_with("__")) {  // what PHP fills in
    if (lower == "__file__") operand.value.origin = kOwnFile;
    if (lower == "__function__" && scope_ != 0) {
      operand.value = Made(std::string(names_.Text(functions_[scope_ - 1].name)));
    }
  } else if (!operand.is_name && word != PhpWord::kBoolean) {
    const VariableKey key = FactsOf(name).constant;
    const bool is_constant = key != 0 && variables_[key - 1].assigned;
    operand.value = is_constant ? variables_[key - 1].value : PhpValue::OfLasting(word == PhpWord::kNull ? "" : text);
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
  PushPending(code, kPrefixWord, true);
  operand_next_ = true;
}

// "if (...)", "while (...)": what follows the bracket is a statement, not an operator.
void CPhpMachine::Statement(FrameKind kind) {
  EndStatement();
  if (!NextIs("(")) return;
  tokens_.Advance();
  if (Frame* const frame = PushFrame(kind)) frame->statement = true;
}

bool CPhpMachine::SkipTo(std::string_view a, std::string_view b) {
  while (Next() && !NextIs(a) && !NextIs(b)) tokens_.Advance();
  return Next() != nullptr;
}

// False: here it is a name.
bool CPhpMachine::OnKeyword(PhpWord word) {
  switch (word) {
    case PhpWord::kInclude:
      result_.standalone = false;
      return Prefix(kIncludeCode), true;
    case PhpWord::kEcho:
      return Prefix(kEchoCode), true;
    case PhpWord::kStatement:
      return Statement(FrameKind::kParen), true;
    case PhpWord::kReturn:
      return Prefix(kReturnCode), true;
    case PhpWord::kElse:
    case PhpWord::kBlock:
      EndStatement();
      weak_ = word == PhpWord::kElse;
      return true;
    case PhpWord::kNew:
    case PhpWord::kClone:
      pending_new_ = word == PhpWord::kNew;
      return true;
    case PhpWord::kList:
      if (!NextIs("(")) return false;
      tokens_.Advance();
      PushFrame(FrameKind::kArray);
      return true;
    case PhpWord::kLogic:
      Reduce(kLowest);
      PopOperand();
      operand_next_ = true;
      return true;
    case PhpWord::kInstanceof:
      return PushOperation(PhpOperator("<"), 14, false), true;
    case PhpWord::kAs: {
      Reduce(kLowest);
      const Operand list = PopOperand();
      if (frames_.back().kind == FrameKind::kParen) {
        SetElement(Each(list.value));
        frames_.back().in_foreach = true;
      }
      operand_next_ = true;
      return true;
    }
    default:
      return OnStructure(word);
  }
}

bool CPhpMachine::OnStructure(PhpWord word) {
  switch (word) {
    case PhpWord::kFunction:
      return Declaration(operand_next_ && (NextIs("(") || (NextIs("&") && NextIs("(", 2)))), true;
    case PhpWord::kArrowFunction:
      if (!NextIs("(") && !(NextIs("&") && NextIs("(", 2))) return false;
      return ArrowFunction(), true;
    case PhpWord::kClass:
      if (!Next() || (Next()->kind != PhpTokenKind::kName && !pending_new_)) return false;
      result_.standalone &= pending_new_;
      pending_new_ = false;
      SkipTo("{", ";");
      pending_class_ = NextIs("{");
      return true;
    case PhpWord::kModifier:
      return frames_.back().is_class || !NextIs("::");
    case PhpWord::kGlobal:
      for (; Next() && !NextIs(";"); tokens_.Advance()) {
        if (Next()->kind != PhpTokenKind::kVariable) continue;
        const VariableKey key = KeyOf(NameOf(*Next()));
        if (key != 0) variables_[key - 1].is_global = true;
      }
      return true;
    case PhpWord::kNamespace:
      if (frames_.back().kind != FrameKind::kBlock || !operand_next_) return false;
      result_.standalone = false;
      SkipTo(";", "{");
      return true;
    case PhpWord::kConst:
      if (frames_.back().kind != FrameKind::kBlock) return false;
      if (Next() && NextIs("=", 2) && Next()->kind == PhpTokenKind::kName) {
        tokens_.Advance();
        Operand constant;
        constant.key = KeyIn(kConstScope, NameOf(tokens_.At()));
        PushOperand(std::move(constant));
      }
      return true;
    default:
      return false;
  }
}

// The number of the function that begins here; those that find no room count as one with the last.
std::uint32_t CPhpMachine::NextFunction() {
  const std::uint32_t number = next_function_;
  if (number == functions_.size()) {
    if (number != 0 && !budget_.TakeFromPlenty(sizeof(Function) + 64)) return number - 1;
    functions_.Push();
  }
  if (next_function_ + 1 < kMostFunctions) ++next_function_;
  return number;
}

// "fn (parameters) => expression": the expression is walked where it stands.
void CPhpMachine::ArrowFunction() {
  const std::uint32_t number = NextFunction();
  Function& function = functions_[number];
  function.parameters.clear();
  while (Next() && !NextIs("=>") && !NextIs(";")) {
    tokens_.Advance();
    if (tokens_.At().kind == PhpTokenKind::kVariable && HasRoomForParameter(function, function.parameters.size())) {
      function.parameters.push_back(NameOf(tokens_.At()));
    }
  }
  if (NextIs("=>")) tokens_.Advance();
  function.by_reference.assign(function.parameters.size(), false);
  if (function.values.size() < function.parameters.size()) function.values.resize(function.parameters.size());
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    Store(KeyOf(function.parameters[i]), function.values[i], false);
  }
  arrows_.push_back(number);
  Prefix(kArrowCode);
}

// "function name(parameters)", "function (parameters) use (variables)"; the body's block comes next.
void CPhpMachine::Declaration(bool is_closure) {
  while (NextIs("&")) tokens_.Advance();
  PhpName name = kNoName;
  if (!is_closure && Next() && Next()->kind == PhpTokenKind::kName) {
    tokens_.Advance();
    name = LowerOf(NameOf(tokens_.At()));
  }
  const std::uint32_t number = NextFunction();
  std::vector<PhpName> parameters;
  int depth = 0;
  bool in_use = false;
  std::vector<bool> by_reference;
  std::vector<PhpName> used;
  while (Next() && !NextIs("{") && !NextIs(";")) {
    tokens_.Advance();
    PhpToken& token = tokens_.At();
    if (token.Is("(") || token.Is("[")) ++depth;
    if (token.Is(")") || token.Is("]")) --depth;
    if (token.kind == PhpTokenKind::kName && depth == 0 && TextOf(token) == "use") in_use = true;
    if (token.kind == PhpTokenKind::kVariable && depth == 1) {
      std::vector<PhpName>& list = in_use ? used : parameters;
      if (in_use ? list.size() < kMostParameters : HasRoomForParameter(functions_[number], list.size())) {
        list.push_back(NameOf(token));
        if (!in_use) by_reference.push_back(BeforeIs("&"));
      }
    }
    if (depth < 0) break;
  }
  Function& function = functions_[number];
  if (name != kNoName) {
    NameFacts& facts = FactsOf(name);
    if (facts.user == 0) facts.user = number + 1;
  }
  if (function.values.size() < parameters.size()) function.values.resize(parameters.size());
  function.parameters = std::move(parameters);
  function.by_reference = std::move(by_reference);
  function.name = name;
  std::vector<PhpValue> carried;
  for (const PhpName variable : used) carried.push_back(Load(KeyOf(variable)));
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

void CPhpMachine::OnVariable(PhpToken& token) {
  const PhpName name = NameOf(token);
  const Frame& frame = frames_.back();
  const bool pending = operations_.size() > frame.operations;
  if (pending && operations_.back().code == PhpOperator("$")) return PushOperand(OfVariables(Lookup(name)));
  const VariableKey key = frame.is_class && operand_next_ && !pending ? KeyIn(kMemberScope, name) : KeyOf(name);
  Operand& operand = NextOperand();
  operand.Clear();
  operand.key = key;
  operand.value = Load(key);
  Placed(operand);
}

// "$$name": the variable that a variable names, once for each "$" that waits.
CPhpMachine::Operand CPhpMachine::OfVariables(Operand operand) {
  while (operations_.size() > frames_.back().operations && operations_.back().code == PhpOperator("$")) {
    operations_.Pop();
    const PhpValue value = std::move(operand.value);
    operand = {};
    if (value.HasText()) {
      operand = Lookup(NameOf(value.Text()));
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

// "->name", "::name", "::$name": a property, or what is called next.
void CPhpMachine::OnMember() {
  const bool is_static = tokens_.At().Is("::");
  Operand object = PopOperand();
  operand_next_ = true;
  if (!Next()) return;
  Operand operand;
  PhpToken& next = *Next();
  if (next.Is("{")) {
    tokens_.Advance();
    PushFrame(FrameKind::kVariable);
    return;
  }
  if (next.kind != PhpTokenKind::kName && next.kind != PhpTokenKind::kVariable) return;
  tokens_.Advance();
  const bool called = NextIs("(");
  if (next.kind == PhpTokenKind::kName && called) {
    operand.is_name = true;
    operand.is_member = true;
    operand.name = LowerOf(NameOf(next));
    operand.value = std::move(object.value);
  } else if ((next.kind == PhpTokenKind::kName && !is_static) ||
             (next.kind == PhpTokenKind::kVariable && is_static && !called)) {
    operand.key = KeyIn(kMemberScope, NameOf(next));
    operand.value = Load(operand.key);
    if (object.value.Has(kWholeRequest)) operand.value.origin |= object.value.origin & kFromRequest;
  } else if (called) {
    operand.is_name = true;
    operand.is_member = true;
    const PhpValue method = Lookup(NameOf(next)).value;
    if (method.HasText()) operand.name = LowerOf(NameOf(method.Text()));
  }
  PushOperand(std::move(operand));
}

}  // namespace qiv
