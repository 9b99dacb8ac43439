#include "tools/settings_document.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "common/aes.h"
#include "common/text.h"
#include "config/config_parser.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tools/files.h"
#include "tools/reference_page.h"
#include "tools/settings_edit.h"
#include "tools/settings_lint.h"

namespace qiv {
namespace {

std::string Pack(const std::string& text) {
  CReport report("s");
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(text, &report);
  const std::string packed = settings == nullptr ? std::string() : PackSettings(*settings, &report);
  EXPECT_EQ(report.Text(), "") << text;
  return packed;
}

std::string Unpack(const std::string& packed) {
  CReport report("c");
  const std::string text = UnpackSettings(packed, &report);
  EXPECT_EQ(report.Text(), "") << packed;
  return text;
}

// As unpack writes it.
const char* const kReadable = R"({
  "language": "zh-CN",
  "sys_is_qiv": "1",
  "enable_ipv6prot": "0",
  "extend_functions": [
    "website_js",
    "other"
  ],
  "website_on_servers": "1",
  "website_other": {
    "sys_temp_time": "30",
    "trojan_freecode": [
      "<% one %>{*}x",
      "two"
    ],
    "sys_log_ex": "</"
  },
  "website_base": {
    "hide": 1,
    "upload_types": ",jpg,png,",
    "badcode": "1",
    "not_ours": {
      "kept": [
        true,
        null
      ]
    },
    "js_out_codes": [
      "<script>",
      "",
      "</website_base>{{freeurls}}"
    ]
  },
  "website_sql": {
    "get_keys": [
      "你|好==select*from{*}*{*}remark{*}1",
      "b{*}*{*}{*}2"
    ],
    "allow_urls": [
      "@@/你",
      "/a?b&c"
    ]
  },
  "website_lists": {},
  "system_common_areas": {
    "group": "<ipv4>"
  },
  "ip_sets": {
    "website_lists_deny_area_ips": {
      "ipv4": [
        "1.2.3.4",
        "10.0.0.0/8"
      ],
      "ipv6": "::1"
    },
    "website_sys_common_area_ips": "1.1.1.1\n2.2.2.2",
    "website_attack_spiders_all_keys": [
      "baidu",
      "你"
    ]
  }
}
)";

TEST(Settings, UnpackGivesBackWhatWasPacked) {
  const std::string packed = Pack(kReadable);
  EXPECT_EQ(Unpack(packed), kReadable);
  EXPECT_EQ(Pack(Unpack(packed)), packed);

  WebsiteConfig config;
  ASSERT_EQ(ParseConfigText(packed, &config), ConfigStatus::kLoaded);
  EXPECT_EQ(config.language, Language::kChinese);
  EXPECT_EQ(config.sys_temp_time, 30U);
  EXPECT_EQ(config.trojan_freecode, "<% one %>{*}x{#}two{#}");
  EXPECT_EQ(config.base.js_out_codes, "<script>\n\n</website_base>{{freeurls}}");
  EXPECT_EQ(config.get_rules.Rules().size(), 2U);
  EXPECT_TRUE(config.injection_exemptions.Matches("@/\xE4\xBD\xA0", "/"));
  EXPECT_TRUE(config.addresses.website_lists_deny_area_ips.Contains(*CIpAddress::Parse("::1")));
  EXPECT_TRUE(config.addresses.website_sys_common_area_ips.Contains(*CIpAddress::Parse("2.2.2.2")));
}

TEST(Settings, ManyWaysToWriteOneThing) {
  const std::string lists[] = {
      R"({"website_on_servers":1,"website_base":{"upload_types":"jpg,png"}})",
      R"({"website_on_servers":"1","website_base":{"upload_types":["jpg","png"]}})",
      R"({"website_base":{"upload_types":",jpg,png,"},"website_on_servers":["1"]})",
  };
  for (const std::string& text : lists) {
    WebsiteConfig config;
    ASSERT_EQ(ParseConfigText(Pack(text), &config), ConfigStatus::kLoaded) << text;
    EXPECT_EQ(config.base.upload_types, ",jpg,png,") << text;
  }
}

TEST(Settings, PackSaysWhatTheModuleWouldRefuseOrLose) {
  const auto said = [](const std::string& text) {
    CReport report("s");
    const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(text, &report);
    if (settings != nullptr) PackSettings(*settings, &report);
    return report.Text();
  };
  EXPECT_EQ(said("{\"website_on_servers\":\"0\",\"website_base\":{\"hide\":1}}"), "");
  EXPECT_NE(said("{}").find("the module will refuse"), std::string::npos);
  EXPECT_NE(said("{\"website_on_servers\":\"1\",\"website_base\":{}}").find("none of the seven"), std::string::npos);
  const std::string good = "{\"website_on_servers\":1,\"website_base\":{\"hide\":1},\n";
  EXPECT_EQ(said(good + "\"websit_sql\":{}}"), "qivctl: s:2: \"websit_sql\" is unknown and was left out\n");
  EXPECT_EQ(said(good + "\"ip_sets\":{\"x\":\"\"}}"), "qivctl: s:2: \"x\" is unknown and was left out\n");
  EXPECT_EQ(said(good + "\"language\":\"a\\u0000\"}"), "qivctl: s:2: \"language\" holds a zero byte\n");
  EXPECT_EQ(said("{\"website_base\":{},\n\"website_on_servers\":\"{\"}"),
            "qivctl: s:2: \"website_on_servers\" is no switch\n");
}

TEST(Settings, UnpackSaysWhatIsDamaged) {
  const auto said = [](const std::string& settings) {
    CReport report("c");
    UnpackSettings("<qivips_websiteconfigpart>" + settings + "</qivips_websiteconfigpart>", &report);
    return report;
  };
  CReport report("c");
  EXPECT_EQ(UnpackSettings("x", &report), "");
  EXPECT_EQ(report.ExitCode(), kExitError);
  EXPECT_EQ(said(encrypt_text("other key", "<website_base>{}</website_base>")).ExitCode(), kExitError);
  const CReport damaged = said(encrypt_text("", "<website_base></website_base><website_sql>{\"a\":</website_sql>"));
  EXPECT_EQ(damaged.ExitCode(), kExitFinding);
  EXPECT_NE(damaged.Text().find("<website_sql> holds no JSON object"), std::string::npos);
}

TEST(Settings, CommentsAreBlanksAndKeepTheLines) {
  const char* const good =
      "\xEF\xBB\xBF// \"a\n{ /* {\n*/ \"language\": \"//x /*\\\"\",\n\"b\": [1, 2,/**/], \"c\": {\"d\": 1,}, // \n}// "
      "e";
  CReport fine("s");
  const auto read = CSettingsDocument::Parse(good, &fine);
  ASSERT_NE(read, nullptr) << fine.Text();
  EXPECT_EQ(read->TextOf("", "language"), "//x /*\"");
  EXPECT_EQ(read->Where(*read->Root().Find("b")).line, 4U);
  for (const char* const bad :
       {"{\"a\": 1,,}", "{,}", "{\"a\": [,]}", "{\"a\":,}", "{} /* x", "{} / x", "{\"a\": 1} ,"}) {
    CReport said("s");
    EXPECT_EQ(CSettingsDocument::Parse(bad, &said), nullptr) << bad;
  }
}

/// A folder of settings with files.
class Files : public testing::Test {
 protected:
  Files() {
    Put("own/words.txt", "# own\n1\ta*b%2A\t-\tone\t\xE4\xB8\x80\n");
    Put("own/bad.txt", "1\ta\t-\tone\ttwo\n\n2\tb\n");
    Put("own/urls.txt", "\xEF\xBB\xBF/a\r\n# x\r\n\r\n /b|c\r\n");
    Put("own/ips/1.txt", "key one\n1.2.3.4\n");
    Put("own/ips/2.txt", "::1\n10.0.0.0/8 \nkey two\n");
    Put("own/page.en-US.html", "<html>\n\"x\"</html>\n");
    folder_.path = directory_.Path("");
    folder_.pending["own/new.txt"] = "x\n";
  }

  void Put(const std::string& name, const std::string& text) {
    const std::string path = directory_.Path(name);
    MakeDirectories(path.substr(0, path.rfind('/')));
    ASSERT_TRUE(ReplaceFile(path, text));
  }

  std::string Said(const std::string& text) {
    CReport report("s");
    const auto settings = CSettingsDocument::Parse(text, &report, &folder_);
    if (settings != nullptr) LintSettings(*settings, &report);
    return ReplaceAll(report.Text(), directory_.Path(""), "/");
  }

  CTemporaryDirectory directory_;
  SettingsFolder folder_;
};

TEST_F(Files, StandForWhatTheyHold) {
  const std::string with_files = R"({"website_on_servers": "1", "website_base": {"hide": "1"},
    "website_sql": {"get_keys": ["0{*}*{*}{*}0", "@own/words.txt"], "post_keys": "@own/words.txt"},
    "website_response": {"ret_content": "@own/page.{language}.html", "passwd_key": "@own/none"},
    "website_lists": {"deny_urls": ["@@x", "@own/urls.txt", "@own/new.txt"]},
    "ip_sets": {"website_lists_deny_area_ips": {"ipv4": "@own/ips/", "ipv6": ["@own/ips/2.txt", "::2"]},
                "website_attack_spiders_all_keys": "@own/ips/"}})";
  const std::string inline_values = R"({"website_on_servers": "1", "website_base": {"hide": "1"},
    "website_sql": {"get_keys": "0{*}*{*}{*}0{#}a*b%2A{*}*{*}one{*}1{#}", "post_keys": "a*b%2A{*}*{*}one{*}1{#}"},
    "website_response": {"ret_content": "<html>\n\"x\"</html>\n", "passwd_key": "@own/none"},
    "website_lists": {"deny_urls": "@@x|/a|/b|c|x"},
    "ip_sets": {"website_lists_deny_area_ips": {"ipv4": "1.2.3.4 ::1 10.0.0.0/8", "ipv6": "::1 10.0.0.0/8|::2"},
                "website_attack_spiders_all_keys": "one|two"}})";
  CReport report("s");
  const auto settings = CSettingsDocument::Parse(with_files, &report, &folder_);
  ASSERT_NE(settings, nullptr);
  EXPECT_EQ(PackSettings(*settings, &report), Pack(inline_values));
  EXPECT_EQ(report.Text(), "");
}

TEST_F(Files, SayWhereTheFaultIs) {
  const auto with = [](const std::string& sql) {
    return "{\"website_on_servers\": \"1\", \"website_base\": {},\n" + sql + "}";
  };
  const std::pair<const char*, const char*> cases[] = {
      {R"("website_sql": {"get_keys": "@own/bad.txt"})",
       "qivctl: /own/bad.txt:3: a rule has five fields divided by tabs: identifier, words, shown text, English and "
       "Chinese "
       "remark\n"},
      {R"("website_sql": {"get_keys": ["a{*}*{*}{*}1",
          "@own/none.txt"]})",
       "qivctl: s:3: \"@own/none.txt\": /own/none.txt cannot be read: "},  // and the system's words
      {R"("website_lists": {"deny_urls": "@own/urls.txt"})",
       "qivctl: /own/urls.txt:4: \"deny_urls\" has an entry that holds \"|\" and is read as several\n"},
      {R"("ip_sets": {"website_lists_deny_area_ips": "@own/urls.txt"})",
       "qivctl: /own/urls.txt:1: is neither an address range nor \"key WORD\": /a\n"
       "qivctl: /own/urls.txt:4: is neither an address range nor \"key WORD\": /b|c\n"},
      {R"("website_lists": {"deny_urls": "@own/../../x"})",
       "qivctl: s:2: \"@own/../../x\" leads out of the settings' folder: a file elsewhere is named by its whole path; "
       "a "
       "text that begins with \"@\" is written \"@@\"\n"},
  };
  for (const auto& [sql, said] : cases) {
    const std::string all = Said(with(sql));
    const std::string_view expected = said;
    EXPECT_EQ(expected.ends_with(' ') ? all.substr(0, expected.size()) : all, expected) << sql;
  }
  CReport report("s");
  CSettingsDocument::Parse(with(R"("website_lists": {"deny_urls": "@own/urls.txt"})"), &report);
  EXPECT_NE(report.Text().find("s:2: \"@own/urls.txt\" names a file, which cannot be looked up here"),
            std::string::npos);
}

TEST_F(Files, UnpackIntoSettingsKeepsWhatIsWritten) {
  const std::string existing = R"(// the shop
{
  "website_on_servers": "1",  // on
  "language": "en-US",
  "note": "unknown",
  "website_base": { "hide": "1", "upload_types": ["jpg", "png"] /* types */ },
  "website_sql": {
    "get_keys": ["@own/words.txt"],  // from the file
    "post_keys": ["@own/words.txt"],
    "get": "1",
    // the last
    "post": "1", // stays
  },
  "ip_sets": {"website_sys_common_area_ips": "1.2.3.4"}
}
)";
  const std::string changed = R"(// the shop
{
  "website_on_servers": "1",  // on
  "language": "en-US",
  "note": "unknown",
  "website_base": { "hide": "0", "upload_types": ["jpg", "png"],
    "url": "1" /* types */ },
  "website_sql": {
    "get_keys": ["@own/words.txt"],  // from the file
    "post_keys": [
      "c{*}*{*}{*}2"
    ],
    // the last
    "post": "1", // stays
    "header": "1",
    "xss": "1"
  },
  "website_lists": {
    "status_url": "1"
  }
}
)";
  CReport report("s");
  const std::string wanted = ReplaceAll(changed, "@own/words.txt", "a*b%2A{*}*{*}one{*}1");
  const std::string packed = Pack(ReplaceAll(wanted, "\"note\": \"unknown\",", ""));
  const std::string merged = MergeSettings(existing, folder_, Unpack(packed), &report);
  EXPECT_EQ(report.Text(), "");
  EXPECT_EQ(merged, changed);
  EXPECT_EQ(MergeSettings(merged, folder_, Unpack(packed), &report), merged);
}

TEST(ReferencePage, IsUpToDate) {
  std::ifstream file(QIV_SOURCE_ROOT "/docs/configuration-reference.md", std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_EQ(text, ReferencePage()) << "run: qivctl reference > docs/configuration-reference.md";
}

}  // namespace
}  // namespace qiv
