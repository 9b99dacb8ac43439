#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "common/text.h"
#include "config/config_keys.h"
#include "tools/settings_lint.h"

namespace qiv {
namespace {

/// What lint says about a text, written with ' for ".
std::string LintAll(std::string text) {
  for (char& c : text) {
    if (c == '\'') c = '"';
  }
  CReport report("s.json");
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(text, &report);
  if (settings != nullptr) LintSettings(*settings, &report);
  return report.Text();
}

/// The same without the remarks about keys that nothing acts on yet, which go one by one.
std::string Lint(const std::string& text) {
  const std::string all = LintAll(text);
  std::string kept;
  for (const std::string_view line : Split(all, '\n')) {
    if (!line.empty() && !line.ends_with(NoEffectText(KeyReader::kIdle))) AppendAll(&kept, {line, "\n"});
  }
  return kept;
}

/// Sections of a website that is otherwise in order, on line 2.
std::string Website(const std::string& more) {
  return "{'website_on_servers': '1', 'website_base': {},\n" + more + "}";
}

TEST(Lint, HasNothingToSayAboutGoodSettings) {
  const char* const good[] = {
      "'language': 'zh-CN', 'sys_is_qiv': '1', 'extend_functions': 'website_js'",
      "'website_other': {'sys_temp_time': 30, 'sys_trust_ip': ['1.2.3.4', '10.0.0.0/8', '::1']}",
      "'website_sql': {'get': 1, 'get_super_mode': '1', 'post': '', 'header': '0', 'get_mode': 0}",
      "'website_sql': {'get': 1, 'get_keys': 'a==b{*}*{*}{*}1{#}\\n'}",
      "'website_attack': {'cc': 1, 'cc_lock_freq': '100', 'cc_lock_time': 5, 'cc_verify_type': 'slide'}",
      "'website_attack': {'overflow': 1, 'overflow_httpheader_rule': 1, 'overflow_httpheader_rules': 'Host:255|A-B: "
      "9'}",
      "'website_protect': {'timelimit': 1, 'timelimit_limit_urls': '/a', 'timelimit_auth_times': '1-5 "
      "08:00-18:00|22:00-06:00|7 00:00-24:00'}",
      "'website_response': {'ret_type': '', 'ret_status': 302, 'ret_url': 'https://a', 'lock': '0'}",
      "'system_common_areas': {'any': ['thing']}, 'ip_sets': {'website_attack_spiders_all_keys': 'a|b'}",
  };
  for (const char* const more : good) EXPECT_EQ(Lint(Website(more)), "") << more;
}

TEST(Lint, SaysWhichSwitchesNothingActsOn) {
  for (const ConfigKey& key : ConfigKeys()) {
    if (key.type != KeyType::kSwitch && key.type != KeyType::kFlag) continue;
    const std::string name(key.name);
    const std::string remark = "\"" + name + "\" has no effect in this version\n";
    for (const bool on : {true, false}) {
      // A section once: the second object of one name would take the place of the first.
      std::string text = "{'website_on_servers': '1', '" + std::string(key.section) + "': {'" + name + "': '" +
                         (on ? "1" : "0") + "'}}";
      const bool said = LintAll(text).find(remark) != std::string::npos;
      EXPECT_EQ(said, on && key.reader == KeyReader::kIdle) << text;
    }
  }
}

TEST(Lint, SaysWhatIsDoubtfulAndWhere) {
  struct Case {
    const char* more;
    const char* said;  ///< the end of it
  };
  const Case cases[] = {
      // Unknown keys.
      {"'languag': 'x'", "unknown key \"languag\" (did you mean \"language\"?)"},
      {"'website_sqll': {}", "unknown key \"website_sqll\" (did you mean \"website_sql\"?)"},
      {"'zzzzzzzz': 1", "unknown key \"zzzzzzzz\""},
      {"'website_attack': {'cc_lock_frq': 1}", "\"cc_lock_frq\" in website_attack (did you mean \"cc_lock_freq\"?)"},
      {"'website_attack': {'upload_types': 1}", "key \"upload_types\" in website_attack; it belongs in website_base"},
      {"'website_other': {'x': 1}", "unknown key \"x\" in website_other"},
      {"'ip_sets': {'website_lists_deny_ips': ''}", "in ip_sets (did you mean \"website_lists_deny_area_ips\"?)"},
      {"'ip_sets': {'website_lists_deny_area_ips': {'ipv5': ''}}", "(did you mean \"ipv4\"?)"},
      // Numbers and flags.
      {"'website_request': {'hide': 1}", "unknown key \"hide\" in website_request; it belongs in website_base"},
      {"'website_request': {'type_log': true}", "\"type_log\" is a number: write 1 or 0, true reads as 0"},
      {"'website_request': {'type_log': 'yes'}", "\"type_log\" is no whole number: \"yes\" reads as 0"},
      {"'website_request': {'type_log': '10s'}", "\"type_log\" is no whole number: \"10s\" reads as 10"},
      {"'website_attack': {'overflow_url_maxlen': '10s'}", "is no whole number: \"10s\" reads as 0"},
      {"'website_request': {'type_log': 1.5}", "\"type_log\" is no whole number: \"1.5\" reads as 1"},
      {"'website_request': {'type_log': 2}", "\"type_log\" is a switch: write 1 or 0, 2 switches it on"},
      {"'website_request': {'type_log': -2}", "\"type_log\" is negative"},
      {"'website_request': {'type_log': 2147483648}", "\"type_log\" is too large: 2147483648"},
      {"'website_attack': {'overflow_url_maxlen': 4294967296}", "\"overflow_url_maxlen\" is too large: 4294967296"},
      {"'website_response': {'passwd': 'true'}", "\"passwd\" is off: only \"1\" switches it on, not \"true\""},
      {"'website_response': {'passwd': '01'}", "\"passwd\" is off: only \"1\" switches it on, not \"01\""},
      {"'enable_ipv6prot': true", "\"enable_ipv6prot\" is off: only \"1\" switches it on, not \"true\""},
      // Values out of range.
      {"'language': 'zh-cn'", "\"language\" is none of zh-CN, en-US: \"zh-cn\" reads as en-US"},
      {"'website_response': {'ret_type': 7}", "\"ret_type\" is none of 1, 2, 3, 4: \"7\" reads as 1"},
      {"'website_response': {'ret_status': '503'}", "is none of 200, 302, 403, 404, 500: \"503\" reads as 403"},
      {"'website_attack': {'cc_verify_type': 'jmp'}", "jump, click, slide, select, cookie: \"jmp\" reads as jump"},
      // Lists.
      {"'website_lists': {'deny_ips': ['1.2.3.4', '1.2.3.400']}", "entry that is no address or range: \"1.2.3.400\""},
      {"'ip_sets': {'website_sys_common_area_ips': '10.0.0.0/33'}", "that is no address or range: \"10.0.0.0/33\""},
      {"'website_lists': {'deny_urls': ['/a|/b']}", "has an entry that holds \"|\" and is read as several"},
      {"'website_lists': {'deny_urls': ['/a', '']}", "\"deny_urls\" has an empty entry"},
      {"'website_attack': {'cc_file_type': 'php,.asp'}", "an extension with its dot; extensions are written without"},
      {"'website_sql': {'get_keys': ['a{*}b{*}c']}", "than 4 fields divided by \"{*}\"; it is skipped: \"a{*}b{*}c\""},
      {"'website_sql': {'get_keys': ['a=={*}*{*}{*}1']}", "a rule without words; it never matches: \"a=={*}*{*}{*}1\""},
      {"'website_attack': {'overflow_httpheader_rules': 'Host:255|Host'}", "that is not \"Name:limit\": \"Host\""},
      {"'website_protect': {'timelimit_auth_times': '8.00-18:00'}",
       "that is not \"[1-5 ]HH:MM-HH:MM\": \"8.00-18:00\""},
      {"'website_attack': {'spider_deny_spiders': 'Bot,Yandex,b'}",
       "the name of a spider (three letters at least): \"b\""},
      // Features without what they need.
      {"'website_attack': {'cc': 1, 'cc_lock_freq': 5}", "\"cc\" is on, but \"cc_lock_time\" 0 turns it off"},
      {"'website_attack': {'overflow': 1}", "\"overflow\" is on, but every limit is 0"},
      {"'website_response': {'lock': 1, 'lock_time': 5}", "\"lock\" is on, but \"lock_freq\" 0 turns it off"},
      {"'website_response': {'ret_type': 3}", "\"ret_type\" is 3, but \"ret_url\" is empty"},
      {"'website_response': {'ret_status': 302}", "\"ret_status\" 302 without \"ret_url\" reads as 403"},
      {"'website_response': {'ret_url': '/blocked'}", "\"ret_url\" gets \"http://\" in front"},
      {"'website_sql': {'header': 1}", "\"header\" is on, but it has neither super mode nor keywords"},
      {"'website_sql': {'xss': 1, 'xss_post': 1, 'xss_html_action': 1}", "captures the body is, as \"post\" would"},
      {"'website_request': {'photo_post': 1}", "\"photo_post\" is on, but \"photo\" is off"},
      {"'extend_functions': 'website_jss'", "website_body, website_headers, website_path, website_log_only"},
      {"'extend_functions': 'website_log_only'", "is on: nothing is blocked, events say what would be"},
      {"'extend_functions': 'website_log_only:injection'", "is on: nothing is blocked by injection"},
      // Keys that are there twice, in one object or as sections.
      {"'website_sql': {'get': 0}, 'website_sql': {'post': 0}", "was set on line 2 already; what stands there is lost"},
      {"'website_response': {'passwd': '0',\n'passwd': '0'}", "was set on line 2 already; what stands there is lost"},
      // Locks.
      {"'website_other': {'sys_temp_time': '0'}", "\"sys_temp_time\" 0 is taken as 720 minutes"},
      {"'sys_is_qiv': '1', 'enable_ipv6prot': '1', 'website_attack': {'e404': 1, 'e404_lock_freq': 1, "
       "'e404_lock_time': 1}, 'website_response': {'lock': 1, 'lock_freq': 1, 'lock_time': 5}",
       "\"lock_freq\" 1 locks a client at its first blocked request"},
      {"'enable_ipv6prot': '1', 'website_attack': {'e404': 1, 'e404_lock_freq': 1, 'e404_lock_time': 1}, "
       "'website_response': {'lock': 1, 'lock_freq': 2, 'lock_time': 5}",
       "locks keep nobody out: \"sys_is_qiv\" is not \"1\", so the module does not read the lists"},
      {"'sys_is_qiv': '1', 'enable_ipv6prot': '1', 'website_lists': {'url_lock_use_firewall': 1}",
       "locks keep nobody out: the deny list is consulted only while \"e404\" of website_attack is on"},
      // What is in order, but does more than it seems.
      {"'website_lists': {'status_url': 1, 'allow_urls': '/p?id|/open'}", "in \"&z=/open\"; \"page?name\" opens less"},
      {"'website_request': {'cookie': 1, 'xss_mode': 1}", "caches and content delivery networks then keep no answer"},
      // What cannot be packed.
      {"'website_lists': {'deny_urls': ['/a', '/\xF0\x9F\x98\x80']}", "cannot look for it: \"/\xF0\x9F\x98\x80\""},
      {"'website_lists': {'deny_uas': 'x|\xE4\xBD\xA0|\xF0\x9F\x98\x80'}", "cannot look for it: \"\xF0\x9F\x98\x80\""},
      {"'website_sql': []", "\"website_sql\" is no object"},
      {"'website_sql': {'get': {}}", "\"get\" is no text, number or array of them"},
      {"'website_other': {'sys_log_ex': '</website_other>'}", "holds the tag <website_other>, as the file's own"},
  };
  for (const Case& c : cases) {
    const std::string line = std::to_string(2 + std::count(c.more, c.more + std::strlen(c.more), '\n'));
    const std::string text = Lint(Website(c.more));
    EXPECT_TRUE(text.starts_with("qivctl: s.json:" + line + ": ") && text.ends_with(std::string(c.said) + "\n"))
        << c.more << "\n"
        << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  }
}

TEST(Lint, OrdersByLineAndNamesTheFileAlone) {
  EXPECT_EQ(Lint("{\n'website_base': {'js': 1, 'js_urls': '/',\n'js_out_codes': 'x',\n'upload_exe': 'on'},\n'b': 1}"),
            "qivctl: s.json: \"website_on_servers\" is missing: the module refuses the settings\n"
            "qivctl: s.json:2: \"js\" is on, but counts only while \"extend_functions\" names \"website_js\"\n"
            "qivctl: s.json:4: \"upload_exe\" is off: only \"1\" switches it on, not \"on\"\n"
            "qivctl: s.json:5: unknown key \"b\"\n");
  EXPECT_EQ(Lint("{'a':\n 1,,}").substr(0, 17), "qivctl: s.json:2:");
  EXPECT_EQ(Lint("[]"), "qivctl: s.json:1: the settings are no JSON object\n");
}

}  // namespace
}  // namespace qiv
