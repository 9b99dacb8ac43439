// Webshells in responses: their own pages, and the source of scripts that the server sends instead of running it.
#pragma once

#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Leaves status alone or sets it to 2. Reads facts.config, facts.webshells and facts.response_body.
void WebshellOutputCheck(RequestFacts& facts, CheckResult& result);

}  // namespace qiv
