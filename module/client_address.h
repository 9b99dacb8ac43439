// Who sent the request: the socket's address, the address a proxy forwarded, and which of the two counts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "checks/request_facts.h"
#include "common/ip_address.h"

namespace iis {
class IHttpContext;
class IHttpRequest;
}  // namespace iis

namespace qiv {

/// Without line breaks, tabs, "unknown", and blanks and commas at the ends. A text that is exactly "unknown" stays.
std::string CleanForwardedFor(std::string_view text);

/// The address in a cleaned X-Forwarded-For. Of a list the last item counts: it is the one the nearest proxy wrote,
/// while all before it is whatever the client chose to send. A port after the address is dropped.
std::optional<CIpAddress> ForwardedAddress(std::string_view cleaned);

/// Fills the forwarded, client, local and proxy fields. With `cdn` the forwarded address is the client's. False when
/// the socket's address is neither IPv4 nor IPv6.
bool CollectAddresses(iis::IHttpContext& context, iis::IHttpRequest& request, bool cdn, RequestFacts& facts);

}  // namespace qiv
