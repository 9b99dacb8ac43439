// Reads the IP-list part of the configuration text.
#pragma once

#include <string_view>
#include <vector>

#include "common/state_recorder.h"
#include "config/website_config.h"

namespace qiv {

/// Fills *sets, which must be fresh. Items that are no address range are skipped; key lists that lost items for want of
/// a GBK form are added to *faults. Thread safe.
void ReadAddressSets(std::string_view ip_lists, AddressSets* sets, std::vector<StateFault>* faults);

/// The ranges of one tagged part: its <ipv4> and <ipv6>; without <ipv4> the whole text stands for it.
CIpRanges ReadAddressSet(std::string_view part);

}  // namespace qiv
