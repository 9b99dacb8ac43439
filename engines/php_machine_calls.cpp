// What calls give, and what they give away.
#include <algorithm>
#include <array>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/php_machine.h"

namespace qiv {
namespace {

constexpr std::uint32_t kRequest = kFromRequest | kWholeRequest;

bool HoldsCode(std::string_view text) {
  return text.find('(') != std::string_view::npos || text.find("<?") != std::string_view::npos ||
         text.find('`') != std::string_view::npos;
}

// What works on files, folders, hosts or databases.
bool IsToolFunction(std::string_view name) {
  constexpr std::array<std::string_view, 29> kTools = {"file_get_contents",
                                                       "readfile",
                                                       "file",
                                                       "fopen",
                                                       "highlight_file",
                                                       "show_source",
                                                       "opendir",
                                                       "scandir",
                                                       "dir",
                                                       "glob",
                                                       "unlink",
                                                       "rmdir",
                                                       "mkdir",
                                                       "chmod",
                                                       "rename",
                                                       "copy",
                                                       "touch",
                                                       "symlink",
                                                       "fsockopen",
                                                       "pfsockopen",
                                                       "curl_setopt",
                                                       "curl_init",
                                                       "mysql_query",
                                                       "mysql_connect",
                                                       "mysqli_query",
                                                       "chdir",
                                                       "fputs",
                                                       "fwrite",
                                                       "mysqli_connect"};
  return std::find(kTools.begin(), kTools.end(), name) != kTools.end();
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

void CPhpMachine::AddNested(std::string_view text) {
  if (pass_ == 0 || result_.nested.size() >= kMostNested || text.size() > nested_left_ || text.size() < 4) return;
  if (!Spend(text.size())) return;
  if (std::find(result_.nested.begin(), result_.nested.end(), text) != result_.nested.end()) return;
  nested_left_ -= text.size();
  result_.nested.emplace_back(text);
}

CPhpMachine::Function* CPhpMachine::FindUser(PhpName name) {
  const std::uint32_t number = name != kNoName ? FactsOf(name).user : 0;
  return number != 0 ? &functions_[number - 1] : nullptr;
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
      value.origin &= ~static_cast<std::uint32_t>(kNeverAssigned);
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

PhpValue CPhpMachine::Call(Frame& frame, std::span<PhpValue> arguments) {
  const bool is_new = std::exchange(pending_new_, false);
  const std::string_view called = names_.Text(frame.callee.name);
  if (frame.callee.is_member) return CallMember(called, arguments, frame.callee);
  if (is_new) {
    if (frame.named && called == "com") com_objects_ = true;
    if (frame.named && called == "reflectionfunction") return CallNamed(called, arguments, false, {});
    PhpValue object;
    if (frame.named) object.origin = arguments.empty() ? 0 : arguments[0].origin & kFromNetwork;
    return object;
  }
  if (frame.named) return CallNamed(called, arguments, false, HidingWay::kNone);
  // A value is called.
  const PhpValue& callee = frame.callee.value;
  if (callee.function != 0 && callee.function <= functions_.size())
    return CallUser(functions_[callee.function - 1], arguments);
  if (callee.HasText()) {
    const std::string name = CalledName(callee);
    if (callee.Has(kComputed) && !FindPhpFunction(name) && !FindUser(name) && AnyHas(arguments, kWholeRequest)) {
      Report(PhpFindingKind::kHidden, "", callee.way);
    }
    return CallNamed(name, arguments, callee.Has(kComputed), callee.way);
  }
  if (callee.array && callee.array->size() == 2 && (*callee.array)[1].second.HasText()) return {};
  if (callee.Has(kFromRequest)) {
    Report(PhpFindingKind::kRequestCall, frame.callee.key == 0 ? "" : "$");
  } else if (callee.function == 0 && !callee.array && AnyHas(arguments, kWholeRequest)) {
    Report(PhpFindingKind::kHidden, "", callee.way);  // what is called cannot be told, what it is given is the request
  }
  PhpValue result;
  for (const PhpValue& argument : arguments) result.Join(argument);
  result.origin &= kFromRequest | kDecoded;
  return result;
}

PhpValue CPhpMachine::CallNamed(std::string_view name, std::span<PhpValue> arguments, bool hidden, HidingWay way) {
  if (hidden && IsDangerousName(name) && !arguments.empty()) Report(PhpFindingKind::kHidden, name, way);
  if (Function* const user = FindUser(name)) {
    PhpValue result = CallUser(*user, arguments);
    return result;
  }
  if (IsToolFunction(name) && !arguments.empty() &&
      AnyHas(arguments.first(std::min<std::size_t>(arguments.size(), name == "curl_setopt" ? 3 : 2)), kWholeRequest)) {
    Report(PhpFindingKind::kTool, name);
  }
  const PhpFunction* const function = FindPhpFunction(name);
  if (function != nullptr) return CallKnown(*function, arguments);
  if (name == "define" && arguments.size() >= 2 && arguments[0].HasText()) {
    Store(KeyIn(kConstScope, NameOf(arguments[0].Text())), arguments[1], false);
    return {};
  }
  if (name == "ord" || name == "hexdec" || name == "bindec" || name == "octdec") {
    PhpValue value = EvaluatePhpFunction(name, arguments, kWorkAnyway);
    if (!value.is_number && AnyHas(arguments, kFromRequest | kDecoded)) {
      value.origin = kDecoded;
      for (const PhpValue& argument : arguments) value.origin |= argument.origin & kFromRequest;
    }
    return value;
  }
  if (name == "filter_var" || name == "filter_var_array" || name == "yaml_parse" || name == "iterator_apply") {
    for (const PhpValue& argument : arguments) {
      if (!argument.array || !Spend(argument.array->size())) continue;
      for (const auto& [key, element] : *argument.array) {
        const std::string callback = CalledName(element);
        if (AnyHas(arguments, kFromRequest) && IsPhpRunner(callback)) Report(PhpFindingKind::kBackdoor, callback);
        if (Function* const user = FindUser(callback)) CallUser(*user, arguments.first(1));
      }
    }
  }
  if (name == "serialize" || name == "unserialize") {
    if (AnyHas(arguments, kFromRequest) && Spend(variables_.size())) {
      for (Variable& variable : variables_) {
        if (variable.scope == kMemberScope && variable.assigned) variable.value.origin |= kFromRequest;
      }
    }
  }
  return {};
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
      if (arguments.size() > 1 && arguments[1].HasText()) made.origin = arguments[1].origin & kComputed;
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
      if (arguments.size() > 2 && arguments[0].Has(kFromRequest) && arguments[1].Has(kFromRequest) &&
          arguments[2].Has(kFromRequest)) {
        Report(PhpFindingKind::kMail, name);
      }
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
      if (function_ != 0) {
        for (const PhpValue& parameter : functions_[function_ - 1].values) value.Join(parameter);
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
      PhpValue value = EvaluatePhpFunction(name, arguments, work_left_);
      Spend(value.Text().size());
      if (value.array) {
        work_left_ -= std::min(work_left_, value.array->size() * kElementWork);
        if (!Account(&*value.array)) value.array = {};
      }
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
  if (code.Has(kFromRequest)) return Report(PhpFindingKind::kBackdoor, name, code.way);
  if (code.Has(kFromNetwork)) Report(PhpFindingKind::kNetworkCode, name);
  if (code.Has(kDecoded)) Report(PhpFindingKind::kHidden, name, code.way);
  const bool scrambled =
      code.way == HidingWay::kCharacters || code.way == HidingWay::kCharacterCodes || code.way == HidingWay::kReversed;
  if (!code.HasText() && code.Has(kComputed) && scrambled) Report(PhpFindingKind::kHidden, name, code.way);
  if (code.HasText()) {
    AddNested(code.Text());
  } else if (code.Has(kNeverAssigned)) {
    Report(PhpFindingKind::kUnknownSource, name);
  }
}

void CPhpMachine::RunCommand(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.empty()) return;
  if (AnyHas(arguments.first(std::min<std::size_t>(arguments.size(), name == "pcntl_exec" ? 2 : 1)), kFromRequest)) {
    Report(PhpFindingKind::kBackdoor, name, arguments[0].way);
  } else if (arguments[0].Has(kNeverAssigned)) {
    Report(PhpFindingKind::kUnknownSource, name);
  } else if (arguments[0].Has(kFromNetwork)) {
    Report(PhpFindingKind::kNetworkCode, name);
  } else if (arguments[0].Has(kDecoded) && arguments[0].Has(kComputed)) {
    Report(PhpFindingKind::kHidden, name, arguments[0].way);
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
  if (callback.Has(kArrayLiteral)) return value;
  if (callback.HasText()) {
    const std::string name = CalledName(callback);
    if (callback.Has(kComputed) && IsDangerousName(name)) Report(PhpFindingKind::kHidden, name, callback.way);
    const bool output = function.name == "ob_start";
    if (IsPhpRunner(name) && (output || AnyHas(arguments, kFromRequest))) Report(PhpFindingKind::kBackdoor, name);
    if (IsPhpRunner(name) && AnyHas(arguments, kDecoded)) Report(PhpFindingKind::kHidden, name, value.way);
    if (function.name.starts_with("call_user_func") || function.name.starts_with("forward_static")) {
      if (function.name.ends_with("_array") && arguments.size() > 1 && arguments[1].array &&
          Spend(arguments[1].array->size() * kElementWork)) {
        std::vector<PhpValue> unpacked;
        for (const auto& [key, element] : *arguments[1].array) unpacked.push_back(element);
        return CallNamed(name, unpacked, false, callback.way);
      }
      return CallNamed(name, arguments.subspan(1), false, callback.way);
    }
    if (Function* const user = FindUser(name)) {
      std::vector<PhpValue> given(std::max<std::size_t>(user->values.size(), 1), value.Taint());
      CallUser(*user, given);
    }
    return value;
  }
  if (callback.function != 0 && callback.function <= functions_.size()) {
    Function& user = functions_[callback.function - 1];
    std::vector<PhpValue> given(user.values.size(), value.Taint());
    CallUser(user, given);
    return value;
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
    runs = arguments.size() > 3 &&
           (arguments[3].Text().find('e') != std::string_view::npos || arguments[3].Has(kWholeRequest));
  } else if (arguments[0].array && Spend(arguments[0].array->size())) {
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

PhpFlowResult FollowPhp(std::string_view source, bool in_code) { return CPhpMachine(source, in_code).Run(); }

}  // namespace qiv
