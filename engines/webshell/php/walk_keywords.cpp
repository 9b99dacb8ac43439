// Keywords and declarations in the walk over a PHP file.
#include <cstddef>
#include <utility>
#include <vector>

#include "engines/webshell/php/walk.h"

namespace qiv {

// False: here it is a name.
bool CPhpWalk::OnKeyword(PhpWord word) {
  switch (word) {
    case PhpWord::kInclude:
      findings_.IsNoScriptAlone();
      return expressions_.PushPrefix(PhpWordCode::kInclude), true;
    case PhpWord::kEcho:
      return expressions_.PushPrefix(PhpWordCode::kEcho), true;
    case PhpWord::kReturn:
      return expressions_.PushPrefix(PhpWordCode::kReturn), true;
    case PhpWord::kStatement:
      return BeginStatement(), true;
    case PhpWord::kElse:
    case PhpWord::kBlock:
      EndStatement();
      scopes_.SetConditional(word == PhpWord::kElse);
      return true;
    case PhpWord::kNew:
    case PhpWord::kClone:
      pending_.is_new = word == PhpWord::kNew;
      return true;
    case PhpWord::kList:
      if (!tokens_.NextIs("(")) return false;
      tokens_.Advance();
      PushFrame(PhpFrameKind::kArray);
      return true;
    case PhpWord::kLogic:
      expressions_.Reduce(PhpPrecedence::kLowest);
      stacks_.PopOperand();
      stacks_.ExpectOperand();
      return true;
    case PhpWord::kInstanceof:
      return expressions_.PushOperator(PhpOperator("<"), 14), true;
    case PhpWord::kAs:
      return expressions_.As(), true;
    default:
      return OnStructure(word);
  }
}

bool CPhpWalk::OnStructure(PhpWord word) {
  const bool closure = tokens_.NextIs("(") || (tokens_.NextIs("&") && tokens_.NextIs("(", 2));
  switch (word) {
    case PhpWord::kFunction:
      return Declare(stacks_.OperandNext() && closure), true;
    case PhpWord::kArrowFunction:
      return closure && (DeclareArrow(), true);
    case PhpWord::kClass:
      return OnClass();
    case PhpWord::kModifier:
      return stacks_.Top().is_class || !tokens_.NextIs("::");
    case PhpWord::kGlobal:
      for (; tokens_.Next() && !tokens_.NextIs(";"); tokens_.Advance()) {
        if (tokens_.Next()->kind == PhpTokenKind::kVariable) scopes_.MakeGlobal(symbols_.NameOf(*tokens_.Next()));
      }
      return true;
    case PhpWord::kNamespace:
      if (stacks_.Top().kind != PhpFrameKind::kBlock || !stacks_.OperandNext()) return false;
      findings_.IsNoScriptAlone();
      tokens_.SkipTo(";", "{");
      return true;
    case PhpWord::kConst:
      if (stacks_.Top().kind != PhpFrameKind::kBlock) return false;
      if (tokens_.Next() && tokens_.NextIs("=", 2) && tokens_.Next()->kind == PhpTokenKind::kName) {
        tokens_.Advance();
        PhpOperand constant;
        constant.key = scopes_.KeyIn(kPhpConstScope, symbols_.NameOf(tokens_.At()));
        expressions_.PushOperand(std::move(constant));
      }
      return true;
    default:
      return false;
  }
}

bool CPhpWalk::OnClass() {
  if (!tokens_.Next() || (tokens_.Next()->kind != PhpTokenKind::kName && !pending_.is_new)) return false;
  if (!pending_.is_new) findings_.IsNoScriptAlone();
  pending_.is_new = false;
  tokens_.SkipTo("{", ";");
  pending_.is_class = tokens_.NextIs("{");
  return true;
}

// "fn (parameters) => expression": the expression is walked where it stands.
void CPhpWalk::DeclareArrow() {
  const std::uint32_t number = functions_.Begin();
  PhpUserFunction& function = functions_.At(number);
  function.parameters.clear();
  while (tokens_.Next() && !tokens_.NextIs("=>") && !tokens_.NextIs(";")) {
    tokens_.Advance();
    if (tokens_.At().kind == PhpTokenKind::kVariable &&
        functions_.HasRoomForParameter(function, function.parameters.size())) {
      function.parameters.push_back(symbols_.NameOf(tokens_.At()));
    }
  }
  if (tokens_.NextIs("=>")) tokens_.Advance();
  function.by_reference.assign(function.parameters.size(), false);
  if (function.values.size() < function.parameters.size()) function.values.resize(function.parameters.size());
  BindParameters(function);
  expressions_.BeginArrowFunction(number);
}

// The parameters as variables of the current scope.
void CPhpWalk::BindParameters(const PhpUserFunction& function) {
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    scopes_.Store(scopes_.KeyOf(function.parameters[i]), function.values[i], false);
  }
}

// "(parameters)", "(parameters) use (variables)": up to the body.
CPhpWalk::Signature CPhpWalk::ReadSignature(const PhpUserFunction& function) {
  Signature signature;
  int depth = 0;
  bool in_use = false;
  while (depth >= 0 && tokens_.Next() && !tokens_.NextIs("{") && !tokens_.NextIs(";")) {
    tokens_.Advance();
    PhpToken& token = tokens_.At();
    if (token.Is("(") || token.Is("[")) ++depth;
    if (token.Is(")") || token.Is("]")) --depth;
    if (token.kind == PhpTokenKind::kName && depth == 0 && token.Text(source_) == "use") in_use = true;
    if (token.kind != PhpTokenKind::kVariable || depth != 1) continue;
    std::vector<PhpName>& list = in_use ? signature.used : signature.parameters;
    const bool fits =
        in_use ? list.size() < CPhpFunctions::kMostParameters : functions_.HasRoomForParameter(function, list.size());
    if (!fits) continue;
    list.push_back(symbols_.NameOf(token));
    if (!in_use) signature.by_reference.push_back(tokens_.BeforeIs("&"));
  }
  return signature;
}

// "function name(parameters)", "function (parameters) use (variables)"; the body's block comes next.
void CPhpWalk::Declare(bool is_closure) {
  while (tokens_.NextIs("&")) tokens_.Advance();
  PhpName name = kNoName;
  if (!is_closure && tokens_.Next() && tokens_.Next()->kind == PhpTokenKind::kName) {
    tokens_.Advance();
    name = symbols_.LowerOf(symbols_.NameOf(tokens_.At()));
  }
  const std::uint32_t number = functions_.Begin();
  PhpUserFunction& function = functions_.At(number);
  Signature signature = ReadSignature(function);
  if (name != kNoName) {
    PhpNameFacts& facts = symbols_.FactsOf(name);
    if (facts.user == 0) facts.user = number + 1;
  }
  if (function.values.size() < signature.parameters.size()) function.values.resize(signature.parameters.size());
  function.parameters = std::move(signature.parameters);
  function.by_reference = std::move(signature.by_reference);
  function.name = name;
  std::vector<PhpValue> carried;
  for (const PhpName variable : signature.used) carried.push_back(scopes_.Load(scopes_.KeyOf(variable)));
  if (is_closure) {
    PhpOperand closure;
    closure.value.origin = kClosure;
    closure.value.function = number + 1;
    expressions_.PushOperand(std::move(closure));
  } else {
    EndStatement();
  }
  pending_.scope = tokens_.NextIs("{") ? number + 1 : 0;
  const PhpScope outer = scopes_.Current();
  scopes_.Enter(number + 1);
  BindParameters(function);
  for (std::size_t i = 0; i < signature.used.size(); ++i) {
    scopes_.Store(scopes_.KeyOf(signature.used[i]), carried[i], false);
  }
  scopes_.Enter(outer);
}

}  // namespace qiv
