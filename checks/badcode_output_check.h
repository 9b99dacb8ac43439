// What a response gives away: source of scripts, error pages and stack traces, errors of databases and how to connect
// to them, listings of folders. By the families leak_* of rules/badcode.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Leaves status alone or sets it to 2. Reads context.config, context.leaks and context.response. Nothing in the text
/// is decoded: a page that shows such a text as a quotation escapes it. The family leak_trace counts only where the
/// response says itself that something failed (status 500 and above), which then stays its status. Who was shown
/// a leak is not counted towards a lock.
void BadcodeOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
