#include "config/config_parser.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/char_set.h"
#include "common/text.h"
#include "config/access_settings.h"
#include "config/config_keys.h"
#include "config/local_form.h"
#include "tests/config/config_text.h"

namespace qiv {
namespace {

ConfigStatus Status(const std::string& settings) {
  WebsiteConfig config;
  return ParseConfigParts("", settings, &config);
}

WebsiteConfig Parse(const std::string& settings, const std::string& ip_lists = "") {
  WebsiteConfig config;
  EXPECT_EQ(ParseConfigParts(ip_lists, settings, &config), ConfigStatus::kLoaded) << settings;
  return config;
}

/// One section of JSON, written with ' for ".
std::string Section(const std::string& name, std::string json) {
  for (char& c : json) {
    if (c == '\'') c = '"';
  }
  return "<" + name + ">" + json + "</" + name + ">";
}

std::string Show(bool value) { return value ? "on" : "off"; }
std::string Show(std::int32_t value) { return std::to_string(value); }
std::string Show(std::uint32_t value) { return std::to_string(value); }
std::string Show(const std::string& value) { return value; }

/// A key of a section and what its values, written with ' for ", are read as: "value=read" divided by blanks.
struct ValueCases {
  const char* section;
  const char* key;
  std::string (*read)(const WebsiteConfig&);
  const char* cases;
};
#define VALUES(section, key) \
  "website_" #section, #key, [](const WebsiteConfig& config) { return Show(config.section.key); }

const ValueCases kValueCases[] = {
    {VALUES(request, type),
     "'10'=10 10=10 '\\u00207x'=7 'on'=0 true=0 [1]=0 '99999999999'=2147483647 '1','type':'2'=2"},
    {VALUES(response, passwd), "'1'=on 1=on 'true'=off true=off '01'=off '\\u00201'=off"},
    {VALUES(attack, overflow_url_maxlen), "'2048'=2048 '2048b'=0 '-1'=0 '4294967296'=0"},
    {VALUES(attack, e404_lock_freq), "'20'=20 '20\\u0020'=0"},
    {VALUES(request, types), "'GET,post,\\u0020|rpc|\\u0020,|OTHER|'=,get,post,|RPC|,|OTHER|, ',get,post,'=,get,post,"},
    {VALUES(request, types), "'\\u0020,\\u0020'="},
    {VALUES(attack, spider_deny_spiders), "'Baidu,Sogou'=,Baidu,Sogou,"},
    {VALUES(attack, cc_file_type), "'|ASP|php|'=,asp,php,"},
    {VALUES(protect, link_file_types), "'jpg'=,jpg,"},
    {VALUES(protect, link_white_referers),
     "'','link_empty_refer':1=|{$empty}| 'a.com|b.com','link_empty_refer':1=a.com|b.com|{$empty}| 'a.com'=a.com"},
    {VALUES(attack, cc_verify_type), "'select'=4 'cookie'=5 '2'=1 ''=1"},
    {VALUES(response, ret_type), "'4'=4 5=1 ''=1"},
    {VALUES(request, csrf_mode), "'0'=0 2=2 'Strict'=2 '3'=1"},
    {VALUES(request, xframe_type), "'AllowFrom'=3 'deny'=1 'x'=0"},
    {VALUES(request, xframe_allowfrom), "'\\u0020https://a\\r\\nX:1'=https://aX:1"},
    // Times and what they depend on.
    {VALUES(attack, cc_lock_time), "'10'=600 '2147483647'=2147483640"},
    {VALUES(attack, e404_lock_time), "-5=0"},
    {VALUES(attack, cc_lock_freq_sec), "'0'=60 '-9'=60"},
    {VALUES(attack, e404_lock_freq_sec), "'5'=5"},
    {VALUES(response, lock), "1,'lock_freq':3,'lock_time':2=on 1,'lock_freq':3=off 1,'lock_time':2=off"},
    {VALUES(response, lock_time), "2,'lock':1,'lock_freq':3=120 2,'lock_freq':0=0"},
    {VALUES(response, lock_freq_sec), "9,'lock_freq':0,'lock_time':2=60"},
};

TEST(ConfigParser, ReadsValues) {
  for (const ValueCases& key : kValueCases) {
    for (const std::string_view one : Split(key.cases, ' ')) {
      const std::size_t middle = one.rfind('=');
      const std::string json = "{'" + std::string(key.key) + "':" + std::string(one.substr(0, middle)) + "}";
      EXPECT_EQ(key.read(Parse(SettingsText(Section(key.section, json)))), one.substr(middle + 1)) << json;
    }
  }
}

TEST(ConfigParser, LeavesOutWhatHasNoGbkForm) {
  const struct {
    KeyType type;
    const char* written;
    const char* kept;  // UTF-8
    std::vector<std::string> lost;
  } cases[] = {
      {KeyType::kList, "ä", "", {"ä"}},
      {KeyType::kList, "/a|/中 ä|/中|?", "/a|/中|?", {"/中 ä"}},
      {KeyType::kNames, ",a,ö , b,", ",a, b,", {"ö"}},
      {KeyType::kExtensions, "jpg|ñ,png", "jpg|png", {"ñ"}},
      {KeyType::kRules, "a==ä*b{*}{*}r{*}1{#}x{*}{*}ä remark{*}2{#}", "x{*}{*}? remark{*}2{#}", {"a==ä*b{*}{*}r{*}1"}},
      {KeyType::kText, "中", "中", {}},
      {KeyType::kNumber, "1ä", "1?", {}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> lost;
    EXPECT_EQ(CCharSet::LocalToUtf8(ToLocalForm(c.type, c.written, &lost)), c.kept) << c.written;
    EXPECT_EQ(lost, c.lost) << c.written;
  }
  std::vector<std::string> lost;
  EXPECT_EQ(ToLocalForm(KeyType::kText, "中ä", &lost), "中ä") << "a text stays whole, in UTF-8";
  EXPECT_EQ(TaggedToLocalForm(KeyType::kList, "\xD6\xD0|\xCE\xC4", &lost), "\xD6\xD0|\xCE\xC4") << "GBK already";
  const WebsiteConfig config = Parse(SettingsText(Section("website_attack", "{'cc_allow_ips':'10.0.0.1,ä 10.0.0.2'}")));
  EXPECT_EQ(config.attack.cc_allow_ips, "10.0.0.1,? 10.0.0.2") << "one odd word costs no address";
}

TEST(ConfigParser, ReadsUploadTypes) {
  using Case = std::pair<std::string, const char*>;
  for (const auto& [written, held] : {Case("jpg,PNG", ",jpg,png,"), {"*", ",*,"}, {",jpg,", ",jpg,"}, {"", ""}}) {
    EXPECT_EQ(Parse(SettingsText("", "{\"upload_types\":\"" + written + "\"}")).base.upload_types, held) << written;
  }
}

TEST(ConfigParser, RefusesWhatIsNoConfiguration) {
  const std::string empty_sections = Section("website_sql", "{}") + Section("website_lists", "{'allow_urls':");
  const std::pair<std::string, ConfigStatus> cases[] = {
      {"", ConfigStatus::kNoBasePart},
      {"<website_base", ConfigStatus::kNoBasePart},
      {"<website_base><website_on_servers>1</website_on_servers>{\"hide\":1}", ConfigStatus::kNotOnServers},
      {"<website_base>{\"website_on_servers\":\"1\"}</website_base>", ConfigStatus::kNotOnServers},
      {"<website_on_servers>1</website_on_servers><website_base>{\"hide\":1}</website_base>",
       ConfigStatus::kNotOnServers},
      {"<website_base><website_on_servers>01</website_on_servers>{\"hide\":1}</website_base>",
       ConfigStatus::kNotOnServers},
      {"<website_base><website_on_servers>true</website_on_servers></website_base>", ConfigStatus::kNotOnServers},
      {SettingsText("", ""), ConfigStatus::kNoSections},
      {SettingsText(empty_sections, "{}"), ConfigStatus::kNoSections},
      {SettingsText(empty_sections, "}{"), ConfigStatus::kNoSections},
      {SettingsText(Section("website_attack", "{'cc':0}"), ""), ConfigStatus::kLoaded},
      {SettingsText(Section("website_attack", "junk {'cc':0} junk"), "{\"hide\":"), ConfigStatus::kLoaded},
  };
  for (const auto& [settings, status] : cases) EXPECT_EQ(Status(settings), status) << settings;
}

TEST(ConfigParser, ReadsSwitches) {
  const std::string switches =
      "<language>zh-CN</language><sys_is_qiv>1</sys_is_qiv><enable_ipv6prot>1</enable_ipv6prot>"
      "<extend_functions>one, website_js</extend_functions><website_other><sys_temp_time>30</sys_temp_time>"
      "<sys_trust_ip>1.2.3.4</sys_trust_ip></website_other>";
  const WebsiteConfig on = Parse(switches + SettingsText(""));
  EXPECT_EQ(on.language, Language::kChinese);
  EXPECT_TRUE(on.library_enabled);
  EXPECT_TRUE(on.ipv6_protection);
  EXPECT_EQ(on.extend_functions, ",one,website_js,");
  EXPECT_EQ(on.sys_temp_time, 30U);
  EXPECT_EQ(on.sys_trust_ip, "1.2.3.4");

  const WebsiteConfig off =
      Parse("<language>zh-cn</language><sys_is_qiv>true</sys_is_qiv><enable_ipv6prot>01</enable_ipv6prot>" +
            SettingsText(""));
  EXPECT_EQ(off.language, Language::kEnglish);
  EXPECT_FALSE(off.library_enabled);
  EXPECT_FALSE(off.ipv6_protection);

  using Time = std::pair<std::string, std::uint32_t>;
  for (const auto& [written, held] : {Time("0", 0),
                                      {"000", 0},
                                      {"", 720},
                                      {"12a", 720},
                                      {"-1", 720},
                                      {" 5", 720},
                                      {"4294967295", 4294967295U},
                                      {"4294967296", 720}}) {
    const std::string tag = "<sys_temp_time>" + written + "</sys_temp_time>";
    EXPECT_EQ(Parse("<website_other>" + tag + "</website_other>" + SettingsText("")).sys_temp_time, held) << written;
  }
}

TEST(ConfigParser, ScriptKeysNeedTheirFunction) {
  const std::string base = "{\"js\":1,\"js_urls\":\"/a\",\"js_out_freeurls\":\"/b\",\"js_out_codes\":\"x\"}";
  const std::pair<const char*, bool> cases[] = {
      {"website_js", true}, {"a,website_js,b", true}, {"website_js2", false}, {"", false}};
  for (const auto& [functions, enabled] : cases) {
    const WebsiteConfig config =
        Parse("<extend_functions>" + std::string(functions) + "</extend_functions>" + SettingsText("", base));
    EXPECT_EQ(config.base.js, enabled ? 1 : 0) << functions;
    EXPECT_EQ(config.base.js_urls, enabled ? "/a" : "") << functions;
    EXPECT_EQ(config.base.js_out_freeurls, enabled ? ",/b," : "") << functions;
    EXPECT_EQ(config.base.js_out_codes, enabled ? "x" : "") << functions;
  }
}

TEST(ConfigParser, CapturesTheBodyForTheKeysThatReadIt) {
  const auto needs = [](std::string_view section, const char* json) {
    if (section == "base") {
      std::string base = Section("", json);  // between "<>" and "</>"
      return Parse(SettingsText("", base.substr(2, base.size() - 5))).need_post_body;
    }
    return Parse(SettingsText(Section("website_" + std::string(section), json))).need_post_body;
  };
  using Case = std::pair<const char*, const char*>;
  for (const auto& [section, json] : {Case("base", "{'trojan_post':1}"),
                                      {"base", "{'upload':1}"},
                                      {"base", "{'upload_file':1}"},
                                      {"base", "{'upload_exe':1}"},
                                      {"base", "{'badcode':1,'badcode_post':1}"},
                                      {"request", "{'ill_block_post':1}"},
                                      {"request", "{'ill_replace_post':1}"},
                                      {"request", "{'ill_record_post':1}"},
                                      {"sql", "{'post':1}"},
                                      {"request", "{'photo':1,'photo_post':1}"}}) {
    EXPECT_TRUE(needs(section, json)) << json;
  }
  for (const auto& [section, json] : {Case("base", "{'badcode_post':1}"),
                                      {"request", "{'photo_post':1}"},
                                      {"sql", "{'xss':1,'xss_post':1}"},
                                      {"base", "{'trojan':1,'trojan_post':'true'}"},
                                      {"base", "{'badcode':'on','badcode_post':1}"}}) {
    EXPECT_FALSE(needs(section, json)) << json;
  }
}

TEST(ConfigParser, HoldsTextsInTheLocalCodePage) {
  const std::string bar_trail = "\x81\x7C";  // one character whose second byte is "|"
  const std::string utf8 = CCharSet::LocalToUtf8(bar_trail + "\xC4\xE3");
  const std::string keys = utf8 + "==" + utf8 + "*B{*}*{*}" + utf8 + "{*}7{#}";
  const std::string response =
      Section("website_response", "{'ret_type':4,'ret_content':'" + utf8 + "','passwd_key':'" + utf8 + "'}");
  const WebsiteConfig config = Parse(SettingsText(Section("website_sql", "{'get_keys':'" + keys + "'}") + response));
  ASSERT_EQ(config.get_rules.Rules().size(), 1U);
  const InjectionRule& rule = config.get_rules.Rules()[0];
  EXPECT_EQ(rule.shown, bar_trail + "\xC4\xE3");
  EXPECT_EQ(rule.words, (std::vector<std::string>{bar_trail + "\xC4\xE3", "b"}));
  EXPECT_EQ(rule.identifier, "7");
  EXPECT_EQ(config.response.passwd_key, bar_trail + "\xC4\xE3");
  EXPECT_EQ(config.page.content, utf8);

  // A service that writes GBK is read all the same.
  const WebsiteConfig local = Parse(SettingsText(Section("website_response", "{'passwd_key':'" + bar_trail + "'}")));
  EXPECT_EQ(local.response.passwd_key, bar_trail);
}

TEST(ConfigParser, ReadsAddressSets) {
  const std::string lists =
      "<website_lists_deny_area_ips><ipv4>10.0.0.0/8|1.2.3</ipv4><ipv6>2001:db8::/32</ipv6></"
      "website_lists_deny_area_ips>"
      "<website_sys_common_area_ips>192.168.1.1\r\n192.168.1.9-192.168.1.12</website_sys_common_area_ips>"
      "<website_lists_allow_area_ips>10.1.1.1|<ipv6>::1</ipv6></website_lists_allow_area_ips>"
      "<website_attack_spiders_all_keys>baidu||google|</website_attack_spiders_all_keys>";
  const WebsiteConfig config = Parse(SettingsText(""), lists);
  const AddressSets& sets = config.addresses;
  const auto holds = [](const CIpRanges& set, const char* address) {
    return set.Contains(*CIpAddress::Parse(address));
  };
  EXPECT_TRUE(holds(sets.website_lists_deny_area_ips, "10.9.8.7"));
  EXPECT_FALSE(holds(sets.website_lists_deny_area_ips, "1.2.3.4"));
  EXPECT_TRUE(holds(sets.website_lists_deny_area_ips, "2001:db8::5"));
  EXPECT_TRUE(holds(sets.website_sys_common_area_ips, "192.168.1.10"));
  EXPECT_FALSE(holds(sets.website_sys_common_area_ips, "192.168.1.2"));
  EXPECT_TRUE(holds(sets.website_lists_allow_area_ips, "::1"));
  EXPECT_TRUE(holds(sets.website_lists_allow_area_ips, "10.1.1.1")) << "no <ipv4>: the whole part is its list";
  EXPECT_TRUE(sets.website_attack_all_spiders_ips.Empty());
  EXPECT_EQ(sets.website_attack_spiders_all_keys, (std::vector<std::string>{"baidu", "google"}));
}

TEST(ConfigParser, ReadsWholeFiles) {
  const std::string good =
      FileText(SettingsText(""), "<website_sys_common_area_ips>1.1.1.1</website_sys_common_area_ips>");
  std::string lower = good;
  for (char& c : lower) {
    if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
  }
  const std::string other_key =
      "<qivips_websiteconfigpart>" + encrypt_text("another", SettingsText("")) + "</qivips_websiteconfigpart>";
  const std::pair<std::string, ConfigStatus> cases[] = {
      {good, ConfigStatus::kLoaded},
      {lower, ConfigStatus::kLoaded},
      {FileText("\n" + SettingsText("")), ConfigStatus::kLoaded},
      {"<qivips_websiteconfigpart>\r\n" + encrypt_text("", SettingsText("")) + "\r\n</qivips_websiteconfigpart>",
       ConfigStatus::kLoaded},
      {other_key, ConfigStatus::kNoBasePart},
      {good.substr(0, good.size() / 2), ConfigStatus::kNoBasePart},
      {SettingsText(""), ConfigStatus::kNoSettingsPart},
      {"ab", ConfigStatus::kTooShort},
      {"abc", ConfigStatus::kNoSettingsPart},
  };
  for (const auto& [text, status] : cases) {
    WebsiteConfig config;
    EXPECT_EQ(ParseConfigText(text, &config), status) << text;
  }
  WebsiteConfig config;
  ParseConfigText(good, &config);
  EXPECT_FALSE(config.addresses.website_sys_common_area_ips.Empty());
}

TEST(TimeSpans, HoldTheirDaysAndCrossMidnight) {
  struct Moment {
    const char* span;
    int weekday;  // 0 Sunday
    int minute;
    bool held;
  };
  constexpr int kHour = 60;
  const Moment moments[] = {
      {"08:00-18:00", 3, 8 * kHour, true},      {"08:00-18:00", 3, 8 * kHour - 1, false},
      {"08:00-18:00", 0, 18 * kHour - 1, true}, {"8:00 - 18:00", 0, 18 * kHour, false},
      {"22:00-06:00", 0, 23 * kHour, true},     {"22:00-06:00", 0, 6 * kHour - 1, true},
      {"22:00-06:00", 0, 6 * kHour, false},     {"00:00-24:00", 6, 24 * kHour - 1, true},
      {"00:00-00:00", 6, 12 * kHour, true},     {"5 22:00-06:00", 5, 23 * kHour, true},
      {"5 22:00-06:00", 6, 5 * kHour, true},    {"5 22:00-06:00", 5, 5 * kHour, false},
      {"5 22:00-06:00", 6, 23 * kHour, false},  {"7 22:00-06:00", 1, 5 * kHour, true},
      {"6-1 09:00-10:00", 0, 9 * kHour, true},  {"6-1 09:00-10:00", 1, 9 * kHour, true},
      {"6-1 09:00-10:00", 2, 9 * kHour, false}, {"1,3 09:00-10:00", 3, 9 * kHour, true},
      {"1,3 09:00-10:00", 2, 9 * kHour, false},
  };
  for (const auto& [span, weekday, minute, held] : moments) {
    const auto parsed = ParseTimeSpan(span);
    ASSERT_TRUE(parsed) << span;
    EXPECT_EQ(parsed->Holds(weekday, minute), held) << span << " " << weekday << " " << minute;
  }
  for (const char* const bad :
       {"", "8-9", "08:00", "08:00-", "25:00-26:00", "08:60-09:00", "24:00-25:00", "08:00-24:01", "8 08:00-09:00",
        "0-3 08:00-09:00", "1- 08:00-09:00", "008:00-09:00", "08:0-09:00"}) {
    EXPECT_FALSE(ParseTimeSpan(bad)) << bad;
  }
}

TEST(Methods, AreAdmittedByNameAndByMarker) {
  const std::pair<const char*, const char*> cases[] = {
      {"get,post", "GET POST -HEAD -PROPFIND -RPC_IN_DATA -"},
      {"GET, |OTHER|", "GET PROPFIND get -POST -DELETE -RPC_IN_DATA"},
      {"|RPC|", "RPC_IN_DATA RDG_OUT_DATA -GET -RPC"},
      {"rpc", "RPC_OUT_DATA -OPTIONS"},
  };
  for (const auto& [types, methods] : cases) {
    const WebsiteConfig config =
        Parse(SettingsText(Section("website_request", std::string("{'types':'") + types + "'}")));
    for (std::string_view method : Split(methods, " ")) {
      const bool admitted = !method.starts_with('-');
      if (!admitted) method.remove_prefix(1);
      EXPECT_EQ(config.access.types.Admits(method), admitted) << types << " " << method;
    }
  }
}

TEST(ConfigKeys, AreDeclaredOnce) {
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (const ConfigKey& key : ConfigKeys()) EXPECT_TRUE(seen.insert({key.section, key.name}).second) << key.name;
  std::size_t in_sections = 0;
  for (const std::string_view section : ConfigSections()) in_sections += ConfigKeys(section).size();
  EXPECT_EQ(in_sections, seen.size());
}

}  // namespace
}  // namespace qiv
