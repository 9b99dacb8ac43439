// The sinks of a PHP file: what runs code, commands or files, what writes and sends, and which values may not get
// there.
#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/findings.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/value.h"

namespace qiv {

/// `name`, here: of the function that is called, in lower case.
class CPhpSinks {
 public:
  /// `source`: bytes of the file.
  CPhpSinks(std::size_t source, CFlowBudget* budget, CPhpOperators* operators, CPhpFindings* findings)
      : source_(source), budget_(*budget), operators_(*operators), findings_(*findings) {}

  void RunCode(std::string_view name, const PhpValue& code);
  void RunCommand(std::string_view name, std::span<const PhpValue> arguments);
  /// A regular expression, which may run its replacement.
  void RunPattern(std::string_view name, std::span<const PhpValue> arguments);
  /// Arguments of a method, or of a class of PHP's own (`built_in`), which call what they are given by name.
  void HandRunners(std::span<const PhpValue> arguments, const PhpValue& object, bool built_in);
  void Include(const PhpValue& path);
  PhpValue Open(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue Read(std::string_view name, std::span<const PhpValue> arguments);
  void Write(std::string_view name, std::span<const PhpValue> arguments);
  void Move(std::string_view name, std::span<const PhpValue> arguments);
  void Mail(std::span<const PhpValue> arguments);
  /// Whether something of one pass is known in the next.
  bool Keeps() const { return !written_.empty(); }

 private:
  static constexpr std::size_t kMostWritten = 4096;  // files that are remembered

  std::size_t source_;
  CFlowBudget& budget_;
  CPhpOperators& operators_;
  CPhpFindings& findings_;
  std::set<std::string, std::less<>> written_;  // files that got their content from the request
};

}  // namespace qiv
