// The machine that follows a PHP file: the parts of the walk, and its passes. See flow.h.
#pragma once

#include <cstddef>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/calls.h"
#include "engines/webshell/php/findings.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/php/functions.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/scopes.h"
#include "engines/webshell/php/sinks.h"
#include "engines/webshell/php/stacks.h"
#include "engines/webshell/php/symbols.h"
#include "engines/webshell/php/walk.h"

namespace qiv {

class CPhpMachine {
 public:
  /// `most_room`: see FollowPhp.
  CPhpMachine(std::string_view source, bool in_code, std::size_t most_room);
  CPhpMachine(const CPhpMachine&) = delete;
  CPhpMachine& operator=(const CPhpMachine&) = delete;

  PhpFlowResult Run(CWalkBudget* walks);

 private:
  static constexpr int kPasses = 3;  // definition behind use, then round a loop; more change nothing in practice
  static constexpr std::size_t kWorkPerByte = 8;       // budget for each byte of source: layers of decoding, with room
  static constexpr std::size_t kWorkAnyway = 1 << 18;  // and for the shortest

  std::size_t Pass(int pass);
  bool IsSettled() const;

  const int in_any_case_;  // passes: what is defined behind its use takes the second

  std::size_t room_per_byte_;
  CFlowBudget budget_;      // outlives all that is held
  std::size_t earned_ = 0;  // bytes of source that have earned their room
  CPhpSymbols symbols_;
  CPhpOperators operators_;
  CPhpStacks stacks_;
  CPhpScopes scopes_;
  CPhpFunctions functions_;
  CPhpFindings findings_;
  CPhpSinks sinks_;
  CPhpCalls calls_;
  CPhpWalk walk_;
};

}  // namespace qiv
