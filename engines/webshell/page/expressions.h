// Expressions of a page are worked through token by token with a stack of open brackets; each holds what its arguments
// and the value built so far are known to be. Nothing recurses.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "engines/webshell/flow/stack.h"
#include "engines/webshell/page/calls.h"
#include "engines/webshell/page/frame.h"
#include "engines/webshell/page/script.h"

namespace qiv {

class CPageExpressions {
 public:
  CPageExpressions(CPageLayers* layers, CPageScopes* scopes, CPageFunctions* functions, CPageOperators* operators,
                   CPageSinks* sinks, CPageCalls* calls, CPageFindings* findings)
      : layers_(*layers),
        scopes_(*scopes),
        functions_(*functions),
        operators_(*operators),
        sinks_(*sinks),
        calls_(*calls),
        findings_(*findings) {}

  /// Before each part of the code.
  void Restart() { with_ = {}; }

  /// A segment is an expression with what it is assigned to. `condition`: nothing is assigned.
  void Begin(bool condition);
  void Step(const Token& token);
  /// Its value, assigned; `empty`: it had no token.
  void End(bool empty);

  /// "return" in front of a segment: what it gives is the function's.
  void BeginReturn() { targets_.push_back({functions_.Current(), false, false, {}, PageObject::kNone}); }
  /// "with": what a "." without anything in front stands behind, is the last segment's value.
  void SetWith() { with_ = operators_.Copy(frames_[0].value); }
  /// Whether statements name the fields of a program's start that is being made.
  void SetInitialises(bool initialises) { initialises_ = initialises; }

 private:
  PageFrame& Top() { return frames_[depth_]; }
  void Constant(const Token& token);
  void Word(std::string_view word);
  bool IsKeyword(std::string_view word);
  void Mark(char mark);
  void Dot();
  void OpenBracket(char mark);
  void CloseBracket();
  void Comma();
  void Compare();
  void BeginOperand();
  void FinishOperand(char next);
  void FinishArgument();
  PageValue Read(const PageFrame& frame);
  void Open(bool call, bool without_brackets);
  void Close();
  void Equals(bool appends);
  void Assign();
  void Set(std::string_view name, const PageValue& value, bool appends);

  CPageLayers& layers_;
  CPageScopes& scopes_;
  CPageFunctions& functions_;
  CPageOperators& operators_;
  CPageSinks& sinks_;
  CPageCalls& calls_;
  CPageFindings& findings_;
  CFlowStack<PageFrame, 4> frames_;  // as many as were ever open; those up to depth_ are
  std::size_t depth_ = 0;
  std::size_t ignored_ = 0;  // brackets opened below the deepest
  std::vector<PageTarget> targets_;
  PageValue with_;
  bool condition_ = false;
  bool made_next_ = false;  // the last word was "new"
  bool initialises_ = false;
};

}  // namespace qiv
