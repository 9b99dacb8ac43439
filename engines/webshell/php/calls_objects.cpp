// Objects: what their methods give.
#include "engines/webshell/php/calls.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

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

PhpValue CPhpCalls::New(const PhpFrame& frame, const PhpValue& name_value, std::span<PhpValue> arguments) {
  PhpValue object;
  for (const PhpValue& argument : arguments) object.origin |= argument.origin & kFromNetwork;
  if (!frame.named) {
    if (name_value.Has(kWholeRequest) && AnyHas(arguments, kFromRequest))
      findings_.Report(PhpFindingKind::kRequestCall, "");
    return object;
  }
  const std::string_view name = symbols_.Text(frame.callee_name);
  constexpr std::size_t kOneClass = 4096;  // bytes: in a longer file it may be another class's
  if (PhpUserFunction* const constructor =
          source_ <= kOneClass ? functions_.FindMagic(PhpMagic::kConstruct) : nullptr) {
    functions_.Bind(*constructor, arguments);
  }
  if (name == "com") com_objects_ = true;
  if (name == "reflectionfunction") return CallNamed(CalledBy(frame.callee_name), arguments, false, {});
  const bool exception = name.ends_with("exception") || name.ends_with("error");
  if (!exception && !IsBuiltInClass(name)) return object;
  if (AnyHas(arguments, kFromRequest)) object.origin |= kFromRequest;
  if (exception) {
    thrown_.Join(object);
  } else {
    sinks_.HandRunners(arguments, object, true);
  }
  return object;
}

PhpValue CPhpCalls::CallMember(std::string_view name, std::span<PhpValue> arguments, const PhpOperand& callee) {
  if (com_objects_ && (name == "run" || name == "exec" || name == "shellexecute") && AnyHas(arguments, kFromRequest)) {
    findings_.Report(PhpFindingKind::kBackdoor, name);
  }
  if (PhpUserFunction* const user = FindUser(name)) return functions_.Bind(*user, arguments);
  sinks_.HandRunners(arguments, callee.value, false);
  if (PhpUserFunction* const any = functions_.FindMagic(PhpMagic::kCallAny); any && any->values.size() > 1) {
    PhpValue list;
    for (const PhpValue& argument : arguments) list.Join(argument);
    const std::vector<PhpValue> given = {PhpValue::OfText(std::string(name)), list};
    functions_.Bind(*any, given);
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
      if (operators_.Holds(arguments[0], run)) findings_.Report(PhpFindingKind::kBuiltIn, "FFI");
    }
  }
  if (name == "fwrite" && callee.value.Has(kFromRequest) && AnyHas(arguments, kWholeRequest)) {
    findings_.Report(PhpFindingKind::kFileWrite, name);
  }
  if (const PhpFunction* const function = FindPhpFunction(name);
      function != nullptr && function->kind == PhpFunctionKind::kCallback) {
    if (function->name == "uasort" || function->name == "uksort" || function->name == "usort") {
      if (!arguments.empty() && arguments[0].HasText() && IsPhpRunner(CalledName(arguments[0]))) {
        findings_.Report(PhpFindingKind::kBuiltIn, arguments[0].Text());
      }
      if (!arguments.empty() && arguments[0].Has(kFromRequest)) findings_.Report(PhpFindingKind::kRequestCall, name);
    } else if (function->callback >= 0) {
      const auto at = static_cast<std::size_t>(function->callback);
      const bool database = name.ends_with("createfunction");
      if (database && at < arguments.size() && IsPhpRunner(CalledName(arguments[at]))) {
        findings_.Report(PhpFindingKind::kBuiltIn, arguments[at].Text());
      }
      return RunCallback(*function, arguments);
    }
  }
  if (name == "invoke" || name == "invokeargs" || name == "__invoke") {
    if (callee.value.HasText()) return CallNamed(CalledBy(CalledName(callee.value)), arguments, false, {});
    if (callee.value.Has(kFromRequest)) findings_.Report(PhpFindingKind::kRequestCall, name);
  }
  return {};
}

}  // namespace qiv
