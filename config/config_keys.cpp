#include "config/config_keys.h"

#include <algorithm>
#include <array>

namespace qiv {
namespace {

constexpr std::string_view kSections[] = {
    "website_base",   "website_request",  "website_protect", "website_sql",
    "website_attack", "website_response", "website_lists",
};

#define QIV_NUMBER(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kNumber, KeyReader::reader, meaning},
#define QIV_DIGITS(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kDigits, KeyReader::reader, meaning},
#define QIV_FLAG(member, key, reader, meaning) ConfigKey{QIV_SECTION, key, KeyType::kFlag, KeyReader::reader, meaning},
#define QIV_TEXT(member, key, reader, meaning) ConfigKey{QIV_SECTION, key, KeyType::kText, KeyReader::reader, meaning},
#define QIV_LIST(member, key, reader, meaning) ConfigKey{QIV_SECTION, key, KeyType::kList, KeyReader::reader, meaning},
#define QIV_NAMES(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kNames, KeyReader::reader, meaning},
#define QIV_EXTENSIONS(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kExtensions, KeyReader::reader, meaning},
#define QIV_RULES(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kRules, KeyReader::reader, meaning},
#define QIV_CHOICE(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kChoice, KeyReader::reader, meaning},
#define QIV_ADDRESSES(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kList, KeyReader::reader, meaning, true},
#define QIV_BODY(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kFlag, KeyReader::reader, meaning, false, true},
#define QIV_BODY_IF(member, key, with, reader, meaning) QIV_BODY(member, key, reader, meaning)

constexpr ConfigKey kKeys[] = {
#define QIV_SECTION "website_base"
#include "config/keys_base.def"
#undef QIV_SECTION
#define QIV_SECTION "website_request"
#include "config/keys_request.def"
#undef QIV_SECTION
#define QIV_SECTION "website_protect"
#include "config/keys_protect.def"
#undef QIV_SECTION
#define QIV_SECTION "website_sql"
#include "engines/injection/injection_keys.def"
#undef QIV_SECTION
#define QIV_SECTION "website_attack"
#include "config/keys_attack.def"
#undef QIV_SECTION
#define QIV_SECTION "website_response"
#include "config/keys_response.def"
#undef QIV_SECTION
#define QIV_SECTION "website_lists"
#include "config/keys_lists.def"
#undef QIV_SECTION
};

constexpr ConfigKey kScalarKeys[] = {
    {"", "language", KeyType::kChoice, KeyReader::kLoader,
     "Language of messages and pages: `zh-CN`, or `en-US`, which anything else means."},
    {"", "sys_is_qiv", KeyType::kFlag, KeyReader::kLoader,
     "Libraries are kept up to date, and the module talks to the firewall service."},
    {"", "enable_ipv6prot", KeyType::kFlag, KeyReader::kLoader,
     "Protect IPv6 clients too; off, their requests pass unchecked."},
    {"", "extend_functions", KeyType::kNames, KeyReader::kLoader, "Names of extended functions; below."},
    {"", "website_on_servers", KeyType::kFlag, KeyReader::kLoader,
     "The website is protected; off, the configuration is refused."},
    {"website_other", "sys_temp_time", KeyType::kDigits, KeyReader::kLoader,
     "How long temporary grants and locks last, in minutes; 720 when missing, 0 or not all digits."},
    {"website_other", "trojan_freecode", KeyType::kRules, KeyReader::kLoader,
     "Code that is never taken for a webshell."},
    {"website_other", "trojan_usertrojan", KeyType::kRules, KeyReader::kLoader, "The site's own webshell signatures."},
    {"website_other", "sys_trust_ip", KeyType::kList, KeyReader::kLoader,
     "Addresses that the bad-IP library never blocks: single, `a-b`, CIDR, or IPv4 with a trailing `*`.", true},
    {"website_other", "sys_log_ex", KeyType::kText, KeyReader::kLoader,
     "Extended log settings, divided by commas. `request` writes a line for every request to `debug/_log_req.log`."},
};

constexpr IpSetKey kIpSetKeys[] = {
    {"website_protect_admin_dir_ips", false, KeyReader::kAccessChecks,
     "Addresses that may use the administration pages."},
    {"website_lists_allow_area_ips", false, KeyReader::kLists, "Addresses of the allowed areas."},
    {"website_lists_deny_area_ips", false, KeyReader::kLists, "Addresses of the denied areas."},
    {"website_lists_allow_spider_ips", false, KeyReader::kLists, "Addresses of search engines that pass unchecked."},
    {"website_sys_common_area_ips", false, KeyReader::kLists, "Addresses that pass unchecked, everywhere."},
    {"website_attack_cc_allow_area_ips", false, KeyReader::kRequestChecks,
     "Addresses that CC protection does not count."},
    {"website_attack_all_spiders_ips", false, KeyReader::kRequestChecks, "Addresses of all known search engines."},
    {"website_attack_spiders_deny_keys", true, KeyReader::kRequestChecks,
     "Pieces of the user agents of denied search engines."},
    {"website_attack_spiders_all_keys", true, KeyReader::kRequestChecks,
     "Pieces of the user agents of all known search engines."},
};

}  // namespace

std::span<const std::string_view> ConfigSections() { return kSections; }

std::span<const ConfigKey> ConfigKeys() { return kKeys; }

std::span<const ConfigKey> ConfigKeys(std::string_view section) {
  const auto in_section = [section](const ConfigKey& key) { return key.section == section; };
  const auto first = std::find_if(std::begin(kKeys), std::end(kKeys), in_section);
  return {first, std::find_if_not(first, std::end(kKeys), in_section)};
}

std::span<const ConfigKey> ScalarKeys() { return kScalarKeys; }

std::span<const IpSetKey> IpSetKeys() { return kIpSetKeys; }

const ConfigKey* FindConfigKey(std::string_view section, std::string_view name) {
  for (const std::span<const ConfigKey> table : {ConfigKeys(section), ScalarKeys()}) {
    for (const ConfigKey& key : table) {
      if (key.section == section && key.name == name) return &key;
    }
  }
  return nullptr;
}

std::string_view NoEffectText(KeyReader reader) {
  return reader == KeyReader::kIdle ? std::string_view("has no effect in this version") : std::string_view();
}

std::string_view KeySeparator(KeyType type) {
  switch (type) {
    case KeyType::kList:
      return "|";
    case KeyType::kNames:
    case KeyType::kExtensions:
      return ",";
    case KeyType::kRules:
      return "{#}";
    default:
      return "\n";
  }
}

std::string_view KeyTypeName(KeyType type) {
  constexpr std::string_view kNames[] = {"number", "digits",     "flag",  "text",  "list",
                                         "names",  "extensions", "rules", "choice"};
  return kNames[static_cast<std::size_t>(type)];
}

}  // namespace qiv
