// The parts of a received request from which the interface objects are built.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/http_parser.h"
#include "iis/http_types.h"

namespace qiv::host {

/// A socket address as the interface shows it.
union HostAddress {
  iis::SOCKADDR any;
  iis::SOCKADDR_IN ipv4;
  iis::SOCKADDR_IN6 ipv6;
};

/// Builds an address from IPv4 or IPv6 text. False when the text is neither.
bool ParseAddress(std::string_view text, std::uint16_t port, HostAddress* address);
/// Dotted decimal, or compressed IPv6 without brackets. Empty for another family.
std::string AddressText(const HostAddress& address);
std::uint16_t AddressPort(const HostAddress& address);

struct RequestInput {
  std::string_view method;
  std::string_view raw_url;
  std::span<const HeaderView> headers;
  std::string_view host;  ///< of the Host header
  int major_version = 1;
  int minor_version = 1;
  std::optional<std::uint64_t> content_length;
  bool chunked = false;
  bool secure = false;
  bool warm_up = false;   ///< no raw URL, no connection
  bool is_child = false;  ///< GetParentContext gives another context
  HostAddress remote{};
  HostAddress local{};
  std::uint64_t connection_id = 0;
  std::uint64_t request_id = 0;
};

}  // namespace qiv::host
