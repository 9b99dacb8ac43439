#include <array>
#include <charconv>
#include <cstring>

#include "host/ascii.h"
#include "host/request_input.h"

namespace qiv::host {
namespace {

bool ParseIpv4(std::string_view text, unsigned char out[4]) {
  for (int i = 0; i < 4; ++i) {
    const std::size_t dot = text.find('.');
    if ((dot == std::string_view::npos) != (i == 3)) return false;
    const std::string_view part = text.substr(0, dot);
    std::uint64_t value = 0;
    if (part.size() > 3 || !ParseDecimal(part, &value) || value > 255) return false;
    out[i] = static_cast<unsigned char>(value);
    text = i == 3 ? std::string_view() : text.substr(dot + 1);
  }
  return true;
}

/// Groups on one side of "::". Gives the number of 16-bit groups, -1 on error.
int ParseGroups(std::string_view text, std::array<unsigned, 8>* groups) {
  int count = 0;
  while (!text.empty()) {
    const std::size_t colon = text.find(':');
    const std::string_view part = text.substr(0, colon);
    unsigned char ipv4[4];
    if (colon == std::string_view::npos && part.find('.') != std::string_view::npos) {
      if (count > 6 || !ParseIpv4(part, ipv4)) return -1;
      (*groups)[static_cast<std::size_t>(count++)] = ipv4[0] * 256u + ipv4[1];
      (*groups)[static_cast<std::size_t>(count++)] = ipv4[2] * 256u + ipv4[3];
      return count;
    }
    unsigned value = 0;
    const auto parsed = std::from_chars(part.data(), part.data() + part.size(), value, 16);
    if (part.empty() || part.size() > 4 || parsed.ptr != part.data() + part.size() || count == 8) return -1;
    (*groups)[static_cast<std::size_t>(count++)] = value;
    if (colon == std::string_view::npos) return count;
    text = text.substr(colon + 1);
    if (text.empty()) return -1;
  }
  return count;
}

bool ParseIpv6(std::string_view text, unsigned char out[16]) {
  const std::size_t gap = text.find("::");
  std::array<unsigned, 8> head{};
  std::array<unsigned, 8> tail{};
  const int head_count = ParseGroups(text.substr(0, gap), &head);
  const int tail_count = gap == std::string_view::npos ? 0 : ParseGroups(text.substr(gap + 2), &tail);
  if (head_count < 0 || tail_count < 0) return false;
  if (gap == std::string_view::npos ? head_count != 8 : head_count + tail_count > 7) return false;
  for (int i = 0; i < tail_count; ++i) {
    head[static_cast<std::size_t>(8 - tail_count + i)] = tail[static_cast<std::size_t>(i)];
  }
  for (std::size_t i = 0; i < 8; ++i) {
    out[2 * i] = static_cast<unsigned char>(head[i] >> 8);
    out[2 * i + 1] = static_cast<unsigned char>(head[i] & 0xFF);
  }
  return true;
}

std::string Ipv6Text(const unsigned char bytes[16]) {
  std::array<unsigned, 8> groups{};
  for (std::size_t i = 0; i < 8; ++i) groups[i] = bytes[2 * i] * 256u + bytes[2 * i + 1];
  std::size_t gap = 8, gap_length = 1;  // the longest run of at least two zero groups
  for (std::size_t i = 0; i < 8; ++i) {
    std::size_t end = i;
    while (end < 8 && groups[end] == 0) ++end;
    if (end - i > gap_length) {
      gap = i;
      gap_length = end - i;
    }
  }
  std::string text;
  for (std::size_t i = 0; i < 8; ++i) {
    if (i == gap) {
      text += "::";
      i += gap_length - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':') text += ':';
    char digits[5];
    const auto end = std::to_chars(digits, digits + sizeof digits, groups[i], 16);
    text.append(digits, end.ptr);
  }
  return text;
}

}  // namespace

bool ParseAddress(std::string_view text, std::uint16_t port, HostAddress* address) {
  std::memset(address, 0, sizeof *address);
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') text = text.substr(1, text.size() - 2);
  if (ParseIpv4(text, address->ipv4.sin_addr)) {
    address->any.sa_family = iis::kFamilyIpv4;
  } else if (text.find(':') != std::string_view::npos && ParseIpv6(text, address->ipv6.sin6_addr)) {
    address->any.sa_family = iis::kFamilyIpv6;
  } else {
    return false;
  }
  address->ipv4.sin_port[0] = static_cast<unsigned char>(port >> 8);
  address->ipv4.sin_port[1] = static_cast<unsigned char>(port & 0xFF);
  return true;
}

std::string AddressText(const HostAddress& address) {
  if (address.any.sa_family == iis::kFamilyIpv6) return Ipv6Text(address.ipv6.sin6_addr);
  if (address.any.sa_family != iis::kFamilyIpv4) return {};
  std::string text;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) text += '.';
    text += std::to_string(address.ipv4.sin_addr[i]);
  }
  return text;
}

std::uint16_t AddressPort(const HostAddress& address) {
  return static_cast<std::uint16_t>(address.ipv4.sin_port[0] * 256 + address.ipv4.sin_port[1]);
}

}  // namespace qiv::host
