#include "engines/webshell/php/calls.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "engines/webshell/php/sources.h"

namespace qiv {
namespace {

constexpr std::size_t kCallWork = 192;        // to look up a function by a text
constexpr std::size_t kShortestFunction = 3;  // letters in the name of a function of PHP

bool HoldsCode(std::string_view text) {
  return text.find('(') != std::string_view::npos || text.find("<?") != std::string_view::npos ||
         text.find('`') != std::string_view::npos;
}

}  // namespace

void CPhpCalls::Restart() {
  made_.clear();
  handlers_.clear();
}

void CPhpCalls::Print(const PhpValue& value) {
  printed_.Join(value);
  if (value.Has(kFromNetwork)) findings_.Report(PhpFindingKind::kRemoteText, "echo");
}

PhpCallee CPhpCalls::CalledBy(PhpName lower_name) {
  return {symbols_.Text(lower_name), functions_.Find(lower_name), symbols_.OwnFunction(lower_name)};
}

PhpCallee CPhpCalls::CalledBy(std::string_view lower_name) {
  const PhpName name = symbols_.NameOf(lower_name);
  return {lower_name, functions_.Find(name),
          name != kNoName ? symbols_.OwnFunction(name) : FindPhpFunction(lower_name)};
}

// The function that a text names, in lower case; empty when the text is longer than any name.
std::string CPhpCalls::CalledName(const PhpValue& callee) {
  constexpr std::size_t kLongestCalled = 256;
  return callee.Text().size() <= kLongestCalled || budget_.Spend(callee.Text().size())
             ? CCharSet::LowerAscii(callee.Text())
             : std::string();
}

PhpValue CPhpCalls::Call(const PhpFrame& frame, const PhpOperand& called_value, std::span<PhpValue> arguments,
                         std::span<const PhpArgumentFacts> facts) {
  if (frame.is_member) return CallMember(symbols_.Text(frame.callee_name), arguments, called_value);
  if (frame.is_new) return New(frame, called_value.value, arguments);
  if (frame.named) {
    const PhpCallee called = CalledBy(frame.callee_name);
    PhpValue result = CallNamed(called, arguments, false, HidingWay::kNone);
    if (called.user != nullptr || (called.known != nullptr && called.known->to >= 0))
      GiveBack(frame.callee_name, called, arguments, facts);
    return result;
  }
  return CallValue(called_value, arguments);
}

// A value is called.
PhpValue CPhpCalls::CallValue(const PhpOperand& called_value, std::span<PhpValue> arguments) {
  const PhpValue& callee = called_value.value;
  if (callee.function != 0 && callee.function <= functions_.Count())
    return functions_.Bind(functions_.At(callee.function - 1), arguments);
  if (PhpUserFunction* const invoke = callee.HasText() ? nullptr : functions_.FindMagic(PhpMagic::kInvoke))
    functions_.Bind(*invoke, arguments);
  if (callee.Has(kDecoded) && callee.HasText()) {  // no name of a function needs decoding
    findings_.Report(PhpFindingKind::kHidden, callee.Text(), callee.way);
  }
  if (callee.HasText()) {
    const std::string name = CalledName(callee);
    const PhpCallee called = CalledBy(name);
    const bool no_name = callee.Has(kComputed) || name.size() < kShortestFunction;
    const bool is_known =
        (called.known != nullptr && called.known->kind != PhpFunctionKind::kOther) || called.user != nullptr;
    if (no_name && !is_known && AnyHas(arguments, kWholeRequest)) {
      findings_.Report(PhpFindingKind::kHidden, "", callee.way);
    }
    return CallNamed(called, arguments, callee.Has(kComputed), callee.way);
  }
  if (callee.array && callee.array->size() == 2 && (*callee.array)[1].second.HasText()) return {};
  if (callee.Has(kFromRequest)) {
    findings_.Report(PhpFindingKind::kRequestCall, called_value.key == 0 ? "" : "$");
  } else if (callee.function == 0 && !callee.array && AnyHas(arguments, kWholeRequest)) {
    findings_.Report(PhpFindingKind::kHidden, "",
                     callee.way);  // what is called cannot be told, what it is given is the request
  }
  PhpValue result;
  for (const PhpValue& argument : arguments) result.Join(argument);
  result.origin &= kFromRequest | kDecoded;
  return result;
}

// What a call leaves in the variables among its arguments.
void CPhpCalls::GiveBack(PhpName name, const PhpCallee& called, std::span<const PhpValue> values,
                         std::span<const PhpArgumentFacts> facts) {
  const PhpFunction* const known = called.known;
  if (known != nullptr && known->to >= 0) {
    const auto from = static_cast<std::size_t>(known->from);
    const auto to = static_cast<std::size_t>(known->to);
    if (facts.size() > std::max(from, to) && facts[to].key != 0) {
      PhpValue given;
      given.origin = values[from].origin & (kFromRequest | kServerList | kDecoded | kFromNetwork);
      if (known->kind == PhpFunctionKind::kDecode) given.origin |= kDecoded;
      if (known->kind == PhpFunctionKind::kExtract) given.origin = values[from].origin & kRequestOrigin;
      if (given.origin != 0) scopes_.Store(facts[to].key, given, false);
      return;
    }
  }
  const PhpUserFunction* const function = called.user;
  if (function == nullptr) return;
  const std::uint32_t scope = symbols_.FactsOf(name).user;
  for (std::size_t i = 0; i < std::min(facts.size(), function->by_reference.size()); ++i) {
    const PhpVariableKey parameter = function->by_reference[i] ? scopes_.KeyIn(scope, function->parameters[i]) : 0;
    if (parameter == 0 || facts[i].key == 0) continue;
    const PhpValue value = scopes_.At(parameter).value;
    if (value.HasText() || value.origin != 0) scopes_.Store(facts[i].key, value, false);
  }
}

PhpValue CPhpCalls::CallNamed(const PhpCallee& called, std::span<PhpValue> arguments, bool hidden, HidingWay way) {
  const auto& [name, user, function] = called;
  if (hidden && function != nullptr && function->Is(PhpFunction::kDangerous) && !arguments.empty())
    findings_.Report(PhpFindingKind::kHidden, name, way);
  if (name.starts_with(kPhpMadeFunction)) return CallMade(name, arguments);
  if (user != nullptr) return functions_.Bind(*user, arguments);
  if (function == nullptr) return Derived(called, arguments);
  if (function->Is(PhpFunction::kTool) && !arguments.empty() &&
      AnyHas(arguments.first(std::min<std::size_t>(arguments.size(), name == "curl_setopt" ? 3 : 2)), kWholeRequest)) {
    findings_.Report(PhpFindingKind::kTool, name);
  }
  if ((name == "curl_setopt" || name == "curl_init" || name == "file_get_contents") &&
      std::any_of(arguments.begin(), arguments.end(),
                  [](const PhpValue& value) { return value.Has(kRemotePath) && value.Has(kFromRequest); })) {
    findings_.Report(PhpFindingKind::kTool, name);
  }
  return function->kind != PhpFunctionKind::kOther ? CallKnown(*function, arguments) : CallOther(called, arguments);
}

// What a function gives of which nothing is known but what it is given.
PhpValue CPhpCalls::Derived(const PhpCallee& called, std::span<const PhpValue> arguments) {
  PhpValue value;
  if (called.name == "unserialize" && AnyHas(arguments, kFromRequest)) value.origin |= kFromRequest;
  if (AnyHas(arguments, kFromRequest | kDerived) && !called.name.starts_with("is_") &&
      (called.known == nullptr || !called.known->Is(PhpFunction::kMeasure))) {
    value.origin |= kDerived;
  }
  return value;
}

// Functions of PHP's own that are like no other.
PhpValue CPhpCalls::CallOther(const PhpCallee& called, std::span<PhpValue> arguments) {
  const std::string_view name = called.name;
  if ((name == "socket_connect" || name == "socket_bind") && arguments.size() > 1 && arguments[1].Has(kFromRequest)) {
    findings_.Report(PhpFindingKind::kTunnel, name);
  }
  if (name == "putenv" && AnyHas(arguments, kFromRequest | kRemotePath))
    findings_.Report(PhpFindingKind::kBackdoor, name);
  if (name == "putenv" && !arguments.empty() && arguments[0].Text().starts_with("LD_PRELOAD")) {
    findings_.Report(PhpFindingKind::kBackdoor, name);
  }
  if ((name == "trigger_error" || name == "user_error") && !arguments.empty()) RunHandlers(arguments[0]);
  if (name == "define" && arguments.size() >= 2 && arguments[0].HasText()) {
    scopes_.Store(scopes_.KeyIn(kPhpConstScope, symbols_.NameOf(arguments[0].Text())), arguments[1], false);
    return {};
  }
  if (name == "ord" || name == "hexdec" || name == "bindec" || name == "octdec") {
    PhpValue value = EvaluatePhpFunction(name, arguments, &budget_);
    if (!value.is_number && AnyHas(arguments, kFromRequest | kDecoded)) {
      value.origin = kDecoded;
      for (const PhpValue& argument : arguments) value.origin |= argument.origin & kFromRequest;
    }
    return value;
  }
  if (name == "filter_var" || name == "filter_var_array" || name == "yaml_parse" || name == "iterator_apply")
    CallElements(called, arguments);
  if (name == "serialize" || name == "unserialize") {
    const bool requested = AnyHas(arguments, kFromRequest);
    if (requested) scopes_.TaintMembers();
    if (requested && name == "unserialize") scopes_.TaintUnknownMembers();
  }
  return Derived(called, arguments);
}

// Functions that are told by an element what to call.
void CPhpCalls::CallElements(const PhpCallee& called, std::span<const PhpValue> arguments) {
  const std::string_view name = called.name;
  for (const PhpValue& outer : arguments) {
    const PhpValue& argument =
        name == "filter_var_array" && outer.array && outer.array->size() == 1 ? (*outer.array)[0].second : outer;
    if (!argument.array || !budget_.Spend(argument.array->size() * kCallWork)) continue;
    for (const auto& [key, element] : *argument.array) {
      const std::string callback = CalledName(element);
      if (AnyHas(arguments, kFromRequest) && IsPhpRunner(callback))
        findings_.Report(PhpFindingKind::kBackdoor, callback);
      if (PhpUserFunction* const user = FindUser(callback)) functions_.Bind(*user, arguments.first(1));
    }
  }
}

PhpValue CPhpCalls::CallKnown(const PhpFunction& function, std::span<PhpValue> arguments) {
  using Kind = PhpFunctionKind;
  const std::string_view name = function.name;
  switch (function.kind) {
    case Kind::kCode:
      if (!arguments.empty()) sinks_.RunCode(name, arguments[0]);
      return {};
    case Kind::kCommand:
      sinks_.RunCommand(name, arguments);
      return {};
    case Kind::kCallback:
      return RunCallback(function, arguments);
    case Kind::kPattern:
      sinks_.RunPattern(name, arguments);
      break;
    case Kind::kMakeCode:
      return MakeFunction(arguments);
    case Kind::kWrite:
      sinks_.Write(name, arguments);
      return {};
    case Kind::kOpen:
      return sinks_.Open(name, arguments);
    case Kind::kRemove:
      if (!arguments.empty() && arguments[0].Has(kNeverAssigned))
        findings_.Report(PhpFindingKind::kUnknownSource, name);
      return {};
    case Kind::kMail:
      sinks_.Mail(arguments);
      return {};
    case Kind::kMove:
      sinks_.Move(name, arguments);
      return {};
    case Kind::kRead:
      return sinks_.Read(name, arguments);
    case Kind::kSource: {
      PhpValue value;
      if (name == "getenv" &&
          (arguments.empty() || (!arguments[0].Text().starts_with("HTTP_") && arguments[0].Text() != "QUERY_STRING"))) {
        return value;
      }
      value.origin = kRequestOrigin;
      return value;
    }
    case Kind::kExtract:
      if (name == "import_request_variables" || AnyHas(arguments, kFromRequest)) scopes_.TaintAll();
      if (name != "extract" && arguments.size() == 2 && AnyHas(arguments.first(1), kFromRequest))
        arguments[1].origin |= kRequestOrigin;
      return {};
    case Kind::kVariables: {
      PhpValue value;
      if (const PhpScope scope = scopes_.Current(); scope != 0) {
        for (const PhpValue& parameter : functions_.At(scope - 1).values) value.Join(parameter);
      }
      return value;
    }
    case Kind::kPass:
    case Kind::kDecode:
      return Evaluate(function, arguments);
    default:
      break;
  }
  PhpValue value;
  for (const PhpValue& argument : arguments) value.Join(argument);
  return value;
}

// What a function makes of values whose texts are known.
PhpValue CPhpCalls::Evaluate(const PhpFunction& function, std::span<const PhpValue> arguments) {
  std::size_t work = 1;
  for (const PhpValue& argument : arguments) {
    work += argument.Text().size() * (argument.array ? argument.array->size() : 1);
    if (argument.array) work += argument.array->size() * (arguments.back().Text().size() + 1);
  }
  if (!budget_.Spend(work)) return arguments.empty() ? PhpValue() : arguments[0].Taint();
  PhpValue value = EvaluatePhpFunction(function.name, arguments, &budget_);
  if (function.kind == PhpFunctionKind::kDecode) {
    value.origin |= kDecoded;
    if (value.HasText() && HoldsCode(value.Text())) findings_.AddNested(value.Text());
  }
  return value;
}

}  // namespace qiv
