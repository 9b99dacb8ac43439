#include "base/address_text.h"

#include "base/hex.h"

namespace qiv {
namespace {

// A decimal number without leading zeros, at most `limit`, at the start of `text`; steps over it.
std::optional<std::uint32_t> TakeNumber(std::string_view* text, std::uint32_t limit) {
  std::uint32_t value = 0;
  std::size_t length = 0;
  while (length < text->size() && IsDigit((*text)[length])) {
    if (length != 0 && value == 0) return std::nullopt;  // leading zero: some readers take it as octal
    value = value * 10 + static_cast<std::uint32_t>((*text)[length] - '0');
    if (value > limit) return std::nullopt;
    ++length;
  }
  if (length == 0) return std::nullopt;
  text->remove_prefix(length);
  return value;
}

}  // namespace

std::optional<std::uint32_t> ParseIpv4Text(std::string_view text) {
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

namespace {

// One to four hexadecimal digits at the start of `text`; steps over them.
std::optional<std::uint16_t> TakeGroup(std::string_view* text) {
  constexpr std::size_t kMostDigits = 4;
  unsigned value = 0;
  std::size_t length = 0;
  for (; length < text->size() && length <= kMostDigits; ++length) {
    const int digit = HexValue((*text)[length]);
    if (digit < 0) break;
    value = value << 4 | static_cast<unsigned>(digit);
  }
  if (length == 0 || length > kMostDigits) return std::nullopt;
  text->remove_prefix(length);
  return static_cast<std::uint16_t>(value);
}

// The groups of an IPv6 text as they stand, and where the "::" is.
struct GroupReader {
  static constexpr std::size_t kNoGap = 9;

  Ipv6Groups groups{};
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
    const auto address = ParseIpv4Text(text);
    if (!address || count > 6) return false;
    groups[count++] = static_cast<std::uint16_t>(*address >> 16);
    groups[count++] = static_cast<std::uint16_t>(*address & 0xFFFF);
    return true;
  }

  // All eight groups with the gap filled by zeros, of which there must be at least one.
  bool Expand(Ipv6Groups* full) const {
    if (gap == kNoGap ? count != 8 : count > 7) return false;
    full->fill(0);
    const std::size_t before = gap == kNoGap ? count : gap;
    for (std::size_t i = 0; i < before; ++i) (*full)[i] = groups[i];
    for (std::size_t i = before; i < count; ++i) (*full)[8 - count + i] = groups[i];
    return true;
  }
};

}  // namespace

std::optional<Ipv6Groups> ParseIpv6Text(std::string_view text) {
  GroupReader reader;
  Ipv6Groups groups;
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

std::string Ipv6Text(const Ipv6Groups& groups) {
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
      if (written) text += kLowerHexDigits[digit];
    }
  }
  return text;
}

}  // namespace qiv
