// Checks of a request's shape: its size, its method, who it says it is, and the form of its URL.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Limits on the length of the URL, of the headers together, of named headers and of the body.
void OverflowCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Search engines that are denied, and clients that pretend to be one: their user agent names one of those whose
/// addresses are known, and their address is none of them.
void SpiderCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Requests that came through a proxy, except one that the site itself stands behind.
void ProxyCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Forged X-Forwarded-For, and what url_shape.h judges.
void UrlCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Methods that are not admitted.
void MethodCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// A folder's listing in the response.
void DirectoryListingCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
