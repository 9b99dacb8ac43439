#include "config/config_keys.h"

#include <algorithm>
#include <vector>

#include "common/char_set.h"
#include "common/text.h"
#include "config/key_choices.h"

namespace qiv {
namespace {

constexpr std::string_view kSections[] = {
    "website_base",   "website_request",  "website_protect", "website_sql",
    "website_attack", "website_response", "website_lists",
};

#define QIV_ROW(type, key, reader, meaning, ...)                                           \
  ConfigKey {                                                                              \
    QIV_SECTION, key, KeyType::type, KeyReader::reader, meaning, KeyValues { __VA_ARGS__ } \
  }
#define QIV_NUMBER(member, key, reader, ...) QIV_ROW(kNumber, key, reader, __VA_ARGS__),
#define QIV_SWITCH(member, key, reader, ...) QIV_ROW(kSwitch, key, reader, __VA_ARGS__),
#define QIV_DIGITS(member, key, reader, ...) QIV_ROW(kDigits, key, reader, __VA_ARGS__),
#define QIV_FLAG(member, key, reader, ...) QIV_ROW(kFlag, key, reader, __VA_ARGS__),
#define QIV_TEXT(member, key, reader, ...) QIV_ROW(kText, key, reader, __VA_ARGS__),
#define QIV_LIST(member, key, reader, ...) QIV_ROW(kList, key, reader, __VA_ARGS__),
#define QIV_ADDRESSES(member, key, reader, ...) QIV_ROW(kAddresses, key, reader, __VA_ARGS__),
#define QIV_NAMES(member, key, reader, ...) QIV_ROW(kNames, key, reader, __VA_ARGS__),
#define QIV_EXTENSIONS(member, key, reader, ...) QIV_ROW(kExtensions, key, reader, __VA_ARGS__),
#define QIV_RULES(member, key, reader, ...) QIV_ROW(kRules, key, reader, __VA_ARGS__),
#define QIV_CHOICE(member, key, reader, ...) QIV_ROW(kChoice, key, reader, __VA_ARGS__),
#define QIV_BODY(member, key, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kFlag, KeyReader::reader, meaning, {}, true},
#define QIV_BODY_IF(member, key, with, reader, meaning) \
  ConfigKey{QIV_SECTION, key, KeyType::kFlag, KeyReader::reader, meaning, {}, true, #with},

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
    {"",
     "language",
     KeyType::kChoice,
     KeyReader::kLoader,
     "Language of messages and pages.",
     {.choices = "zh-CN=1 en-US=0", .exact = true}},
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
    {"website_other", "sys_trust_ip", KeyType::kAddresses, KeyReader::kLoader,
     "Addresses that the bad-IP library never blocks."},
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

std::int32_t ReadNumber(std::string_view text, const KeyValues& values) {
  constexpr std::int32_t kMinute = 60;
  std::int32_t number = ToNumber(text);
  if (!values.choices.empty()) return IsChoice(std::to_string(number), values) ? number : values.other;
  number = std::max(number, values.least);
  if (number <= 0 && values.none != 0) return values.none;
  if (values.minutes) number = std::min(number, std::numeric_limits<std::int32_t>::max() / kMinute) * kMinute;
  return number;
}

namespace {

std::string ChoiceOf(std::string_view text, const KeyValues& values) {
  return values.exact ? std::string(Trim(text)) : CCharSet::LowerAscii(Trim(text));
}

}  // namespace

std::int32_t ReadChoice(std::string_view text, const KeyValues& values) {
  const std::string value = ChoiceOf(text, values);
  return value.empty() ? values.none : FindChoice(values.choices, value).value_or(values.other);
}

bool IsChoice(std::string_view text, const KeyValues& values) {
  const std::string value = ChoiceOf(text, values);
  const std::vector<std::string_view> choices = Split(values.choices, ' ');
  return value.empty() || std::any_of(choices.begin(), choices.end(), [&value](std::string_view choice) {
           return choice.substr(0, choice.find('=')) == value;
         });
}

std::string OtherName(const KeyValues& values) {
  for (const std::string_view choice : Split(values.choices, ' ')) {
    const std::size_t equals = choice.find('=');
    if (equals != choice.npos && ToNumber(choice.substr(equals + 1)) == values.other) {
      return std::string(choice.substr(0, equals));
    }
  }
  return values.other == 0 ? "nothing" : std::to_string(values.other);
}

std::string ChoiceNames(const KeyValues& values) {
  std::string names;
  for (const std::string_view choice : Split(values.choices, ' ')) {
    AppendAll(&names, {names.empty() ? "" : ", ", choice.substr(0, choice.find('='))});
  }
  return names;
}

std::string_view KeySeparator(KeyType type) {
  switch (type) {
    case KeyType::kList:
    case KeyType::kAddresses:
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
  constexpr std::string_view kNames[] = {"number",    "switch", "digits",     "flag",  "text",  "list",
                                         "addresses", "names",  "extensions", "rules", "choice"};
  return kNames[static_cast<std::size_t>(type)];
}

}  // namespace qiv
