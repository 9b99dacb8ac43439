// Inserts the site's script into its pages.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Adds the script to result.request.edits, in front of the last "</body>" of an HTML response that was read whole and
/// may change. Reads context.config and context.response. Decides nothing. A page that has no "</body>", is in UTF-16,
/// in a charset in which the script cannot be written, or holds the script there already stays as it is.
void ScriptInsertionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
