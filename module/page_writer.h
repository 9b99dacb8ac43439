// Answers a request with a page instead of the application's response.
#pragma once

#include <string_view>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "module/stored_context.h"

namespace qiv {

struct PageOptions {
  std::string_view extra_text;  ///< appended after the rendered page; when not empty the status stays as it is
  bool render = true;           ///< false: the extra text alone
  bool reset_response = false;  ///< clear what the response holds first
};

/// Writes the page, marks the request, and records the event: once a request, however many pages are written for it.
/// The response carries the event's identifier, result.request.event_id, as "X-Qiv-Event".
void WritePage(const RequestFacts& facts, const CheckContext& context, CheckResult& result, CStoredContexts& contexts,
               const PageOptions& options);

/// For a request that a page was written for, when its response leaves: what other modules have put on top of the
/// page's headers goes, and the identifier is there. A response that was replaced keeps its own type.
void KeepPageHeaders(iis::IHttpContext& server, std::string_view event_id);

/// Status code that a page goes out with.
int PageStatus(const PageSettings& page, const CheckResult& result);

}  // namespace qiv
