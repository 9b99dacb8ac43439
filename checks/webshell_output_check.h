// Webshells in responses: their own pages, and the source of scripts that the server sends instead of running it.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Leaves status alone or sets it to 2. Reads context.config, context.webshells and context.response.
void WebshellOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
