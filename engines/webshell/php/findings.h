// What following a PHP file found: sinks that were reached, and code inside its texts for the caller to judge.
#pragma once

#include <cstddef>
#include <cstdint>
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
  void Restart(int pass) {
    pass_ = pass;
    between_ = true;
    in_call_ = false;
  }

  /// The token that is walked now stands there: what is found from now on stands in its statement, or, until EndCall,
  /// in the call that begins at that byte, and ends with the token.
  void At(std::size_t begin, std::size_t end) {
    if (between_) statement_ = static_cast<std::uint32_t>(begin);
    between_ = false;
    end_ = static_cast<std::uint32_t>(end);
  }
  void EndStatement() { between_ = true; }
  std::uint32_t StatementBegin() const { return statement_; }
  void BeginCall(std::uint32_t begin) {
    call_ = begin;
    in_call_ = true;
  }
  void EndCall() { in_call_ = false; }

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

  TextPlace Place() const {
    const std::uint32_t begin = in_call_ ? call_ : statement_;
    return {begin, end_ > begin ? end_ - begin : 0};
  }
  void Add(std::vector<PhpInnerCode>* texts, std::string_view text);
  void AddEncoded(std::string_view text);

  CFlowBudget& budget_;
  std::size_t room_;
  int pass_ = 0;
  std::uint32_t statement_ = 0;  // where the statement that is walked begins
  std::uint32_t call_ = 0;       // and the call that is worked out
  std::uint32_t end_ = 0;        // of the token that is walked
  bool between_ = true;          // two statements
  bool in_call_ = false;
  PhpFlowResult result_;
};

}  // namespace qiv
