// Changes a request before the application gets it, as checks decided.
#pragma once

#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace iis {
class IHttpContext;
}

namespace qiv {

/// Sets the query, the headers and the body anew. A part that the server refuses to take stays as it was: the
/// application gets all of it, or all of what it was. Content-Length goes with the body where the request has one.
/// Memory of the request for each part; throws std::bad_alloc with the parts before it done.
void EditRequest(iis::IHttpContext& context, const RequestFacts& facts, const DecidedEdits& edits);

}  // namespace qiv
