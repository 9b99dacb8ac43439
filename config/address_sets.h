// Reads the IP-list part of the configuration text.
#pragma once

#include <string_view>

#include "config/website_config.h"

namespace qiv {

/// Fills *sets, which must be fresh. Items that are no address range are skipped. Thread safe.
void ReadAddressSets(std::string_view ip_lists, AddressSets* sets);

/// The ranges of one tagged part: its <ipv4> and <ipv6>; without <ipv4> the whole text stands for it.
CIpRanges ReadAddressSet(std::string_view part);

}  // namespace qiv
