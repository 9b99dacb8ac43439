// Objects: what their methods give, and what they give away.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/machine.h"

namespace qiv {
namespace {

bool IsBuiltInClass(std::string_view name) {
  constexpr std::array<std::string_view, 9> kClasses = {"callbackfilteriterator",
                                                        "recursivecallbackfilteriterator",
                                                        "arrayobject",
                                                        "arrayiterator",
                                                        "reflectionmethod",
                                                        "splfileobject",
                                                        "splobjectstorage",
                                                        "soapclient",
                                                        "splheap"};
  return std::find(kClasses.begin(), kClasses.end(), name) != kClasses.end();
}

}  // namespace

PhpValue CPhpMachine::New(const Frame& frame, const PhpValue& name_value, std::span<PhpValue> arguments) {
  PhpValue object;
  for (const PhpValue& argument : arguments) object.origin |= argument.origin & kFromNetwork;
  if (!frame.named) {
    if (name_value.Has(kWholeRequest) && AnyHas(arguments, kFromRequest)) Report(PhpFindingKind::kRequestCall, "");
    return object;
  }
  const std::string_view name = names_.Text(frame.callee_name);
  constexpr std::size_t kOneClass = 4096;  // bytes: in a longer file it may be another class's
  if (Function* const constructor = source_.size() <= kOneClass ? FindMagic(kConstruct) : nullptr) {
    CallUser(*constructor, arguments);
  }
  if (name == "com") com_objects_ = true;
  if (name == "reflectionfunction") return CallNamed(CalledBy(frame.callee_name), arguments, false, {});
  const bool exception = name.ends_with("exception") || name.ends_with("error");
  if (!exception && !IsBuiltInClass(name)) return object;
  if (AnyHas(arguments, kFromRequest)) object.origin |= kFromRequest;
  if (exception) {
    thrown_.Join(object);
  } else {
    ReportRunners(arguments, object, true);
  }
  return object;
}

// PHP's own classes call what they are given by name.
void CPhpMachine::ReportRunners(std::span<const PhpValue> arguments, const PhpValue& object, bool built_in) {
  constexpr std::size_t kLongestName = 32;
  for (const PhpValue& argument : arguments) {
    if (!argument.HasText() || argument.Text().size() > kLongestName) continue;
    const std::string text = CCharSet::LowerAscii(argument.Text());
    const bool runner =
        built_in ? IsPhpRunner(text) : text == "assert" || text == "passthru" || text == "shell_exec" || text == "eval";
    if (argument.Has(kComputed) && IsPhpRunner(text) && text != "exec")
      Report(PhpFindingKind::kHidden, text, argument.way);
    if (runner && (AnyHas(arguments, kFromRequest) || object.Has(kFromRequest))) Report(PhpFindingKind::kBuiltIn, text);
  }
}

PhpValue CPhpMachine::CallMember(std::string_view name, std::span<PhpValue> arguments, const Operand& callee) {
  if (com_objects_ && (name == "run" || name == "exec" || name == "shellexecute") && AnyHas(arguments, kFromRequest)) {
    Report(PhpFindingKind::kBackdoor, name);
  }
  if (Function* const user = FindUser(name)) return CallUser(*user, arguments);
  ReportRunners(arguments, callee.value, false);
  if (Function* const any = FindMagic(kCallAny); any && any->values.size() > 1) {
    PhpValue list;
    for (const PhpValue& argument : arguments) list.Join(argument);
    const std::vector<PhpValue> given = {PhpValue::OfText(std::string(name)), list};
    CallUser(*any, given);
  }
  if (name == "getmessage" || name == "gettraceasstring" || name == "getprevious") return thrown_;
  if (name == "getdoccomment") {
    PhpValue comment;
    comment.origin = kDecoded | kComputed;
    comment.way = HidingWay::kOther;
    return comment;
  }
  if (name == "cdef" && !arguments.empty()) {
    for (const std::string_view run : {"system(", "popen(", "exec"}) {
      if (Holds(arguments[0], run)) Report(PhpFindingKind::kBuiltIn, "FFI");
    }
  }
  if (name == "fwrite" && callee.value.Has(kFromRequest) && AnyHas(arguments, kWholeRequest)) {
    Report(PhpFindingKind::kFileWrite, name);
  }
  if (const PhpFunction* const function = FindPhpFunction(name);
      function != nullptr && function->kind == PhpFunctionKind::kCallback) {
    if (function->name == "uasort" || function->name == "uksort" || function->name == "usort") {
      if (!arguments.empty() && arguments[0].HasText() && IsPhpRunner(CalledName(arguments[0]))) {
        Report(PhpFindingKind::kBuiltIn, arguments[0].Text());
      }
      if (!arguments.empty() && arguments[0].Has(kFromRequest)) Report(PhpFindingKind::kRequestCall, name);
    } else if (function->callback >= 0) {
      const auto at = static_cast<std::size_t>(function->callback);
      const bool database = name.ends_with("createfunction");
      if (database && at < arguments.size() && IsPhpRunner(CalledName(arguments[at]))) {
        Report(PhpFindingKind::kBuiltIn, arguments[at].Text());
      }
      return RunCallback(*function, arguments);
    }
  }
  if (name == "invoke" || name == "invokeargs" || name == "__invoke") {
    if (callee.value.HasText()) return CallNamed(CalledBy(CalledName(callee.value)), arguments, false, {});
    if (callee.value.Has(kFromRequest)) Report(PhpFindingKind::kRequestCall, name);
  }
  return {};
}

}  // namespace qiv
