#include "common/ip_address.h"

#include <limits>

#include "base/address_text.h"

namespace qiv {
namespace {

constexpr std::uint64_t kAllOnes = std::numeric_limits<std::uint64_t>::max();

std::optional<Ipv6Groups> ParseIpv6(std::string_view text) {
  if (text.starts_with('[')) {
    if (!text.ends_with(']')) return std::nullopt;
    text = text.substr(1, text.size() - 2);
  }
  const std::size_t scope = text.find('%');
  if (scope != text.npos) {
    if (scope + 1 == text.size()) return std::nullopt;
    text = text.substr(0, scope);
  }
  return ParseIpv6Text(text);
}

// Mask of the bits after the first `prefix` of 128, as two halves.
std::uint64_t HighHostBits(unsigned prefix) { return prefix >= 64 ? 0 : kAllOnes >> prefix; }
std::uint64_t LowHostBits(unsigned prefix) {
  if (prefix >= 128) return 0;
  return prefix <= 64 ? kAllOnes : kAllOnes >> (prefix - 64);
}

}  // namespace

std::optional<CIpAddress> CIpAddress::Parse(std::string_view text) {
  constexpr std::size_t kMostBytes = 128;  // an address and a scope name are shorter by far
  if (text.size() > kMostBytes) return std::nullopt;
  if (const auto ipv4 = ParseIpv4Text(text)) return FromIpv4(*ipv4);
  const auto groups = ParseIpv6(text);
  if (!groups) return std::nullopt;
  CIpAddress address;
  for (std::size_t i = 0; i < 4; ++i) {
    address.high_ = address.high_ << 16 | (*groups)[i];
    address.low_ = address.low_ << 16 | (*groups)[i + 4];
  }
  return address;
}

CIpAddress CIpAddress::FromIpv4(std::uint32_t address) { return {0, kMapped << 32 | address}; }

CIpAddress CIpAddress::FromIpv6(const std::array<std::uint8_t, 16>& bytes) {
  CIpAddress address;
  for (std::size_t i = 0; i < 8; ++i) {
    address.high_ = address.high_ << 8 | bytes[i];
    address.low_ = address.low_ << 8 | bytes[i + 8];
  }
  return address;
}

std::array<std::uint8_t, 16> CIpAddress::Bytes() const {
  std::array<std::uint8_t, 16> bytes;
  for (std::size_t i = 0; i < 8; ++i) {
    bytes[i] = static_cast<std::uint8_t>(high_ >> (56 - 8 * i));
    bytes[i + 8] = static_cast<std::uint8_t>(low_ >> (56 - 8 * i));
  }
  return bytes;
}

std::string CIpAddress::Text() const {
  if (IsIpv4()) return Ipv4Text(Ipv4());
  Ipv6Groups groups;
  for (std::size_t i = 0; i < 4; ++i) {
    groups[i] = static_cast<std::uint16_t>(high_ >> (48 - 16 * i));
    groups[i + 4] = static_cast<std::uint16_t>(low_ >> (48 - 16 * i));
  }
  return Ipv6Text(groups);
}

std::optional<CIpAddress> CIpAddress::Next() const {
  if (IsIpv4()) {
    if (Ipv4() == std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return FromIpv4(Ipv4() + 1);
  }
  CIpAddress next(low_ == kAllOnes ? high_ + 1 : high_, low_ + 1);
  if (next == CIpAddress()) return std::nullopt;
  // Steps over the mapped addresses, which are of the other family.
  if (next.IsIpv4()) next.low_ = (kMapped + 1) << 32;
  return next;
}

CIpAddress CIpAddress::BlockBegin(unsigned prefix) const {
  const unsigned bits = IsIpv4() ? prefix + 96 : prefix;
  return {high_ & ~HighHostBits(bits), low_ & ~LowHostBits(bits)};
}

CIpAddress CIpAddress::BlockEnd(unsigned prefix) const {
  const unsigned bits = IsIpv4() ? prefix + 96 : prefix;
  return {high_ | HighHostBits(bits), low_ | LowHostBits(bits)};
}

CIpAddress ClientNetwork(const CIpAddress& client) {
  return client.IsIpv4() ? client : client.BlockBegin(kClientNetworkBits);
}

std::strong_ordering CIpAddress::operator<=>(const CIpAddress& other) const {
  if (const auto family = other.IsIpv4() <=> IsIpv4(); family != 0) return family;
  if (const auto high = high_ <=> other.high_; high != 0) return high;
  return low_ <=> other.low_;
}

}  // namespace qiv
