// What following a PHP file found: sinks that were reached, and code inside its texts for the caller to judge.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/flow.h"

namespace qiv {

class CPhpFindings {
 public:
  /// `room`: bytes of nested texts that are kept.
  CPhpFindings(CFlowBudget* budget, std::size_t room) : budget_(*budget), room_(room) {}

  /// That of the first is 0: nested texts are taken in later ones, when functions are known.
  void Restart(int pass) { pass_ = pass; }

  /// Once for each kind and detail.
  void Report(PhpFindingKind kind, std::string_view detail, HidingWay way = HidingWay::kNone);
  bool IsEmpty() const { return result_.findings.empty(); }
  /// Code that the file runs or decodes.
  void AddNested(std::string_view text) { Add(&result_.nested, text); }
  /// A constant text: long ones may be code, or a program, once they are decoded. Looked at in one pass.
  void AddLiteral(std::string_view text);
  /// The file is a part of a program.
  void IsNoScriptAlone() { result_.standalone = false; }

  PhpFlowResult Take() { return std::move(result_); }

 private:
  static constexpr std::size_t kMostFindings = 16;
  static constexpr std::size_t kMostNested = 64;

  void Add(std::vector<std::string>* texts, std::string_view text);
  void AddEncoded(std::string_view text);

  CFlowBudget& budget_;
  std::size_t room_;
  int pass_ = 0;
  PhpFlowResult result_;
};

}  // namespace qiv
