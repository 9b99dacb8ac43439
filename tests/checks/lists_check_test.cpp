#include "checks/lists_check.h"

#include "config/list_settings.h"
#include "tests/checks/check_fixture.h"
#include "tools/area_builder.h"

namespace qiv {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kClient = "192.0.2.7";
constexpr const char* kClient6 = "2001:db8::7";

class ListsCheckTest : public CCheckFixture {
 protected:
  ListsCheckTest() {
    facts_.raw_url = "/shop/list.php?id=5&kind=2";
    facts_.path = "/shop/list.php";
    facts_.user_agent = "Mozilla/5.0 Robot";
    facts_.referer = "http://elsewhere/";
  }

  static CIpRanges Ranges(const char* list) {
    CIpRanges ranges;
    ranges.Add(list);
    return ranges;
  }
  /// Both addresses of the tests on a list of the firewall service.
  void Put(const char* list, std::int64_t end = 2'000'000) {
    std::string text;
    for (const char* client : {kClient, kClient6, "198.51.100.1"}) {
      text += EncipherLine(std::string(list) + "\tadd\tIIS\t" + client + "\t1\t" + std::to_string(end) + "\treason");
    }
    ASSERT_TRUE(ReplaceFile(in_file_, text));
    ASSERT_TRUE(exchange_.ReadLists(fixture_now));
  }
  void WriteLibraries() {
    CAreaBuilder ipv4(true);
    CAreaBuilder ipv6(false);
    ipv4.Add(ParseIpRange("192.0.2.0/24").value(), "AA", "Aland");
    ipv6.Add(ParseIpRange("2001:db8::/32").value(), "AA", "Aland");
    ASSERT_TRUE(ReplaceFile(directory_.Path("iplib.db"), ipv4.Build().content));
    ASSERT_TRUE(ReplaceFile(directory_.Path("iplibv6.db"), ipv6.Build().content));
    ASSERT_TRUE(ReplaceFile(directory_.Path("_badip.db"), encrypt_text("", "192.0.2.0/24\n2001:db8::/32\n")));
    ASSERT_TRUE(libraries_.ReloadChanged());
  }
  CheckResult Run() {
    site_->prepared_lists = PrepareLists(site_->lists, site_->sys_trust_ip);
    UseSite();
    CheckResult result;
    ListsCheck(facts_, Context(), result);
    EXPECT_EQ(result.request.statistics, false);
    if (result.status != kBlocked) {
      EXPECT_EQ(result.log, 0);
    }
    return result;
  }
};

/// One way onto a list: with the switch off, or with values that nearly match, nothing is decided.
struct Way {
  const char* name;
  void (*match)(ListsCheckTest&, WebsiteConfig&);
  void (*miss)(ListsCheckTest&, WebsiteConfig&);
};

#define SITE [](ListsCheckTest&, WebsiteConfig & site)

TEST_F(ListsCheckTest, WhiteListsAllow) {
  const Way ways[] = {
      {"common addresses", SITE{site.addresses.website_sys_common_area_ips = Ranges("192.0.2.7|2001:db8::7");
}
, SITE { site.addresses.website_sys_common_area_ips = Ranges("192.0.2.8|2001:db8::8"); }
}  // namespace
, {"url", SITE{site.lists.status_url = 1, site.lists.allow_urls = "/none|list.php?name&id";
}  // namespace qiv
, SITE { site.lists.allow_urls = "/shop"; }
}
, {"user agent", SITE{site.lists.status_ua = 1, site.lists.allow_uas = "Spider|Robot";
}
, SITE { site.lists.status_ua = 1, site.lists.allow_uas = "robot|{$empty}"; }
}
, {"referer", SITE{site.lists.status_rf = 1, site.lists.allow_rfs = "//else";
}
, SITE { site.lists.allow_rfs = "//else"; }
}
, {"spider",
   SITE{site.lists.status_spider = 1, site.addresses.website_lists_allow_spider_ips = Ranges("192.0.2.*|2001:db8::/64");
}
, SITE { site.addresses.website_lists_allow_spider_ips = Ranges("192.0.2.*|2001:db8::/64"); }
}
, {"area name", SITE{site.lists.status_iparea = 1, site.lists.allow_areas = "BB|aland";
}
, SITE { site.lists.status_iparea = 1, site.lists.allow_areas = "BB|Alan"; }
}
, {"area ranges", SITE{site.lists.status_iparea = 1,
                       site.addresses.website_lists_allow_area_ips = Ranges("192.0.2.0/24|2001:db8::/64");
}
, SITE { site.addresses.website_lists_allow_area_ips = Ranges("192.0.2.0/24|2001:db8::/64"); }
}
, {"address", SITE{site.lists.status_iparea = 1, site.lists.allow_ips = "192.0.2.7|2001:db8::7";
}
, SITE { site.lists.status_iparea = 1, site.lists.allow_ips = "192.0.2.70|2001:db8::70"; }
}
,
}
;
WriteLibraries();
for (const Way& way : ways) {
  for (const char* client : {kClient, kClient6}) {
    SetClient(client);
    *site_ = WebsiteConfig();
    way.match(*this, *site_);
    EXPECT_EQ(Run().status, kAllowed) << way.name << " " << client;
    // A client on a white list is not blocked, whatever else it is on.
    site_->lists.status_ua = 1;
    site_->lists.deny_uas = "Mozilla";
    EXPECT_EQ(Run().status, kAllowed) << way.name << " " << client;
    *site_ = WebsiteConfig();
    way.miss(*this, *site_);
    EXPECT_EQ(Run().status, kUndecided) << way.name << " " << client;
  }
}
EXPECT_EQ(statistics_, Lines());
}

TEST_F(ListsCheckTest, BlackListsBlock) {
  struct Black {
    Way way;
    const char* english;  // item: reason
    const char* chinese;
  };
  const Black lists[] = {{{"url", SITE{site.lists.status_url = 1, site.lists.deny_urls = "kind=2";
}
, SITE { site.lists.deny_urls = "kind=2"; }
}
, "URL blacklist: URL is in URL blacklist", "URL黑名单: URL在URL黑名单中"
}
, {{"user agent", SITE{site.lists.status_ua = 1, site.lists.deny_uas = "Nothing|Robot|Mozilla";
}
, SITE { site.lists.status_ua = 1, site.lists.deny_uas = "robot|{$empty}"; }
}
, "UA blacklist: UserAgent is in UA blacklist:Robot,UserAgent:Mozilla/5.0 Robot)",
    "UA黑名单: UserAgent在UA黑名单中：Robot，UserAgent：Mozilla/5.0 Robot）"
}
, {{"referer", SITE{site.lists.status_rf = 1, site.lists.deny_rfs = "elsewhere";
}
, SITE { site.lists.deny_rfs = "elsewhere"; }
}
, "Referer blacklist: Referer is in referer blacklist:elsewhere,Referer:http://elsewhere/)",
    "来路黑名单: Referer在来路黑名单中：elsewhere，Referer：http://elsewhere/）"
}
, {{"malicious", SITE{site.lists.status_malice = 1;
}
, SITE { site.lists.status_malice = 1, site.sys_trust_ip = "192.0.2.7|2001:db8::/64"; }
}
, "Malicious IP blacklist: Block malicious IP", "恶意IP黑名单: 拦截恶意IP"
}
, {{"address", SITE{site.lists.status_iparea = 1, site.lists.deny_ips = "192.0.2.0-192.0.2.9|2001:db8::7";
}
, SITE { site.lists.deny_ips = "192.0.2.0-192.0.2.9|2001:db8::7"; }
}
, "IP blacklist: IP is in IP blacklist", "IP黑名单: IP在IP黑名单中"
}
, {{"area", SITE{site.lists.status_iparea = 1, site.lists.deny_areas = "aa";
}
, SITE { site.lists.status_iparea = 1, site.lists.deny_areas = "bb"; }
}
, "Area blacklist: Area is in area blacklist", "区域黑名单: 区域在区域黑名单中"
}
, {{"area ranges", SITE{site.lists.status_iparea = 1,
                        site.addresses.website_lists_deny_area_ips = Ranges("192.0.2.0/24|2001:db8::/64");
}
, SITE { site.addresses.website_lists_deny_area_ips = Ranges("192.0.2.0/24|2001:db8::/64"); }
}
, "Area blacklist: Area is in area blacklist", "区域黑名单: 区域在区域黑名单中"
}
,
}
;
WriteLibraries();
for (const Black& black : lists) {
  for (const char* client : {kClient, kClient6}) {
    SetClient(client);
    for (const Language language : {Language::kEnglish, Language::kChinese}) {
      *site_ = WebsiteConfig();
      site_->language = language;
      black.way.match(*this, *site_);
      const CheckResult result = Run();
      EXPECT_EQ(result.status, kBlocked) << black.way.name << " " << client;
      EXPECT_EQ(CCharSet::LocalToUtf8(result.item + ": " + result.reason),
                language == Language::kEnglish ? black.english : black.chinese);
      EXPECT_EQ(CCharSet::LocalToUtf8(result.category),
                language == Language::kEnglish ? "Black and white list" : "黑白名单");
      EXPECT_EQ(result.kind, std::uint64_t{kKindLists});
      EXPECT_EQ(result.log, 1);
      EXPECT_EQ(result.plain_block, 0);
      EXPECT_EQ(result.smart_block, 0);
    }
    *site_ = WebsiteConfig();
    black.way.miss(*this, *site_);
    EXPECT_EQ(Run().status, kUndecided) << black.way.name << " " << client;
  }
}
const Lines counted = {"malice 192.0.2.7 -", "malice 192.0.2.7 -", "malice 2001:db8::7 -", "malice 2001:db8::7 -"};
EXPECT_EQ(statistics_, counted);
phase_ = kPhaseSendResponse;
site_->lists.status_malice = 1;
EXPECT_EQ(Run().status, kBlocked);
EXPECT_EQ(statistics_, counted) << "a request is counted at its begin";
}

TEST_F(ListsCheckTest, AnEmptyHeaderIsAValueOfItsOwn) {
  facts_.user_agent.clear();
  facts_.referer.clear();
  site_->lists.status_ua = site_->lists.status_rf = 1;
  EXPECT_EQ(Run().status, kUndecided);
  site_->lists.deny_rfs = "x|{$empty}";
  EXPECT_EQ(Run().reason, "Referer is empty and in referer blacklist");
  site_->lists.deny_uas = "{$empty}";
  EXPECT_EQ(Run().reason, "UserAgent is empty and in UA blacklist");
  EXPECT_EQ(Run().item, "UA blacklist");
  site_->lists.allow_rfs = "{$empty}";
  EXPECT_EQ(Run().status, kAllowed);
  facts_.user_agent = "{$empty}";  // the marker is no text
  facts_.referer = "other";
  EXPECT_EQ(Run().status, kUndecided);
}

TEST_F(ListsCheckTest, LockSwitchesMakeSmartBlocks) {
  struct Case {
    std::int32_t ListSettings::*lock;
    const char* item;
  };
  const Case cases[] = {{&ListSettings::url_lock_use_firewall, "URL blacklist"},
                        {&ListSettings::ua_lock_use_firewall, "UA blacklist"},
                        {&ListSettings::rfs_lock_use_firewall, "Referer blacklist"}};
  site_->lists.status_url = site_->lists.status_ua = site_->lists.status_rf = 1;
  std::string ListSettings::*const texts[] = {&ListSettings::deny_urls, &ListSettings::deny_uas,
                                              &ListSettings::deny_rfs};
  const char* const values[] = {"/shop", "Robot", "elsewhere"};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    for (std::size_t k = 0; k < std::size(cases); ++k) {
      site_->lists.*texts[k] = k == i ? values[k] : "";
      site_->lists.*cases[k].lock = k == i ? 1 : 0;
    }
    CheckResult result = Run();
    EXPECT_EQ(result.item, cases[i].item);
    EXPECT_EQ(result.smart_block, 1);
    EXPECT_EQ(result.smart_block_title, cases[i].item);
    EXPECT_EQ(result.smart_block_text, "Firewall Block");
    site_->lists.*cases[i].lock = 0;
    EXPECT_EQ(Run().smart_block, 0);
  }
}

TEST_F(ListsCheckTest, TheServicesListsDecide) {
  for (const char* client : {kClient, kClient6}) {
    SetClient(client);
    fixture_now += 10;
    Put("denylist");
    EXPECT_EQ(Run().status, kUndecided);  // consulted only with 404-scan protection on
    site_->attack.e404 = 1;
    const CheckResult result = Run();
    EXPECT_EQ(result.status, kBlocked);
    EXPECT_EQ(result.category + "/" + result.item + "/" + result.reason, "Deny list/Deny list/IP is in deny list");
    EXPECT_EQ(result.log, 1);
    site_->language = Language::kChinese;
    EXPECT_EQ(CCharSet::LocalToUtf8(Run().reason), "IP在拦截清单中");
    site_->language = Language::kEnglish;
    // Before any black list, after every white one.
    site_->lists.status_url = 1;
    site_->lists.deny_urls = "/shop";
    EXPECT_EQ(Run().item, "Deny list");
    site_->lists.allow_urls = "/shop";
    EXPECT_EQ(Run().status, kAllowed);
    site_->lists = ListSettings();
    fixture_now += 10;
    ASSERT_TRUE(RemoveFile(in_file_));
    Put("authlist");
    EXPECT_EQ(Run().status, kAllowed);
    fixture_now += 10;
    ASSERT_TRUE(RemoveFile(in_file_));
    ASSERT_TRUE(exchange_.ReadLists(fixture_now));
    site_->attack.e404 = 0;
  }
}

TEST_F(ListsCheckTest, TheForwardedAddressIsDeniedToo) {
  site_->attack.e404 = 1;
  Put("denylist", 1'000'100);
  SetClient("203.0.113.1");
  EXPECT_EQ(Run().status, kUndecided);
  for (const char* forwarded : {"198.51.100.1", kClient6}) {
    facts_.forwarded_ip = forwarded;
    EXPECT_EQ(Run().status, kBlocked) << forwarded;
  }
  for (const char* forwarded : {"198.51.100.2", "nonsense"}) {
    facts_.forwarded_ip = forwarded;
    EXPECT_EQ(Run().status, kUndecided) << forwarded;
  }
  facts_.forwarded_ip = "198.51.100.1";
  fixture_now = 1'000'100;  // the entry has ended
  EXPECT_EQ(Run().status, kUndecided);
}

}  // namespace
}  // namespace qiv
