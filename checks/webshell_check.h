// Webshells in requests: scripts that are planted through a parameter, a body or a header, and what the clients of
// webshells send to them.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Leaves status at 0 or sets it to 2. Reads context.config, context.webshells and the raw texts of query, body and
/// headers; files in a multipart form are the upload check's. Ordinary texts cost a search for a few bytes; what may be
/// code is analysed, up to a bound for each request.
void WebshellCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
