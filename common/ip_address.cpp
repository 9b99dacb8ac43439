#include "common/ip_address.h"

#include <limits>

namespace qiv {
namespace {

constexpr std::uint64_t kAllOnes = std::numeric_limits<std::uint64_t>::max();

bool IsDigitByte(char c) { return c >= '0' && c <= '9'; }

// A decimal number without leading zeros, at most `limit`, at the start of `text`; steps over it.
std::optional<std::uint32_t> TakeNumber(std::string_view* text, std::uint32_t limit) {
  std::uint32_t value = 0;
  std::size_t length = 0;
  while (length < text->size() && IsDigitByte((*text)[length])) {
    if (length != 0 && value == 0) return std::nullopt;  // leading zero: some readers take it as octal
    value = value * 10 + static_cast<std::uint32_t>((*text)[length] - '0');
    if (value > limit) return std::nullopt;
    ++length;
  }
  if (length == 0) return std::nullopt;
  text->remove_prefix(length);
  return value;
}

std::optional<std::uint32_t> ParseIpv4(std::string_view text) {
  std::uint32_t address = 0;
  for (int part = 0; part < 4; ++part) {
    if (part != 0) {
      if (!text.starts_with('.')) return std::nullopt;
      text.remove_prefix(1);
    }
    const auto number = TakeNumber(&text, 255);
    if (!number) return std::nullopt;
    address = address << 8 | *number;
  }
  if (!text.empty()) return std::nullopt;
  return address;
}

// One to four hexadecimal digits at the start of `text`; steps over them.
std::optional<std::uint16_t> TakeGroup(std::string_view* text) {
  constexpr std::size_t kMostDigits = 4;
  unsigned value = 0;
  std::size_t length = 0;
  for (; length < text->size() && length <= kMostDigits; ++length) {
    const char c = (*text)[length];
    const char lower = static_cast<char>(c | 0x20);
    if (IsDigitByte(c)) {
      value = value << 4 | static_cast<unsigned>(c - '0');
    } else if (lower >= 'a' && lower <= 'f') {
      value = value << 4 | static_cast<unsigned>(lower - 'a' + 10);
    } else {
      break;
    }
  }
  if (length == 0 || length > kMostDigits) return std::nullopt;
  text->remove_prefix(length);
  return static_cast<std::uint16_t>(value);
}

using Groups = std::array<std::uint16_t, 8>;

// The groups of an IPv6 text as they stand, and where the "::" is.
struct GroupReader {
  static constexpr std::size_t kNoGap = 9;

  Groups groups{};
  std::size_t count = 0;
  std::size_t gap = kNoGap;  // number of groups before the "::"

  bool Read(std::string_view text) {
    if (text.starts_with("::")) {
      gap = 0;
      text.remove_prefix(2);
      if (text.empty()) return true;
    }
    while (count < 8) {
      const std::size_t colon = text.find(':');
      if (colon == text.npos && text.find('.') != text.npos) return ReadEmbedded(text);
      const auto group = TakeGroup(&text);
      if (!group) return false;
      groups[count++] = *group;
      if (text.empty()) return true;
      if (text.front() != ':') return false;
      text.remove_prefix(1);
      if (text.starts_with(':')) {
        if (gap != kNoGap) return false;
        gap = count;
        text.remove_prefix(1);
        if (text.empty()) return true;
      }
    }
    return false;
  }

  bool ReadEmbedded(std::string_view text) {
    const auto address = ParseIpv4(text);
    if (!address || count > 6) return false;
    groups[count++] = static_cast<std::uint16_t>(*address >> 16);
    groups[count++] = static_cast<std::uint16_t>(*address & 0xFFFF);
    return true;
  }

  // All eight groups with the gap filled by zeros, of which there must be at least one.
  bool Expand(Groups* full) const {
    if (gap == kNoGap ? count != 8 : count > 7) return false;
    full->fill(0);
    const std::size_t before = gap == kNoGap ? count : gap;
    for (std::size_t i = 0; i < before; ++i) (*full)[i] = groups[i];
    for (std::size_t i = before; i < count; ++i) (*full)[8 - count + i] = groups[i];
    return true;
  }
};

std::optional<Groups> ParseIpv6(std::string_view text) {
  if (text.starts_with('[')) {
    if (!text.ends_with(']')) return std::nullopt;
    text = text.substr(1, text.size() - 2);
  }
  const std::size_t scope = text.find('%');
  if (scope != text.npos) {
    if (scope + 1 == text.size()) return std::nullopt;
    text = text.substr(0, scope);
  }
  GroupReader reader;
  Groups groups;
  if (!reader.Read(text) || !reader.Expand(&groups)) return std::nullopt;
  return groups;
}

std::string Ipv4Text(std::uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(address >> shift & 0xFF);
    if (shift != 0) text += '.';
  }
  return text;
}

// Lower case, no leading zeros, the longest run of at least two zero groups (the first of equals) as "::".
std::string Ipv6Text(const Groups& groups) {
  std::size_t gap = 8;
  std::size_t gap_length = 1;
  for (std::size_t i = 0; i < 8;) {
    std::size_t end = i;
    while (end < 8 && groups[end] == 0) ++end;
    if (end - i > gap_length) {
      gap = i;
      gap_length = end - i;
    }
    i = end + 1;
  }
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < 8; ++i) {
    if (i == gap) {
      text += "::";
      i += gap_length - 1;
      continue;
    }
    if (i != 0 && text.back() != ':') text += ':';
    bool written = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
      const unsigned digit = groups[i] >> shift & 0xF;
      written = written || digit != 0 || shift == 0;
      if (written) text += kDigits[digit];
    }
  }
  return text;
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
  if (const auto ipv4 = ParseIpv4(text)) return FromIpv4(*ipv4);
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
  Groups groups;
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
