// Injection protection: SQL injection and XSS in query, body and headers.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Leaves status at 0 or sets it to 2. Reads context.config and context.library. Linear in the request.
void InjectionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
