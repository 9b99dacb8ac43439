#include "config/address_sets.h"

#include <string>

#include "common/text.h"
#include "config/local_form.h"
#include "config/value_lists.h"

namespace qiv {

CIpRanges ReadAddressSet(std::string_view part) {
  CIpRanges ranges;
  ranges.Add(HasTag(part, "ipv4") ? TaggedPart(part, "ipv4") : part);
  ranges.Add(TaggedPart(part, "ipv6"));
  return ranges;
}

namespace {

std::vector<std::string> ReadKeyList(std::string_view part, std::string_view name, std::vector<StateFault>* faults) {
  std::vector<std::string> lost;
  const std::string list = TaggedToLocalForm(KeyType::kList, part, &lost);
  if (!lost.empty()) faults->push_back(LostItems(std::string(name), lost));
  return BarItems(list);
}

}  // namespace

void ReadAddressSets(std::string_view ip_lists, AddressSets* sets, std::vector<StateFault>* faults) {
#define QIV_READ_SET(name) sets->name = ReadAddressSet(TaggedPart(ip_lists, #name))
#define QIV_READ_KEYS(name) sets->name = ReadKeyList(TaggedPart(ip_lists, #name), #name, faults)
  QIV_READ_SET(website_protect_admin_dir_ips);
  QIV_READ_SET(website_lists_allow_area_ips);
  QIV_READ_SET(website_lists_deny_area_ips);
  QIV_READ_SET(website_lists_allow_spider_ips);
  QIV_READ_SET(website_sys_common_area_ips);
  QIV_READ_SET(website_attack_cc_allow_area_ips);
  QIV_READ_SET(website_attack_all_spiders_ips);
  QIV_READ_KEYS(website_attack_spiders_deny_keys);
  QIV_READ_KEYS(website_attack_spiders_all_keys);
#undef QIV_READ_SET
#undef QIV_READ_KEYS
}

}  // namespace qiv
