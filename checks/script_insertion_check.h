// Inserts the site's script into its pages.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Whether the request is for a page that gets the script.
bool GetsScript(const RequestFacts& facts, const WebsiteConfig& site);

/// Adds the script to result.request.edits, in front of the last "</body>" of an HTML response that was read whole and
/// may change. Reads context.config and context.response. Decides nothing. What does not begin with markup (JSON that
/// is sent as a page), a page that has no "</body>" or has more behind it than its end, one in UTF-16 or in a charset
/// in which the script cannot be written, and one that holds the script there already stay as they are.
void ScriptInsertionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
