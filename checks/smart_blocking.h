// Smart blocking: turns blocks into locks.
//
// A smart block (strict mode, or the lock switch of a list) locks its client at once. Plain blocks are counted; the
// client that collects lock_freq of them within one period of lock_freq_sec seconds is locked. A lock is a "denylist"
// line for the firewall service, which puts the client on the deny list until the lock ends.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Runs after the decision. Only while the link to the firewall service is enabled does it do anything.
void SmartBlockingCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
