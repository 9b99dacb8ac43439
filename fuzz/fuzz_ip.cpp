// Addresses and range lists: a canonical text reads as the same address, and a set holds the ends of its ranges.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "common/ip_address.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto address = qiv::CIpAddress::Parse(text)) {
    if (qiv::CIpAddress::Parse(address->Text()) != address) std::abort();
  }
  qiv::CIpRanges ranges;
  std::vector<qiv::CIpRanges::Malformed> malformed;
  if (ranges.Add(text, &malformed) != malformed.size()) std::abort();
  const std::vector<qiv::IpRange> all = ranges.Ranges();
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].last < all[i].first || !ranges.Contains(all[i].first) || !ranges.Contains(all[i].last)) std::abort();
    const auto next = all[i].last.Next();
    if (next && ranges.Contains(*next)) std::abort();  // else it would have been merged
    if (i > 0 && all[i].first <= all[i - 1].last) std::abort();
  }
  return 0;
}
