// The parts of the machine that follows a PHP file, as the walk and its expressions work with them.
#pragma once

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/calls.h"
#include "engines/webshell/php/findings.h"
#include "engines/webshell/php/functions.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/scopes.h"
#include "engines/webshell/php/sinks.h"
#include "engines/webshell/php/stacks.h"
#include "engines/webshell/php/symbols.h"

namespace qiv {

struct PhpParts {
  CFlowBudget& budget;
  CPhpSymbols& symbols;
  CPhpOperators& operators;
  CPhpStacks& stacks;
  CPhpScopes& scopes;
  CPhpFunctions& functions;
  CPhpFindings& findings;
  CPhpSinks& sinks;
  CPhpCalls& calls;
};

/// What works with all of them.
class CWithPhpParts {
 protected:
  explicit CWithPhpParts(const PhpParts& parts)
      : budget_(parts.budget),
        symbols_(parts.symbols),
        operators_(parts.operators),
        stacks_(parts.stacks),
        scopes_(parts.scopes),
        functions_(parts.functions),
        findings_(parts.findings),
        sinks_(parts.sinks),
        calls_(parts.calls) {}

  CFlowBudget& budget_;
  CPhpSymbols& symbols_;
  CPhpOperators& operators_;
  CPhpStacks& stacks_;
  CPhpScopes& scopes_;
  CPhpFunctions& functions_;
  CPhpFindings& findings_;
  CPhpSinks& sinks_;
  CPhpCalls& calls_;
};

}  // namespace qiv
