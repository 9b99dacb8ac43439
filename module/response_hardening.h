// Response headers: names of the server software removed, cookies given protection attributes, X-Frame-Options set.
//
// The pipeline runs this in every notification, so that headers set by the application are treated too; each step is
// therefore idempotent, and what the first notification set counts as nothing where the application answers for itself:
// a server that appends makes "SAMEORIGIN,DENY" of our value and the application's, of which one may go out. Nothing is
// changed once the response's headers were sent.
//
// How several cookies are treated without losing one: the server keeps "Set-Cookie" as unknown headers, one entry each,
// in the raw response that goes on the wire. Reading "Set-Cookie" by name yields one of them, and setting it with
// replacement drops all others. So each entry's value is exchanged in place for a longer copy in the request's memory,
// which lives as long as the response. Deleting by name and appending anew would depend on how a server appends (some
// join values with commas, which cookies do not survive) and could fail half way; in place, the worst failure is a
// cookie left as it was.
#pragma once

#include <string_view>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "config/website_config.h"

namespace qiv {

/// Deletes the headers that name the server software, when the site hides them. Without a response object the request
/// is allowed, with the note "System error".
void HideServerHeaders(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Cookie attributes and X-Frame-Options.
void CookieAndFrameHeaders(const RequestFacts& facts, const CheckContext& context);

/// The text that cookies get; empty for none. A response without cookies gets it as a cookie of its own. Static
/// storage.
std::string_view CookieAttributeText(const RequestSettings& request);

}  // namespace qiv
