#include "config/list_settings.h"

#include <algorithm>

#include "config/value_lists.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::string_view kEmptyValue = "{$empty}";

}  // namespace

CTextList::CTextList(std::string_view list) : items_(BarItems(list)) {
  holds_empty_ = std::erase(items_, kEmptyValue) != 0;
  patterns_ = CMultiPattern(items_);
}

std::string_view CTextList::FirstIn(std::string_view value) const {
  std::size_t first = items_.size();
  patterns_.Find(value, [&first](std::uint32_t item, std::size_t) {
    first = std::min<std::size_t>(first, item);
    return first != 0;
  });
  return first < items_.size() ? std::string_view(items_[first]) : std::string_view();
}

PreparedLists PrepareLists(const ListSettings& lists, std::string_view sys_trust_ip) {
  PreparedLists prepared;
  prepared.allow_urls = CUrlExemptions(lists.allow_urls);
  prepared.deny_urls = CUrlBlackList(lists.deny_urls);
  prepared.allow_uas = CTextList(lists.allow_uas);
  prepared.deny_uas = CTextList(lists.deny_uas);
  prepared.allow_rfs = CTextList(lists.allow_rfs);
  prepared.deny_rfs = CTextList(lists.deny_rfs);
  prepared.allow_ips = RangesOf(lists.allow_ips);
  prepared.deny_ips = RangesOf(lists.deny_ips);
  prepared.allow_areas = CAreaNames(lists.allow_areas);
  prepared.deny_areas = CAreaNames(lists.deny_areas);
  prepared.trusted_ips = RangesOf(sys_trust_ip);
  return prepared;
}

}  // namespace qiv
