#include "tools/settings_document.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "common/aes.h"
#include "config/config_parser.h"
#include "tools/reference_page.h"

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
      "/你",
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
  EXPECT_TRUE(config.injection_exemptions.Matches("/\xE4\xBD\xA0", "/"));
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

TEST(ReferencePage, IsUpToDate) {
  std::ifstream file(QIV_SOURCE_ROOT "/docs/configuration-reference.md", std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_EQ(text, ReferencePage()) << "run: qivctl reference > docs/configuration-reference.md";
}

}  // namespace
}  // namespace qiv
