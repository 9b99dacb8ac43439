// The website configuration record: every key of the seven sections, and what a load prepares from them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/ip_address.h"
#include "common/language.h"
#include "config/access_settings.h"
#include "config/extended_functions.h"
#include "config/key_choices.h"
#include "config/list_settings.h"
#include "config/script_settings.h"
#include "config/sensitive_words.h"
#include "config/url_exemptions.h"
#include "engines/injection/injection_settings.h"
#include "engines/injection/keyword_rules.h"

namespace qiv {

// What a row of the key table becomes; how its value is written and held: KeyType in config_keys.h. Lists are in GBK,
// and so are texts, save one with a character that has no GBK form: that stays in UTF-8 as a whole.
#define QIV_NUMBER(member, ...) std::int32_t member = 0;
#define QIV_SWITCH(member, ...) std::int32_t member = 0;
#define QIV_DIGITS(member, ...) std::uint32_t member = 0;
#define QIV_CHOICE(member, ...) std::int32_t member = 0;
#define QIV_FLAG(member, ...) bool member = false;
#define QIV_TEXT(member, ...) std::string member;
#define QIV_LIST(member, ...) std::string member;
#define QIV_NAMES(member, ...) std::string member;
#define QIV_EXTENSIONS(member, ...) std::string member;
#define QIV_RULES(member, ...) std::string member;
#define QIV_ADDRESSES(member, ...) std::string member;
#define QIV_BODY(member, ...) bool member = false;
#define QIV_BODY_IF(member, ...) bool member = false;

// One struct a section; members are named like their keys ("static" is static_). Lock times are in seconds, periods are
// never 0, and whatever a feature cannot work without is 0 together with it (see config_parser.cpp).
struct BaseSettings {
#include "config/keys_base.def"
};
struct RequestSettings {
#include "config/keys_request.def"
};
struct ProtectSettings {
#include "config/keys_protect.def"
};
struct AttackSettings {
#include "config/keys_attack.def"
};
struct ResponseSettings {
#include "config/keys_response.def"
};
struct ListSettings {
#include "config/keys_lists.def"
};

#undef QIV_NUMBER
#undef QIV_SWITCH
#undef QIV_DIGITS
#undef QIV_CHOICE
#undef QIV_ADDRESSES
#undef QIV_BODY
#undef QIV_BODY_IF
#undef QIV_FLAG
#undef QIV_TEXT
#undef QIV_LIST
#undef QIV_NAMES
#undef QIV_EXTENSIONS
#undef QIV_RULES

/// What block pages need, derived from the response section.
struct PageSettings {
  enum Type { kShort = 1, kDetailed = 2, kRedirect = 3, kCustom = 4 };

  int status = 403;  ///< 200, 302, 403, 404 or 500
  int type = kShort;
  std::string redirect_url;      ///< empty: none. Holds no control bytes
  std::string content;           ///< custom content, UTF-8; empty unless type is kCustom
  bool complete_page = false;    ///< `content` is a whole HTML page
  bool plain_title = false;      ///< `content` does not serve as a title
  bool content_charset = false;  ///< the charset that `content` names is neither gbk nor gb2312 (or it names none)
};

/// The parts of the IP-list part, named like their tags.
struct AddressSets {
  CIpRanges website_protect_admin_dir_ips;
  CIpRanges website_lists_allow_area_ips;
  CIpRanges website_lists_deny_area_ips;
  CIpRanges website_lists_allow_spider_ips;
  CIpRanges website_sys_common_area_ips;
  CIpRanges website_attack_cc_allow_area_ips;
  CIpRanges website_attack_all_spiders_ips;
  std::vector<std::string> website_attack_spiders_deny_keys;  ///< pieces of user agents, none empty
  std::vector<std::string> website_attack_spiders_all_keys;
};

/// One website's configuration. Built by a load, then never written again; requests hold counted references.
struct WebsiteConfig {
  static constexpr std::uint32_t kDefaultTempMinutes = 720;

  /// How long temporary grants and locks last, in seconds. A time of 0 minutes would be over before it begins: it
  /// counts as the default.
  std::int64_t TempLockSeconds() const {
    constexpr std::int64_t kSecondsInMinute = 60;
    return (sys_temp_time != 0 ? sys_temp_time : kDefaultTempMinutes) * kSecondsInMinute;
  }

  Language language = Language::kEnglish;
  bool library_enabled = false;                       ///< sys_is_qiv: libraries and the link to the firewall service
  bool ipv6_protection = false;                       ///< enable_ipv6prot
  std::string extend_functions;                       ///< "," wrapped
  std::uint32_t sys_temp_time = kDefaultTempMinutes;  ///< minutes; TempLockSeconds() is what counts
  std::string trojan_freecode;
  std::string trojan_usertrojan;
  std::string sys_trust_ip;
  std::string sys_log_ex;
  bool log_requests = false;        ///< sys_log_ex asks for a line per request
  std::string system_common_areas;  ///< text of the part

  BaseSettings base;
  RequestSettings request;
  ProtectSettings protect;
  InjectionSettings sql;
  AttackSettings attack;
  ResponseSettings response;
  ListSettings lists;
  AddressSets addresses;

  bool need_post_body = false;

  // Prepared while loading.
  ExtendedFunctions extended;
  PageSettings page;
  CKeywordRules get_rules;
  CKeywordRules post_rules;
  CKeywordRules header_rules;
  CUrlExemptions injection_exemptions;  ///< sql.allow_urls
  PreparedLists prepared_lists;
  PreparedAccess access;
  PreparedWords words;
  PreparedScript script;
};

}  // namespace qiv
