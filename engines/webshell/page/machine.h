// The machine that follows a page: the parts of the walk, and its passes. See flow.h.
#pragma once

#include <cstddef>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/page/calls.h"
#include "engines/webshell/page/expressions.h"
#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/page/functions.h"
#include "engines/webshell/page/layers.h"
#include "engines/webshell/page/names.h"
#include "engines/webshell/page/operators.h"
#include "engines/webshell/page/scopes.h"
#include "engines/webshell/page/sinks.h"
#include "engines/webshell/page/walk.h"

namespace qiv {

class CPageMachine {
 public:
  CPageMachine(const PageCode& code, PageKind kind);
  CPageMachine(const CPageMachine&) = delete;
  CPageMachine& operator=(const CPageMachine&) = delete;

  PageFlow Run(CWalkBudget* walks);

 private:
  CPageFindings findings_;
  CPageLayers layers_;
  CPageNames names_;
  CPageScopes scopes_;
  CPageFunctions functions_;
  CPageOperators operators_;
  CPageSinks sinks_;
  CPageCalls calls_;
  CPageExpressions expressions_;
  CPageWalk walk_;
};

}  // namespace qiv
