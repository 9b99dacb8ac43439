// Objects: what their methods give, and what they give away.
#include <algorithm>
#include <array>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/php_machine.h"

namespace qiv {

PhpValue CPhpMachine::CallMember(std::string_view name, std::span<PhpValue> arguments, const Operand& callee) {
  pending_new_ = false;
  if (com_objects_ && (name == "run" || name == "exec" || name == "shellexecute") && AnyHas(arguments, kFromRequest)) {
    Report(PhpFindingKind::kBackdoor, name);
  }
  if (Function* const user = FindUser(name)) return CallUser(*user, arguments);
  for (const PhpValue& argument : arguments) {
    if (!argument.HasText() || argument.Text().size() > 32) continue;
    const std::string text = CCharSet::LowerAscii(argument.Text());
    const bool runner = text == "assert" || text == "passthru" || text == "shell_exec" || text == "eval";
    if (argument.Has(kComputed) && IsPhpRunner(text) && text != "exec")
      Report(PhpFindingKind::kHidden, text, argument.way);
    if (runner && (AnyHas(arguments, kFromRequest) || callee.value.Has(kFromRequest)))
      Report(PhpFindingKind::kBackdoor, text);
  }
  if (const PhpFunction* const function = FindPhpFunction(name);
      function != nullptr && function->kind == PhpFunctionKind::kCallback) {
    if (function->name == "uasort" || function->name == "uksort" || function->name == "usort") {
      if (!arguments.empty() && arguments[0].HasText() && IsPhpRunner(CCharSet::LowerAscii(arguments[0].Text()))) {
        Report(PhpFindingKind::kBackdoor, arguments[0].Text());
      }
      if (!arguments.empty() && arguments[0].Has(kFromRequest)) Report(PhpFindingKind::kRequestCall, name);
    } else if (function->callback >= 0) {
      return RunCallback(*function, arguments);
    }
  }
  if (name == "invoke" || name == "invokeargs" || name == "__invoke") {
    if (callee.value.Has(kFromRequest)) Report(PhpFindingKind::kRequestCall, name);
  }
  return {};
}

}  // namespace qiv
