// IP addresses as text.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qiv {

/// Eight groups of an IPv6 address, the first one first, each a number.
using Ipv6Groups = std::array<std::uint16_t, 8>;

/// Exactly four decimal parts 0-255 without leading zeros; host byte order (0x7F000001 is 127.0.0.1). Nothing for any
/// other text.
std::optional<std::uint32_t> ParseIpv4Text(std::string_view text);
/// RFC 4291 text, including an embedded IPv4 ending; no brackets, no scope. Nothing for any other text.
std::optional<Ipv6Groups> ParseIpv6Text(std::string_view text);

/// Dotted decimal.
std::string Ipv4Text(std::uint32_t address);
/// The canonical text (RFC 5952): lower case, no leading zeros, the longest run of at least two zero groups (the first
/// of equals) as "::".
std::string Ipv6Text(const Ipv6Groups& groups);

}  // namespace qiv
