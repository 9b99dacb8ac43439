// Fills the request record from the server, once, before any check runs.
#pragma once

#include "checks/request_facts.h"

namespace iis {
class IHttpContext;
}

namespace qiv {

struct WebsiteConfig;

/// Addresses and URL. False when there is no request to read or the client's address is neither
/// IPv4 nor IPv6.
bool CollectFacts(iis::IHttpContext& context, const WebsiteConfig& config, RequestFacts& facts);

/// Method, headers, site and, when `may_read_body` and the configuration needs it, the body, which is given back to the
/// server: of a POST with a type and a length; with website_body any that ends. A compressed one is unpacked then.
/// False when there is no request to read.
bool ReadHeadersAndBody(iis::IHttpContext& context, const WebsiteConfig& config, bool may_read_body,
                        RequestFacts& facts);

}  // namespace qiv
