#include "tools/lint_relations.h"

#include <algorithm>
#include <array>
#include <utility>

#include "checks/check_table.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/access_settings.h"
#include "config/extended_functions.h"
#include "config/value_lists.h"
#include "tools/lock_obstacles.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

/// When `key` is on, at least one of `needs` must be.
struct Need {
  std::string_view section;
  std::string_view key;
  std::string_view needs;  ///< blank-separated keys of the same section
  std::string_view message;
};

constexpr Need kNeeds[] = {
    {"website_attack", "cc", "cc_lock_freq", "\"cc\" is on, but \"cc_lock_freq\" 0 turns it off"},
    {"website_attack", "cc", "cc_lock_time", "\"cc\" is on, but \"cc_lock_time\" 0 turns it off"},
    {"website_attack", "overflow",
     "overflow_url_maxlen overflow_httpheader_maxlen overflow_post_maxsize overflow_httpheader_rule",
     "\"overflow\" is on, but every limit is 0"},
    {"website_attack", "overflow_httpheader_rule", "overflow_httpheader_rules",
     "\"overflow_httpheader_rule\" is on, but \"overflow_httpheader_rules\" is empty"},
    {"website_response", "lock", "lock_freq", "\"lock\" is on, but \"lock_freq\" 0 turns it off"},
    {"website_response", "lock", "lock_time", "\"lock\" is on, but \"lock_time\" 0 turns it off"},
    {"website_response", "passwd", "passwd_key", "\"passwd\" is on, but \"passwd_key\" is empty"},
    {"website_base", "upload", "upload_types", "\"upload\" is on, but \"upload_types\" is empty"},
    {"website_base", "trojan", "trojan_get trojan_post trojan_header trojan_webout",
     "\"trojan\" is on, but none of its places is"},
    {"website_base", "badcode", "badcode_get badcode_post badcode_header badcode_webout",
     "\"badcode\" is on, but none of its places is"},
    {"website_base", "js", "js_out_codes", "\"js\" is on, but \"js_out_codes\" is empty"},
    {"website_base", "js", "js_urls", "\"js\" is on, but \"js_urls\" names no page"},
    {"website_request", "type", "types", "\"type\" is on, but \"types\" admits no method"},
    {"website_request", "xframe", "xframe_type", "\"xframe\" is on, but \"xframe_type\" is empty"},
    {"website_request", "file", "file_local file_remote", "\"file\" is on, but neither of its kinds is"},
    {"website_request", "ill_block", "ill_block_keys", "\"ill_block\" is on, but \"ill_block_keys\" is empty"},
    {"website_request", "ill_replace", "ill_replace_keys", "\"ill_replace\" is on, but \"ill_replace_keys\" is empty"},
    {"website_request", "ill_record", "ill_record_keys", "\"ill_record\" is on, but \"ill_record_keys\" is empty"},
    {"website_request", "ill_block", "ill_block_get ill_block_post ill_block_header ill_block_webout",
     "\"ill_block\" is on, but none of its places is"},
    {"website_request", "ill_replace", "ill_replace_get ill_replace_post ill_replace_header ill_replace_webout",
     "\"ill_replace\" is on, but none of its places is"},
    {"website_request", "ill_record", "ill_record_get ill_record_post ill_record_header ill_record_webout",
     "\"ill_record\" is on, but none of its places is"},
    {"website_protect", "static", "static_urls", "\"static\" is on, but \"static_urls\" is empty"},
    {"website_protect", "admin", "admin_urls", "\"admin\" is on, but \"admin_urls\" is empty"},
    {"website_protect", "timelimit", "timelimit_limit_urls",
     "\"timelimit\" is on, but \"timelimit_limit_urls\" is empty"},
    {"website_protect", "timelimit", "timelimit_auth_times",
     "\"timelimit\" is on, but \"timelimit_auth_times\" is empty: the URLs are closed all the time"},
    {"website_protect", "admin", "admin_ips admin_areas",
     "\"admin\" is on, but neither \"admin_ips\" nor \"admin_areas\" admits anybody; only the IP set "
     "\"website_protect_admin_dir_ips\" does"},
    {"website_protect", "link", "link_file_types", "\"link\" is on, but \"link_file_types\" is empty"},
    {"website_protect", "type", "type_file_types", "\"type\" is on, but \"type_file_types\" is empty"},
    {"website_sql", "xss", "xss_get xss_post xss_header", "\"xss\" is on, but none of its places is"},
    {"website_sql", "xss", "xss_html_action xss_script_block xss_script_load",
     "\"xss\" is on, but none of its three kinds is"},
    {"website_sql", "allow", "allow_urls", "\"allow\" is on, but \"allow_urls\" is empty"},
    {"website_sql", "get", "get_super_mode get_keys", "\"get\" is on, but it has neither super mode nor keywords"},
    {"website_sql", "post", "post_super_mode post_keys", "\"post\" is on, but it has neither super mode nor keywords"},
    {"website_sql", "header", "header_super_mode header_keys",
     "\"header\" is on, but it has neither super mode nor keywords"},
};

/// On: a flag that is "1", a number that is not 0, a text that is not empty.
bool IsOn(const CSettingsDocument& settings, std::string_view section, std::string_view key) {
  const std::string text = settings.TextOf(section, key);
  switch (FindConfigKey(section, key)->type) {
    case KeyType::kFlag:
      return text == "1";
    case KeyType::kNumber:
    case KeyType::kSwitch:
      return ToNumber(text) != 0;
    case KeyType::kDigits:
      return DigitsToNumber(text) != 0;
    default:
      return !Trim(text).empty();
  }
}

bool IsAnyOn(const CSettingsDocument& settings, std::string_view section, std::string_view keys) {
  const std::vector<std::string_view> names = SplitUtf8(keys, " ");
  return std::any_of(names.begin(), names.end(), [&](std::string_view key) { return IsOn(settings, section, key); });
}

/// The switches that make the module capture the body.
bool CapturesBody(const CSettingsDocument& settings) {
  const std::span<const ConfigKey> keys = ConfigKeys();
  return std::any_of(keys.begin(), keys.end(), [&settings](const ConfigKey& key) {
    return key.needs_body && IsOn(settings, key.section, key.name) &&
           (key.body_switch.empty() || IsOn(settings, key.section, key.body_switch));
  });
}

void Protection(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  const IJsonValue* const on = settings.Find("", "website_on_servers");
  if (on == nullptr) {
    remarks->push_back({nullptr, "\"website_on_servers\" is missing: the module refuses the settings"});
  }
  if (settings.Find("", "website_base") == nullptr) {
    remarks->push_back({nullptr, "\"website_base\" is missing: the module refuses the settings"});
  }
}

/// A name of extend_functions that means nothing; empty: it means something.
std::string UnknownFunction(std::string_view name) {
  const std::size_t colon = name.find(':');
  const bool of_check = colon != std::string_view::npos && name.substr(0, colon) == kLogOnlyFunction;
  std::string known;
  if (of_check) {
    for (const CheckRow& row : CheckTable()) {
      if (row.name == name.substr(colon + 1)) return {};
      known.append(known.empty() ? "" : ", ").append(row.name);
    }
    return "; checks are " + known;
  }
  for (const ExtendedFunctionName& function : ExtendedFunctionNames()) {
    if (function.name == name) return {};
    known.append(known.empty() ? "" : ", ").append(function.name);
  }
  return "; known are " + known;
}

void Functions(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  const std::string functions = settings.TextOf("", "extend_functions");
  const IJsonValue* const value = settings.Find("", "extend_functions");
  const ExtendedFunctions extended = ReadExtendedFunctions(WrapNames(functions));
  for (const std::string_view function : SplitUtf8(functions, ",")) {
    const std::string name(Trim(function));
    const std::string unknown = name.empty() ? std::string() : UnknownFunction(name);
    if (!unknown.empty()) remarks->push_back({value, "\"extend_functions\" names \"" + name + "\"" + unknown});
  }
  if (extended.log_only) {
    remarks->push_back({value, "\"website_log_only\" is on: nothing is blocked, events say what would be"});
  } else if (extended.AnyLogOnly()) {
    std::string checks;
    for (const std::string& check : extended.log_only_checks) checks.append(checks.empty() ? "" : ", ").append(check);
    remarks->push_back({value, "\"website_log_only\" is on: nothing is blocked by " + checks});
  }
  if (IsOn(settings, "website_base", "js") && !extended.scripts) {
    remarks->push_back({settings.Find("website_base", "js"),
                        "\"js\" is on, but counts only while \"extend_functions\" names \"website_js\""});
  }
}

void Pages(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  constexpr std::string_view kSection = "website_response";
  const IJsonValue* const type = settings.Find(kSection, "ret_type");
  const std::string kind(Trim(settings.TextOf(kSection, "ret_type")));
  const std::string url = CCharSet::LowerAscii(Trim(settings.TextOf(kSection, "ret_url")));
  if (kind == "3" && url.empty()) remarks->push_back({type, "\"ret_type\" is 3, but \"ret_url\" is empty"});
  if (kind == "4" && settings.TextOf(kSection, "ret_content").empty()) {
    remarks->push_back({type, "\"ret_type\" is 4, but \"ret_content\" is empty"});
  }
  if (Trim(settings.TextOf(kSection, "ret_status")) == "302" && url.empty()) {
    remarks->push_back({settings.Find(kSection, "ret_status"), "\"ret_status\" 302 without \"ret_url\" reads as 403"});
  }
  if (!url.empty() && !url.starts_with("http://") && !url.starts_with("https://")) {
    remarks->push_back({settings.Find(kSection, "ret_url"), "\"ret_url\" gets \"http://\" in front"});
  }
}

/// White lists of URLs, with what switches each of them on.
struct WhiteList {
  std::string_view section;
  std::string_view key;
  std::string_view master;
};
constexpr WhiteList kWhiteLists[] = {{"website_lists", "allow_urls", "status_url"},
                                     {"website_sql", "allow_urls", "allow"}};

void WhiteLists(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  for (const WhiteList& list : kWhiteLists) {
    if (!IsOn(settings, list.section, list.master)) continue;
    const std::string text = settings.TextOf(list.section, list.key);
    for (const std::string_view item : SplitUtf8(text, "|")) {
      if (item.empty() || item.find('?') != std::string_view::npos) continue;
      const std::string quoted(item);
      remarks->push_back({settings.Find(list.section, list.key),
                          "\"" + std::string(list.key) + "\" holds \"" + quoted +
                              "\", which counts anywhere in a URL: any request passes that ends in \"&z=" + quoted +
                              "\"; \"page?name\" opens less",
                          true});
      break;  // the others are alike
    }
  }
}

void Cookies(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  constexpr std::string_view kSection = "website_request";
  const std::string same_site = CCharSet::LowerAscii(Trim(settings.TextOf(kSection, "csrf_mode")));
  const bool states_site = !same_site.empty() && same_site != "0";
  if (!IsOn(settings, kSection, "cookie") || (!states_site && !IsOn(settings, kSection, "xss_mode"))) return;
  remarks->push_back({settings.Find(kSection, "cookie"),
                      "\"cookie\" puts a placeholder cookie on every answer that sets none: caches and content "
                      "delivery networks then keep no answer",
                      true});
  if (states_site) {
    remarks->push_back({settings.Find(kSection, "csrf_mode"),
                        "\"csrf_mode\" changes cookies that state SameSite=None too: single sign-on and payment "
                        "frames of other sites lose them",
                        true});
  }
}

/// A switch that asks for locks; null when none does. `smart`: smart blocking is on.
const IJsonValue* FirstThatLocks(const CSettingsDocument& settings, bool smart) {
  constexpr std::pair<std::string_view, std::string_view> kSwitches[] = {{"website_sql", "get_mode"},
                                                                         {"website_sql", "post_mode"},
                                                                         {"website_sql", "header_mode"},
                                                                         {"website_lists", "url_lock_use_firewall"},
                                                                         {"website_lists", "ua_lock_use_firewall"},
                                                                         {"website_lists", "rfs_lock_use_firewall"},
                                                                         {"website_attack", "cc_strict_mode"}};
  if (smart) return settings.Find("website_response", "lock");
  for (const auto& [section, key] : kSwitches) {
    const bool counts = key != "cc_strict_mode" || IsOn(settings, section, "cc");
    if (counts && IsOn(settings, section, key)) return settings.Find(section, key);
  }
  return nullptr;
}

void Locks(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  const std::string minutes = settings.TextOf("website_other", "sys_temp_time");
  if (!minutes.empty() && minutes.find_first_not_of('0') == std::string::npos) {
    remarks->push_back(
        {settings.Find("website_other", "sys_temp_time"), "\"sys_temp_time\" 0 is taken as 720 minutes"});
  }
  constexpr std::string_view kSection = "website_response";
  const bool locks = IsOn(settings, kSection, "lock") && IsOn(settings, kSection, "lock_freq") &&
                     IsOn(settings, kSection, "lock_time");
  if (locks && ToNumber(settings.TextOf(kSection, "lock_freq")) == 1) {
    remarks->push_back(
        {settings.Find(kSection, "lock_freq"), "\"lock_freq\" 1 locks a client at its first blocked request"});
  }
  const IJsonValue* const asker = FirstThatLocks(settings, locks);
  if (asker == nullptr) return;
  LockSwitches switches;
  switches.protection = settings.TextOf("", "website_on_servers") == "1";
  switches.service_link = settings.TextOf("", "sys_is_qiv") == "1";
  switches.e404 = IsOn(settings, "website_attack", "e404");
  switches.ipv6 = settings.TextOf("", "enable_ipv6prot") == "1";
  for (LockObstacle& obstacle : LockObstacles(switches)) {
    const IJsonValue* value = settings.Find(obstacle.section, obstacle.key);
    remarks->push_back({value == nullptr ? asker : value, std::move(obstacle.message)});
  }
}

void Bodies(const CSettingsDocument& settings, std::vector<LintRemark>* remarks) {
  for (const auto& [section, key, master] : {std::array<std::string_view, 3>{"website_base", "badcode_post", "badcode"},
                                             {"website_request", "photo_post", "photo"}}) {
    if (IsOn(settings, section, key) && !IsOn(settings, section, master)) {
      remarks->push_back({settings.Find(section, key),
                          "\"" + std::string(key) + "\" is on, but \"" + std::string(master) + "\" is off"});
    }
  }
  if (IsOn(settings, "website_sql", "xss") && IsOn(settings, "website_sql", "xss_post") && !CapturesBody(settings)) {
    remarks->push_back({settings.Find("website_sql", "xss_post"),
                        "\"xss_post\" is on, but no key that captures the body is, as \"post\" would"});
  }
}

/// A shorter piece stands in nearly every user agent.
bool IsSpiderName(std::string_view item) { return Trim(item).size() >= 3; }
bool IsHeaderLimit(std::string_view item) { return ParseHeaderLimit(item).has_value(); }
bool IsTimeSpan(std::string_view item) { return ParseTimeSpan(item).has_value(); }

void Items(const CSettingsDocument& settings, std::string_view section, std::string_view key,
           bool (*is_good)(std::string_view), std::string_view form, std::vector<LintRemark>* remarks) {
  const std::string text = settings.TextOf(section, key);
  const std::string_view separator = KeySeparator(FindConfigKey(section, key)->type);
  for (const std::string_view item : SplitUtf8(text, separator)) {
    if (Trim(item).empty() || is_good(item)) continue;
    remarks->push_back({settings.Find(section, key), "\"" + std::string(key) + "\" has an entry that is not " +
                                                         std::string(form) + ": \"" + std::string(item) + "\""});
  }
}

}  // namespace

std::vector<LintRemark> LintRelations(const CSettingsDocument& settings) {
  std::vector<LintRemark> remarks;
  Protection(settings, &remarks);
  for (const Need& need : kNeeds) {
    if (IsOn(settings, need.section, need.key) && !IsAnyOn(settings, need.section, need.needs)) {
      remarks.push_back({settings.Find(need.section, need.key), std::string(need.message)});
    }
  }
  Functions(settings, &remarks);
  Pages(settings, &remarks);
  Bodies(settings, &remarks);
  WhiteLists(settings, &remarks);
  Cookies(settings, &remarks);
  Locks(settings, &remarks);
  Items(settings, "website_attack", "overflow_httpheader_rules", IsHeaderLimit, "\"Name:limit\"", &remarks);
  Items(settings, "website_protect", "timelimit_auth_times", IsTimeSpan, "\"[1-5 ]HH:MM-HH:MM\"", &remarks);
  Items(settings, "website_attack", "spider_deny_spiders", IsSpiderName,
        "the name of a spider (three letters at least)", &remarks);
  return remarks;
}

}  // namespace qiv
