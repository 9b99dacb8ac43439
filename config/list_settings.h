// The black and white lists in the form in which requests ask them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/area_library.h"
#include "common/ip_address.h"
#include "common/multi_pattern.h"
#include "config/url_black_list.h"
#include "config/url_exemptions.h"

namespace qiv {

struct ListSettings;

/// A list of pieces of a header's value. Immutable after construction; thread safe.
class CTextList {
 public:
  CTextList() = default;
  /// Items separated by "|", compared byte by byte. "{$empty}" is no text: it stands for a value that is empty.
  explicit CTextList(std::string_view list);

  bool HoldsEmpty() const { return holds_empty_; }
  /// The first item, in the order of the list, that occurs in the value; empty when none does. One pass over the value,
  /// however long the list.
  std::string_view FirstIn(std::string_view value) const;

 private:
  bool holds_empty_ = false;
  std::vector<std::string> items_;
  CMultiPattern patterns_;
};

struct PreparedLists {
  CUrlExemptions allow_urls;
  CUrlBlackList deny_urls;
  CTextList allow_uas;
  CTextList deny_uas;
  CTextList allow_rfs;
  CTextList deny_rfs;
  CIpRanges allow_ips;
  CIpRanges deny_ips;
  CAreaNames allow_areas;
  CAreaNames deny_areas;
  CIpRanges trusted_ips;  ///< sys_trust_ip: never taken for malicious
};

PreparedLists PrepareLists(const ListSettings& lists, std::string_view sys_trust_ip);

}  // namespace qiv
