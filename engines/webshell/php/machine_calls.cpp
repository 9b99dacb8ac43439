// What calls give, and what they give away.
#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/machine.h"

namespace qiv {
namespace {

constexpr std::uint32_t kRequest = kFromRequest | kWholeRequest;
constexpr std::size_t kShortestFunction = 3;  // letters in the name of a function of PHP

bool HoldsCode(std::string_view text) {
  return text.find('(') != std::string_view::npos || text.find("<?") != std::string_view::npos ||
         text.find('`') != std::string_view::npos;
}

// Whether the regular expression's modifiers hold "e": its replacement is code.
bool RunsReplacement(std::string_view pattern) {
  if (pattern.size() < 3) return false;
  constexpr std::string_view kOpen = "([{<";
  constexpr std::string_view kClose = ")]}>";
  const std::size_t open = kOpen.find(pattern[0]);
  const char delimiter = open == std::string_view::npos ? pattern[0] : kClose[open];
  if (IsWordByte(delimiter) || delimiter == '\\' || delimiter == ' ') return false;
  constexpr std::size_t kMostModifiers = 32;  // bytes; there are a dozen letters
  const std::string_view tail =
      pattern.substr(std::max<std::size_t>(pattern.size(), kMostModifiers + 1) - kMostModifiers);
  const std::size_t end = tail.rfind(delimiter);
  if (end == std::string_view::npos) return false;
  const std::string_view modifiers = tail.substr(end + 1);
  return modifiers.find('e') != std::string_view::npos &&
         std::all_of(modifiers.begin(), modifiers.end(), [](char c) { return IsLetter(c); });
}

}  // namespace

void CPhpMachine::Report(PhpFindingKind kind, std::string_view detail, HidingWay way) {
  constexpr std::size_t kLongestDetail = 64;
  std::vector<PhpFinding>& findings = result_.findings;
  if (findings.size() >= kMostFindings) return;
  const auto same = [&](const PhpFinding& f) { return f.kind == kind && f.detail == detail.substr(0, kLongestDetail); };
  if (std::none_of(findings.begin(), findings.end(), same)) {
    findings.push_back({kind, way, std::string(detail.substr(0, kLongestDetail))});
  }
}

CPhpMachine::Function* CPhpMachine::FindUser(PhpName name) {
  const std::uint32_t number = name != kNoName ? FactsOf(name).user : 0;
  return number != 0 ? &functions_[number - 1] : nullptr;
}

CPhpMachine::Called CPhpMachine::CalledBy(PhpName lower_name) {
  return {names_.Text(lower_name), FindUser(lower_name), OwnFunction(lower_name)};
}

CPhpMachine::Called CPhpMachine::CalledBy(std::string_view lower_name) {
  const PhpName name = NameOf(lower_name);
  return {lower_name, FindUser(name), name != kNoName ? OwnFunction(name) : FindPhpFunction(lower_name)};
}

// The function that a text names, in lower case; empty when the text is longer than any name.
std::string CPhpMachine::CalledName(const PhpValue& callee) {
  constexpr std::size_t kLongestCalled = 256;
  return callee.Text().size() <= kLongestCalled || Spend(callee.Text().size()) ? CCharSet::LowerAscii(callee.Text())
                                                                               : std::string();
}

PhpValue CPhpMachine::CallUser(Function& function, std::span<const PhpValue> arguments) {
  PhpValue result = function.returns;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i < function.values.size()) {
      PhpValue& parameter = function.values[i];
      PhpValue value = arguments[i];
      value.origin &= ~static_cast<std::uint32_t>(kNeverAssigned | kDerived);
      if (!parameter.HasText() && parameter.origin == 0 && !parameter.is_number && !parameter.array) {
        parameter = value;
      } else {
        if (!value.HasText() || !SameText(value, parameter)) parameter = parameter.Taint();
        parameter.Join(value);
      }
    }
  }
  // What its code does with the arguments is known from the last pass; arguments that it returns came through there.
  return result;
}

PhpValue CPhpMachine::Call(const Frame& frame, const Operand& called_value, std::span<PhpValue> arguments) {
  if (frame.is_member) return CallMember(names_.Text(frame.callee_name), arguments, called_value);
  if (frame.is_new) return New(frame, called_value.value, arguments);
  if (frame.named) {
    const Called called = CalledBy(frame.callee_name);
    PhpValue result = CallNamed(called, arguments, false, HidingWay::kNone);
    if (called.user != nullptr || (called.known != nullptr && called.known->to >= 0)) GiveBack(frame, called);
    return result;
  }
  // A value is called.
  const PhpValue& callee = called_value.value;
  if (callee.function != 0 && callee.function <= functions_.size())
    return CallUser(functions_[callee.function - 1], arguments);
  if (Function* const invoke = callee.HasText() ? nullptr : FindMagic(kInvoke)) CallUser(*invoke, arguments);
  if (callee.Has(kDecoded) && callee.HasText()) {  // no name of a function needs decoding
    Report(PhpFindingKind::kHidden, callee.Text(), callee.way);
  }
  if (callee.HasText()) {
    const std::string name = CalledName(callee);
    const Called called = CalledBy(name);
    const bool no_name = callee.Has(kComputed) || name.size() < kShortestFunction;
    const bool is_known =
        (called.known != nullptr && called.known->kind != PhpFunctionKind::kOther) || called.user != nullptr;
    if (no_name && !is_known && AnyHas(arguments, kWholeRequest)) {
      Report(PhpFindingKind::kHidden, "", callee.way);
    }
    return CallNamed(called, arguments, callee.Has(kComputed), callee.way);
  }
  if (callee.array && callee.array->size() == 2 && (*callee.array)[1].second.HasText()) return {};
  if (callee.Has(kFromRequest)) {
    Report(PhpFindingKind::kRequestCall, called_value.key == 0 ? "" : "$");
  } else if (callee.function == 0 && !callee.array && AnyHas(arguments, kWholeRequest)) {
    Report(PhpFindingKind::kHidden, "", callee.way);  // what is called cannot be told, what it is given is the request
  }
  PhpValue result;
  for (const PhpValue& argument : arguments) result.Join(argument);
  result.origin &= kFromRequest | kDecoded;
  return result;
}

// What a call leaves in the variables among its arguments.
void CPhpMachine::GiveBack(const Frame& frame, const Called& called) {
  const std::span<const ArgumentFacts> facts = std::span(argument_facts_).subspan(frame.arguments);
  const std::span<const PhpValue> values = std::span(arguments_).subspan(frame.arguments);
  const PhpFunction* const known = called.known;
  if (known != nullptr && known->to >= 0) {
    const auto from = static_cast<std::size_t>(known->from);
    const auto to = static_cast<std::size_t>(known->to);
    if (facts.size() > std::max(from, to) && facts[to].key != 0) {
      PhpValue given;
      given.origin = values[from].origin & (kFromRequest | kServerList | kDecoded | kFromNetwork);
      if (known->kind == PhpFunctionKind::kDecode) given.origin |= kDecoded;
      if (known->kind == PhpFunctionKind::kExtract) given.origin = values[from].origin & kRequest;
      if (given.origin != 0) Store(facts[to].key, given, false);
      return;
    }
  }
  const Function* const function = called.user;
  if (function == nullptr) return;
  const std::uint32_t scope = FactsOf(frame.callee_name).user;
  for (std::size_t i = 0; i < std::min(facts.size(), function->by_reference.size()); ++i) {
    const VariableKey parameter = function->by_reference[i] ? KeyIn(scope, function->parameters[i]) : 0;
    if (parameter == 0 || facts[i].key == 0) continue;
    const PhpValue value = variables_[parameter - 1].value;
    if (value.HasText() || value.origin != 0) Store(facts[i].key, value, false);
  }
}

PhpValue CPhpMachine::CallNamed(const Called& called, std::span<PhpValue> arguments, bool hidden, HidingWay way) {
  const auto& [name, user, function] = called;
  if (hidden && function != nullptr && function->Is(PhpFunction::kDangerous) && !arguments.empty())
    Report(PhpFindingKind::kHidden, name, way);
  if (name.starts_with(kMadeFunction)) return CallMade(name, arguments);
  if (user != nullptr) return CallUser(*user, arguments);
  if (function == nullptr) return Derived(called, arguments);
  if (function->Is(PhpFunction::kTool) && !arguments.empty() &&
      AnyHas(arguments.first(std::min<std::size_t>(arguments.size(), name == "curl_setopt" ? 3 : 2)), kWholeRequest)) {
    Report(PhpFindingKind::kTool, name);
  }
  if ((name == "curl_setopt" || name == "curl_init" || name == "file_get_contents") &&
      std::any_of(arguments.begin(), arguments.end(),
                  [](const PhpValue& value) { return value.Has(kRemotePath) && value.Has(kFromRequest); })) {
    Report(PhpFindingKind::kTool, name);
  }
  return function->kind != PhpFunctionKind::kOther ? CallKnown(*function, arguments) : CallOther(called, arguments);
}

// What a function gives of which nothing is known but what it is given.
PhpValue CPhpMachine::Derived(const Called& called, std::span<const PhpValue> arguments) {
  PhpValue value;
  if (called.name == "unserialize" && AnyHas(arguments, kFromRequest)) value.origin |= kFromRequest;
  if (AnyHas(arguments, kFromRequest | kDerived) && !called.name.starts_with("is_") &&
      (called.known == nullptr || !called.known->Is(PhpFunction::kMeasure))) {
    value.origin |= kDerived;
  }
  return value;
}

// Functions of PHP's own that are like no other.
PhpValue CPhpMachine::CallOther(const Called& called, std::span<PhpValue> arguments) {
  const std::string_view name = called.name;
  if ((name == "socket_connect" || name == "socket_bind") && arguments.size() > 1 && arguments[1].Has(kFromRequest)) {
    Report(PhpFindingKind::kTunnel, name);
  }
  if (name == "putenv" && AnyHas(arguments, kFromRequest | kRemotePath)) Report(PhpFindingKind::kBackdoor, name);
  if (name == "putenv" && !arguments.empty() && arguments[0].Text().starts_with("LD_PRELOAD")) {
    Report(PhpFindingKind::kBackdoor, name);
  }
  if ((name == "trigger_error" || name == "user_error") && !arguments.empty()) RunHandlers(arguments[0]);
  if (name == "define" && arguments.size() >= 2 && arguments[0].HasText()) {
    Store(KeyIn(kConstScope, NameOf(arguments[0].Text())), arguments[1], false);
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
  if (name == "filter_var" || name == "filter_var_array" || name == "yaml_parse" || name == "iterator_apply") {
    for (const PhpValue& outer : arguments) {
      const PhpValue& argument =
          name == "filter_var_array" && outer.array && outer.array->size() == 1 ? (*outer.array)[0].second : outer;
      if (!argument.array || !Spend(argument.array->size() * kCallWork)) continue;
      for (const auto& [key, element] : *argument.array) {
        const std::string callback = CalledName(element);
        if (AnyHas(arguments, kFromRequest) && IsPhpRunner(callback)) Report(PhpFindingKind::kBackdoor, callback);
        if (Function* const user = FindUser(callback)) CallUser(*user, arguments.first(1));
      }
    }
  }
  if (name == "serialize" || name == "unserialize") {
    if (AnyHas(arguments, kFromRequest) && Spend(variables_.size())) {
      for (std::size_t i = 0; i < variables_.size(); ++i) {
        Variable& variable = variables_[i];
        if (variable.scope == kMemberScope && variable.assigned) variable.value.origin |= kFromRequest;
      }
    }
    unserialized_ |= name == "unserialize" && AnyHas(arguments, kFromRequest);
  }
  return Derived(called, arguments);
}

PhpValue CPhpMachine::CallKnown(const PhpFunction& function, std::span<PhpValue> arguments) {
  using Kind = PhpFunctionKind;
  const std::string_view name = function.name;
  switch (function.kind) {
    case Kind::kCode:
      if (!arguments.empty()) RunCode(name, arguments[0]);
      return {};
    case Kind::kCommand:
      RunCommand(name, arguments);
      return {};
    case Kind::kCallback:
      return RunCallback(function, arguments);
    case Kind::kPattern:
      RunPattern(name, arguments);
      break;
    case Kind::kMakeCode: {
      if (arguments.size() > 1) RunCode(name, arguments[1]);
      if (AnyHas(arguments, kFromRequest)) Report(PhpFindingKind::kBackdoor, name);
      PhpValue made;
      if (arguments.size() > 1 && made_.size() < kMostNested && Spend(arguments[1].Text().size()) &&
          budget_.Take(arguments[0].Text().size() + arguments[1].Text().size())) {
        made = Made(std::string(kMadeFunction) + std::to_string(made_.size()), arguments[1].origin & kComputed);
        made_.push_back({std::string(arguments[0].Text()), std::string(arguments[1].Text())});
      }
      return made;
    }
    case Kind::kWrite:
      Write(name, arguments);
      return {};
    case Kind::kOpen:
      return Open(name, arguments);
    case Kind::kRemove:
      if (!arguments.empty() && arguments[0].Has(kNeverAssigned)) Report(PhpFindingKind::kUnknownSource, name);
      return {};
    case Kind::kMail:
      Mail(arguments);
      return {};
    case Kind::kMove:
      Move(name, arguments);
      return {};
    case Kind::kRead:
      return Read(name, arguments);
    case Kind::kSource: {
      PhpValue value;
      if (name == "getenv" &&
          (arguments.empty() || (!arguments[0].Text().starts_with("HTTP_") && arguments[0].Text() != "QUERY_STRING"))) {
        return value;
      }
      value.origin = kRequest;
      return value;
    }
    case Kind::kExtract:
      if (name == "import_request_variables" || AnyHas(arguments, kFromRequest)) request_variables_ = true;
      if (name != "extract" && arguments.size() == 2 && AnyHas(arguments.first(1), kFromRequest))
        arguments[1].origin |= kRequest;
      return {};
    case Kind::kVariables: {
      PhpValue value;
      if (scope_ != 0) {
        for (const PhpValue& parameter : functions_[scope_ - 1].values) value.Join(parameter);
      }
      return value;
    }
    case Kind::kPass:
    case Kind::kDecode: {
      std::size_t work = 1;
      for (const PhpValue& argument : arguments) {
        work += argument.Text().size() * (argument.array ? argument.array->size() : 1);
        if (argument.array) work += argument.array->size() * (arguments.back().Text().size() + 1);
      }
      if (!Spend(work)) return arguments.empty() ? PhpValue() : arguments[0].Taint();
      PhpValue value = EvaluatePhpFunction(name, arguments, &budget_);
      if (function.kind == Kind::kDecode) {
        value.origin |= kDecoded;
        if (value.HasText() && HoldsCode(value.Text())) AddNested(value.Text());
      }
      return value;
    }
    default:
      break;
  }
  PhpValue value;
  for (const PhpValue& argument : arguments) value.Join(argument);
  return value;
}

void CPhpMachine::RunCode(std::string_view name, const PhpValue& code) {
  const std::uint32_t request = kFromRequest | kServerList | (name == "assert" ? 0U : std::uint32_t{kDerived});
  if (code.Has(request)) return Report(PhpFindingKind::kBackdoor, name, code.way);
  if (code.Has(kFromNetwork)) Report(PhpFindingKind::kNetworkCode, name);
  if (code.Has(kDecoded)) Report(PhpFindingKind::kHidden, name, code.way);
  const bool scrambled =
      code.way == HidingWay::kCharacters || code.way == HidingWay::kCharacterCodes || code.way == HidingWay::kReversed;
  if (!code.HasText() && code.Has(kComputed) && scrambled) Report(PhpFindingKind::kHidden, name, code.way);
  if (code.HasText()) {
    if (name == "assert") {  // a test of the program's own, not a command
      for (const std::string_view run : {"system(", "eval(", "exec(", "passthru(", "phpinfo("}) {
        if (Holds(code, run)) Report(PhpFindingKind::kHidden, name);
      }
    }
    AddNested(code.Text());
  } else if (code.Has(kNeverAssigned)) {
    Report(PhpFindingKind::kUnknownSource, name);
  }
}

void CPhpMachine::RunCommand(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.empty()) return;
  if (Holds(arguments[0], "sh -i") || Holds(arguments[0], "/dev/tcp/")) {
    return Report(PhpFindingKind::kBackdoor, name);  // a shell for somebody who is not there
  }
  if (AnyHas(
          arguments.first(std::min<std::size_t>(arguments.size(), name == "pcntl_exec" || name == "ssh2_exec" ? 2 : 1)),
          kFromRequest | kServerList)) {
    Report(PhpFindingKind::kBackdoor, name, arguments[0].way);
  } else if (arguments[0].Has(kNeverAssigned)) {
    Report(PhpFindingKind::kUnknownSource, name);
  } else if (arguments[0].Has(kFromNetwork)) {
    Report(PhpFindingKind::kNetworkCode, name);
  } else if (arguments[0].Has(kDecoded) && arguments[0].Has(kComputed)) {
    Report(PhpFindingKind::kHidden, name, arguments[0].way);
  }
}

// A function of the file is handed to one that calls it.
void CPhpMachine::CallBack(Function& user, std::string_view caller, const PhpValue& value) {
  PhpValue given = value.Taint();
  if (caller == "ob_start") given.Join(printed_);
  if (caller.starts_with("set_e") && handlers_.size() < kMostFindings) {
    handlers_.push_back(&user);
    given.Join(thrown_);
  }
  CallWithAll(user, given);
}

// Every parameter is given the value.
void CPhpMachine::CallWithAll(Function& user, const PhpValue& given) {
  constexpr std::size_t kFew = 4;  // parameters that callbacks have
  const std::size_t count = std::max<std::size_t>(user.values.size(), 1);
  if (count > kFew && !Spend(count * kElementWork)) return;
  const std::vector<PhpValue> values(count, given);
  CallUser(user, values);
}

void CPhpMachine::RunHandlers(const PhpValue& given) {
  if (!given.Has(kFromRequest)) return;
  for (Function* const handler : handlers_) {
    if (!handler->values.empty()) CallWithAll(*handler, given.Taint());
  }
}

PhpValue CPhpMachine::RunCallback(const PhpFunction& function, std::span<PhpValue> arguments) {
  PhpValue value;
  for (const PhpValue& argument : arguments) value.Join(argument);
  value.origin &= ~static_cast<std::uint32_t>(kArrayLiteral | kClosure);
  const auto size = static_cast<std::ptrdiff_t>(arguments.size());
  const std::ptrdiff_t at = function.callback < 0 ? size + function.callback : function.callback;
  if (at < 0 || at >= size) return value;
  const PhpValue callback = arguments[static_cast<std::size_t>(at)];
  if (callback.Has(kArrayLiteral)) {
    if (!callback.array || callback.array->size() != 2) return value;
    const std::string method = CalledName((*callback.array)[1].second);
    if (Function* const user = FindUser(method)) {
      CallWithAll(*user, value.Taint());
    }
    return value;
  }
  if (callback.HasText()) {
    const std::string name = CalledName(callback);
    if (name.starts_with(kMadeFunction)) return CallMade(name, arguments);
    if (function.name == "fromcallable" || function.name == "reflectionfunction") return callback;
    if (callback.Has(kComputed) && IsPhpFunction(name, PhpFunction::kDangerous))
      Report(PhpFindingKind::kHidden, name, callback.way);
    const bool output = function.name == "ob_start" || function.name.starts_with("set_e") ||
                        function.name == "spl_autoload_register" || function.name == "header_register_callback";
    if (IsPhpRunner(name) && (output || AnyHas(arguments, kFromRequest))) Report(PhpFindingKind::kBackdoor, name);
    if (IsPhpRunner(name) && AnyHas(arguments, kDecoded)) Report(PhpFindingKind::kHidden, name, value.way);
    if (function.name.starts_with("call_user_func") || function.name.starts_with("forward_static")) {
      if (function.name.ends_with("_array") && arguments.size() > 1 && arguments[1].array &&
          budget_.HasRoom(arguments[1].array->size() * sizeof(PhpValue)) &&
          Spend(arguments[1].array->size() * kElementWork)) {
        std::vector<PhpValue> unpacked;
        for (const auto& [key, element] : *arguments[1].array) unpacked.push_back(element);
        return CallNamed(CalledBy(name), unpacked, false, callback.way);
      }
      return CallNamed(CalledBy(name), arguments.subspan(1), false, callback.way);
    }
    if (Function* const user = FindUser(name)) CallBack(*user, function.name, value);
    return value;
  }
  if (callback.function != 0 && callback.function <= functions_.size()) {
    CallBack(functions_[callback.function - 1], function.name, value);
    return value;
  }
  // What is called cannot be told, what it is given is the request.
  if (callback.Has(kComputed) && !callback.array && AnyHas(arguments, kWholeRequest)) {
    Report(PhpFindingKind::kHidden, "", callback.way);
  }
  if (callback.Has(kFromRequest) && !callback.array) Report(PhpFindingKind::kRequestCall, function.name);
  if (callback.Has(kDecoded) && AnyHas(arguments, kFromRequest))
    Report(PhpFindingKind::kHidden, function.name, callback.way);
  return value;
}

void CPhpMachine::RunPattern(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.size() < 2) return;
  const bool multi_byte = name.starts_with("mb_");
  bool runs = false;
  if (multi_byte) {
    runs = arguments.size() > 3 && (Holds(arguments[3], "e") || arguments[3].Has(kWholeRequest));
  } else if (arguments[0].array && Spend(arguments[0].array->size() * kElementWork)) {
    for (const auto& [key, element] : *arguments[0].array) runs |= RunsReplacement(element.Text());
  } else {
    runs = RunsReplacement(arguments[0].Text());
  }
  if (!multi_byte && arguments[0].Has(kWholeRequest) && arguments[1].Has(kWholeRequest)) {
    return Report(PhpFindingKind::kBackdoor, name);
  }
  if (!runs) return;
  if (AnyHas(arguments, kFromRequest)) return Report(PhpFindingKind::kBackdoor, name);
  if (arguments[1].Has(kDecoded) || (arguments[0].Has(kComputed) && arguments[0].way == HidingWay::kCharacters)) {
    Report(PhpFindingKind::kHidden, name, arguments[1].way);
  }
  if (arguments[1].Has(kNeverAssigned)) Report(PhpFindingKind::kUnknownSource, name);
  if (arguments[1].HasText()) AddNested(arguments[1].Text());
}

PhpFlowResult FollowPhp(std::string_view source, bool in_code, std::size_t most_room, CWalkBudget* walks) {
  return CPhpMachine(source, in_code, most_room).Run(walks);
}

}  // namespace qiv
