#include "engines/webshell/php/sinks.h"

#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/sources.h"

namespace qiv {
namespace {

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

void CPhpSinks::RunCode(std::string_view name, const PhpValue& code) {
  const std::uint32_t request = kFromRequest | kServerList | (name == "assert" ? 0U : std::uint32_t{kDerived});
  if (code.Has(request)) return findings_.Report(PhpFindingKind::kBackdoor, name, code.way);
  if (code.Has(kFromNetwork)) findings_.Report(PhpFindingKind::kNetworkCode, name);
  if (code.Has(kDecoded)) findings_.Report(PhpFindingKind::kHidden, name, code.way);
  const bool scrambled =
      code.way == HidingWay::kCharacters || code.way == HidingWay::kCharacterCodes || code.way == HidingWay::kReversed;
  if (!code.HasText() && code.Has(kComputed) && scrambled) findings_.Report(PhpFindingKind::kHidden, name, code.way);
  if (code.HasText()) {
    if (name == "assert") {  // a test of the program's own, not a command
      for (const std::string_view run : {"system(", "eval(", "exec(", "passthru(", "phpinfo("}) {
        if (operators_.Holds(code, run)) findings_.Report(PhpFindingKind::kHidden, name);
      }
    }
    findings_.AddNested(code.Text());
  } else if (code.Has(kNeverAssigned)) {
    findings_.Report(PhpFindingKind::kUnknownSource, name);
  }
}

void CPhpSinks::RunCommand(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.empty()) return;
  if (operators_.Holds(arguments[0], "sh -i") || operators_.Holds(arguments[0], "/dev/tcp/")) {
    return findings_.Report(PhpFindingKind::kBackdoor, name);  // a shell for somebody who is not there
  }
  if (AnyHas(
          arguments.first(std::min<std::size_t>(arguments.size(), name == "pcntl_exec" || name == "ssh2_exec" ? 2 : 1)),
          kFromRequest | kServerList)) {
    findings_.Report(PhpFindingKind::kBackdoor, name, arguments[0].way);
  } else if (arguments[0].Has(kNeverAssigned)) {
    findings_.Report(PhpFindingKind::kUnknownSource, name);
  } else if (arguments[0].Has(kFromNetwork)) {
    findings_.Report(PhpFindingKind::kNetworkCode, name);
  } else if (arguments[0].Has(kDecoded) && arguments[0].Has(kComputed)) {
    findings_.Report(PhpFindingKind::kHidden, name, arguments[0].way);
  }
}

void CPhpSinks::RunPattern(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.size() < 2) return;
  const bool multi_byte = name.starts_with("mb_");
  bool runs = false;
  if (multi_byte) {
    runs = arguments.size() > 3 && (operators_.Holds(arguments[3], "e") || arguments[3].Has(kWholeRequest));
  } else if (arguments[0].array && budget_.Spend(arguments[0].array->size() * kPhpElementWork)) {
    for (const auto& [key, element] : *arguments[0].array) runs |= RunsReplacement(element.Text());
  } else {
    runs = RunsReplacement(arguments[0].Text());
  }
  if (!multi_byte && arguments[0].Has(kWholeRequest) && arguments[1].Has(kWholeRequest)) {
    return findings_.Report(PhpFindingKind::kBackdoor, name);
  }
  if (!runs) return;
  if (AnyHas(arguments, kFromRequest)) return findings_.Report(PhpFindingKind::kBackdoor, name);
  if (arguments[1].Has(kDecoded) || (arguments[0].Has(kComputed) && arguments[0].way == HidingWay::kCharacters)) {
    findings_.Report(PhpFindingKind::kHidden, name, arguments[1].way);
  }
  if (arguments[1].Has(kNeverAssigned)) findings_.Report(PhpFindingKind::kUnknownSource, name);
  if (arguments[1].HasText()) findings_.AddNested(arguments[1].Text());
}

void CPhpSinks::HandRunners(std::span<const PhpValue> arguments, const PhpValue& object, bool built_in) {
  constexpr std::size_t kLongestName = 32;
  for (const PhpValue& argument : arguments) {
    if (!argument.HasText() || argument.Text().size() > kLongestName) continue;
    const std::string text = CCharSet::LowerAscii(argument.Text());
    const bool runner =
        built_in ? IsPhpRunner(text) : text == "assert" || text == "passthru" || text == "shell_exec" || text == "eval";
    if (argument.Has(kComputed) && IsPhpRunner(text) && text != "exec")
      findings_.Report(PhpFindingKind::kHidden, text, argument.way);
    if (runner && (AnyHas(arguments, kFromRequest) || object.Has(kFromRequest)))
      findings_.Report(PhpFindingKind::kBuiltIn, text);
  }
}

}  // namespace qiv
