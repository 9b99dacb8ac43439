// Black and white lists: addresses, URLs, user agents, referers, areas.
//
// The first check of every notification. All white lists come before any black list, so a client on a white list is
// never blocked by a list.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Sets status to 1 (allowed: no further check), 2 (blocked), or leaves it.
void ListsCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
