// IP addresses and sets of address ranges.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// An IPv4 or IPv6 address. An IPv4-mapped IPv6 address (::ffff:a.b.c.d) IS the IPv4 address, however it was given.
/// Ordered by family, IPv4 first, then by number. The default is the IPv6 address "::".
class CIpAddress {
 public:
  CIpAddress() = default;

  /// IPv4: exactly four decimal parts 0-255 without leading zeros. IPv6: RFC 4291 text including an embedded IPv4
  /// ending; brackets around it and a "%scope" after it are dropped. No white space. Nothing for any other text.
  static std::optional<CIpAddress> Parse(std::string_view text);
  /// Host byte order: 0x7F000001 is 127.0.0.1.
  static CIpAddress FromIpv4(std::uint32_t address);
  /// Network byte order.
  static CIpAddress FromIpv6(const std::array<std::uint8_t, 16>& bytes);

  bool IsIpv4() const { return high_ == 0 && low_ >> 32 == kMapped; }
  /// Host byte order; 0 for an IPv6 address.
  std::uint32_t Ipv4() const { return IsIpv4() ? static_cast<std::uint32_t>(low_) : 0; }
  /// Network byte order; ::ffff:a.b.c.d for an IPv4 address.
  std::array<std::uint8_t, 16> Bytes() const;

  /// Dotted decimal, or the canonical IPv6 text (RFC 5952).
  std::string Text() const;

  /// The address one higher in the same family; nothing for the last one.
  std::optional<CIpAddress> Next() const;

  /// The first and the last address of the block that begins with `prefix` bits of this one: 0-32 for IPv4, 0-128 for
  /// IPv6.
  CIpAddress BlockBegin(unsigned prefix) const;
  CIpAddress BlockEnd(unsigned prefix) const;

  bool operator==(const CIpAddress&) const = default;
  std::strong_ordering operator<=>(const CIpAddress& other) const;

 private:
  static constexpr std::uint64_t kMapped = 0xFFFF;  // low half >> 32 of a mapped address

  CIpAddress(std::uint64_t high, std::uint64_t low) : high_(high), low_(low) {}

  std::uint64_t high_ = 0;
  std::uint64_t low_ = 0;
};

/// What one client holds: its IPv4 address, or the first address of the /64 around an IPv6 address, because within a
/// /64 a client changes its address at will.
CIpAddress ClientNetwork(const CIpAddress& client);
inline constexpr unsigned kClientNetworkBits = 64;

/// Both ends belong to it; they are of one family and in order.
struct IpRange {
  CIpAddress first;
  CIpAddress last;
};

/// One item of a range list: an address, "a-b", CIDR ("10.0.0.0/8"; bits beyond the prefix are ignored), or for IPv4
/// leading parts and "*" ("10.1.*", "10.1.*.*", "*" for every IPv4 address). Nothing for any other text, for ends in
/// reverse order or of two families.
std::optional<IpRange> ParseIpRange(std::string_view item);

/// A set of addresses: sorted tables of merged ranges, 8 bytes for an IPv4 range and 32 for an IPv6 range. Built when a
/// configuration loads and then only read: one object serves all threads.
class CIpRanges {
 public:
  /// An item of a list that is no range: where it begins in the list, and its text (cut at 64 bytes).
  struct Malformed {
    std::size_t offset;
    std::string item;
  };

  /// Adds the ranges of a list. Items stand between "|", ",", ";", white space and line ends; blanks around the "-" of
  /// a range do not divide it; an item that begins with "#" is a comment up to the end of its line. Malformed items are
  /// skipped, and listed when `malformed` is given. Returns how many were malformed.
  std::size_t Add(std::string_view list, std::vector<Malformed>* malformed = nullptr);
  void Add(const std::vector<IpRange>& ranges);

  /// O(log n).
  bool Contains(const CIpAddress& address) const;

  bool Empty() const { return ipv4_.empty() && ipv6_.empty(); }
  /// Ranges after merging.
  std::size_t Ipv4Size() const { return ipv4_.size(); }
  std::size_t Ipv6Size() const { return ipv6_.size(); }
  /// All ranges in order, IPv4 first.
  std::vector<IpRange> Ranges() const;

 private:
  struct Ipv4Range {
    std::uint32_t first;
    std::uint32_t last;
  };

  void Insert(const IpRange& range);
  void Normalize();

  std::vector<Ipv4Range> ipv4_;
  std::vector<IpRange> ipv6_;
};

}  // namespace qiv
