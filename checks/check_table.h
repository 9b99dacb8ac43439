// The one ordered list of protection checks.
#pragma once

#include <span>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Where in a notification a check runs. The pipeline runs the rows of a stage in table order.
enum class Stage {
  kLists,          ///< black and white lists, first in every notification
  kRequest,        ///< while nothing has decided: shape, type and upload, access, injection; phase 1
  kRequestAlways,  ///< malicious code and sensitive words on the request; phase 1, allowed requests too
  kResponseBody,   ///< malicious code, webshell output and sensitive words in the response; phase 3
  kNotFound,       ///< the reply is a 404; phase 4; its decision never changes this reply
  kAfterDecision,  ///< smart blocking; phases 1 and 3
};

struct CheckRow {
  const char* name;  ///< stable, lower snake case; written to the event log
  Stage stage;
  void (*run)(const RequestFacts& facts, const CheckContext& context, CheckResult& result);
};

/// All rows, grouped by stage in the order of Stage.
std::span<const CheckRow> CheckTable();

}  // namespace qiv
