#include <cstring>

#include "base/address_text.h"
#include "host/request_input.h"

namespace qiv::host {

bool ParseAddress(std::string_view text, std::uint16_t port, HostAddress* address) {
  std::memset(address, 0, sizeof *address);
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') text = text.substr(1, text.size() - 2);
  if (const auto ipv4 = ParseIpv4Text(text)) {
    address->any.sa_family = iis::kFamilyIpv4;
    for (int i = 0; i < 4; ++i) address->ipv4.sin_addr[i] = static_cast<unsigned char>(*ipv4 >> (24 - 8 * i));
  } else if (const auto groups = ParseIpv6Text(text)) {
    address->any.sa_family = iis::kFamilyIpv6;
    for (std::size_t i = 0; i < groups->size(); ++i) {
      address->ipv6.sin6_addr[2 * i] = static_cast<unsigned char>((*groups)[i] >> 8);
      address->ipv6.sin6_addr[2 * i + 1] = static_cast<unsigned char>((*groups)[i] & 0xFF);
    }
  } else {
    return false;
  }
  address->ipv4.sin_port[0] = static_cast<unsigned char>(port >> 8);
  address->ipv4.sin_port[1] = static_cast<unsigned char>(port & 0xFF);
  return true;
}

std::string AddressText(const HostAddress& address) {
  if (address.any.sa_family == iis::kFamilyIpv4) {
    std::uint32_t ipv4 = 0;
    for (const unsigned char part : address.ipv4.sin_addr) ipv4 = ipv4 << 8 | part;
    return Ipv4Text(ipv4);
  }
  if (address.any.sa_family != iis::kFamilyIpv6) return {};
  Ipv6Groups groups;
  for (std::size_t i = 0; i < groups.size(); ++i) {
    const unsigned char* const pair = address.ipv6.sin6_addr + 2 * i;
    groups[i] = static_cast<std::uint16_t>(pair[0] << 8 | pair[1]);
  }
  return Ipv6Text(groups);
}

std::uint16_t AddressPort(const HostAddress& address) {
  return static_cast<std::uint16_t>(address.ipv4.sin_port[0] * 256 + address.ipv4.sin_port[1]);
}

}  // namespace qiv::host
