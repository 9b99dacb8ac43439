// The authorization password: who is blocked may type it on the block page and is then let pass for a while.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Takes the form of the block page: the right password lets the client pass (the service is asked to authorise it, and
/// a cookie says so until that has happened) and sends it back to the same page; what the form sent never reaches the
/// application. Five wrong ones within ten minutes lock the client. Lets a client with the cookie pass.
void PasswordCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Wrong passwords that lock a client, and the seconds within which they do.
inline constexpr std::int64_t kMostWrongPasswords = 5;
inline constexpr std::int64_t kWrongPasswordPeriod = 10 * 60;

}  // namespace qiv
