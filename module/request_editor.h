// Changes a request before the application gets it, as checks decided.
#pragma once

#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace iis {
class IHttpContext;
}

namespace qiv {

/// The parts that stayed as they were: the server took no other, or had no memory for it.
struct RefusedEdits {
  bool query = false;  ///< or the URL was rewritten, and what was sent stands in it no more
  bool body = false;
  bool headers = false;  ///< one of them, or more
};

/// Sets the query, the headers and the body anew. The application gets all of a part, or all of what it was, with the
/// Content-Length of what it gets where the request has one. A URL that was rewritten keeps its path. Memory of the
/// request for each part; throws std::bad_alloc with the parts before it done.
RefusedEdits EditRequest(iis::IHttpContext& context, const RequestFacts& facts, const DecidedEdits& edits);

}  // namespace qiv
