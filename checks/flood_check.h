// Floods of requests (CC attacks) and scans that produce 404 replies.
//
// Requests are counted per client in fixed periods, in memory that does not grow (client_counter.h). In strict mode a
// client over the limit is locked; else it gets verification pages (verification_page.h) until it passes one or its
// lock time is over. Passing gives it a cookie (visitor_proof.h), which all worker processes take; with it a client may
// ask ten times as often before it is asked again.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// While a flood is on, the event log gets a line a minute about all of it, not one for each page.
void FloodCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Counts a 404 reply; never blocks it. The client over the limit is locked.
void NotFoundCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
