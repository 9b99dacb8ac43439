// Functions that are handed to others, and those that are made of texts.
#include "engines/webshell/php/calls.h"

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kMostHandlers = 16;
constexpr std::size_t kMostMade = 64;  // functions of create_function

}  // namespace

// create_function.
PhpValue CPhpCalls::MakeFunction(std::span<const PhpValue> arguments) {
  constexpr std::string_view kName = "create_function";
  if (arguments.size() > 1) sinks_.RunCode(kName, arguments[1]);
  if (AnyHas(arguments, kFromRequest)) findings_.Report(PhpFindingKind::kBackdoor, kName);
  PhpValue made;
  if (arguments.size() > 1 && made_.size() < kMostMade && budget_.Spend(arguments[1].Text().size()) &&
      budget_.Take(arguments[0].Text().size() + arguments[1].Text().size())) {
    made =
        operators_.Made(std::string(kPhpMadeFunction) + std::to_string(made_.size()), arguments[1].origin & kComputed);
    made_.push_back({std::string(arguments[0].Text()), std::string(arguments[1].Text())});
  }
  return made;
}

// A function of create_function is called: its body is judged with what it is given.
PhpValue CPhpCalls::CallMade(std::string_view name, std::span<const PhpValue> arguments) {
  const auto number = static_cast<std::size_t>(ToNumber(name.substr(kPhpMadeFunction.size())));
  const bool decoded = AnyHas(arguments, kDecoded);
  if (number >= made_.size() || !(decoded || AnyHas(arguments, kFromRequest | kServerList))) return {};
  if (made_[number].body.empty()) {  // nobody knows what it does
    findings_.Report(PhpFindingKind::kHidden, "create_function", HidingWay::kOther);
    return {};
  }
  std::string code;
  for (const std::string_view parameter : Split(std::string_view(made_[number].parameters), ',')) {
    const std::size_t begin = parameter.find('$');
    if (begin == std::string_view::npos) continue;
    std::size_t end = begin + 1;
    while (end < parameter.size() && IsWordByte(parameter[end])) ++end;
    code.append(parameter.substr(begin, end - begin)).append(decoded ? "=base64_decode($0);" : "=$_REQUEST[0];");
  }
  findings_.AddNested(code + made_[number].body);
  return {};
}

// A function of the file is handed to one that calls it.
void CPhpCalls::CallBack(PhpUserFunction& user, std::string_view caller, const PhpValue& value) {
  PhpValue given = value.Taint();
  if (caller == "ob_start") given.Join(printed_);
  if (caller.starts_with("set_e") && handlers_.size() < kMostHandlers) {
    handlers_.push_back(&user);
    given.Join(thrown_);
  }
  functions_.BindAll(user, given);
}

void CPhpCalls::RunHandlers(const PhpValue& given) {
  if (!given.Has(kFromRequest)) return;
  for (PhpUserFunction* const handler : handlers_) {
    if (!handler->values.empty()) functions_.BindAll(*handler, given.Taint());
  }
}

PhpValue CPhpCalls::RunCallback(const PhpFunction& function, std::span<PhpValue> arguments) {
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
    if (PhpUserFunction* const user = FindUser(method)) {
      functions_.BindAll(*user, value.Taint());
    }
    return value;
  }
  if (callback.HasText()) return RunNamedCallback(function, callback, value, arguments);
  if (callback.function != 0 && callback.function <= functions_.Count()) {
    CallBack(functions_.At(callback.function - 1), function.name, value);
    return value;
  }
  // What is called cannot be told, what it is given is the request.
  if (callback.Has(kComputed) && !callback.array && AnyHas(arguments, kWholeRequest)) {
    findings_.Report(PhpFindingKind::kHidden, "", callback.way);
  }
  if (callback.Has(kFromRequest) && !callback.array) findings_.Report(PhpFindingKind::kRequestCall, function.name);
  if (callback.Has(kDecoded) && AnyHas(arguments, kFromRequest))
    findings_.Report(PhpFindingKind::kHidden, function.name, callback.way);
  return value;
}

// A function is handed the name of another.
PhpValue CPhpCalls::RunNamedCallback(const PhpFunction& function, const PhpValue& callback, const PhpValue& value,
                                     std::span<PhpValue> arguments) {
  const std::string name = CalledName(callback);
  if (name.starts_with(kPhpMadeFunction)) return CallMade(name, arguments);
  if (function.name == "fromcallable" || function.name == "reflectionfunction") return callback;
  if (callback.Has(kComputed) && IsPhpFunction(name, PhpFunction::kDangerous))
    findings_.Report(PhpFindingKind::kHidden, name, callback.way);
  const bool output = function.name == "ob_start" || function.name.starts_with("set_e") ||
                      function.name == "spl_autoload_register" || function.name == "header_register_callback";
  if (IsPhpRunner(name) && (output || AnyHas(arguments, kFromRequest)))
    findings_.Report(PhpFindingKind::kBackdoor, name);
  if (IsPhpRunner(name) && AnyHas(arguments, kDecoded)) findings_.Report(PhpFindingKind::kHidden, name, value.way);
  if (function.name.starts_with("call_user_func") || function.name.starts_with("forward_static")) {
    if (function.name.ends_with("_array") && arguments.size() > 1 && arguments[1].array &&
        budget_.HasRoom(arguments[1].array->size() * sizeof(PhpValue)) &&
        budget_.Spend(arguments[1].array->size() * kPhpElementWork)) {
      std::vector<PhpValue> unpacked;
      for (const auto& [key, element] : *arguments[1].array) unpacked.push_back(element);
      return CallNamed(CalledBy(name), unpacked, false, callback.way);
    }
    return CallNamed(CalledBy(name), arguments.subspan(1), false, callback.way);
  }
  if (PhpUserFunction* const user = FindUser(name)) CallBack(*user, function.name, value);
  return value;
}

}  // namespace qiv
