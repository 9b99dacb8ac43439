#include "checks/injection_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "checks/body_text.h"
#include "checks/injection_texts.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/injection/injection_library.h"
#include "engines/injection/rule_text.h"
#include "tests/checks/lone_context.h"

namespace qiv {
namespace {

class CStatistics final : public IEventRecorder {
 public:
  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult&) override {}
  void RecordStatistics(std::string_view category, std::string_view ip, std::string_view rule) override {
    lines.push_back(std::string(category) + " " + std::string(ip) + " " + std::string(rule));
  }
  std::vector<std::string> lines;
};

InjectionRule Rule(std::string shown, std::string remark, std::string id, std::vector<std::string> words) {
  return {std::move(shown), "*", std::move(remark), std::move(id), std::move(words)};
}

/// Everything on; the cut word "'", the rule word "union", the event "onload", one keyword rule a place.
std::shared_ptr<WebsiteConfig> Site() {
  auto site = std::make_shared<WebsiteConfig>();
  InjectionSettings& sql = site->sql;
  sql.get = sql.get_super_mode = sql.post_super_mode = sql.header = sql.header_super_mode = 1;
  sql.post = true;
  sql.xss = sql.xss_get = sql.xss_post = sql.xss_header = 1;
  sql.xss_html_action = sql.xss_script_block = sql.xss_script_load = 1;
  site->get_rules = CKeywordRules({Rule("get rule", "noted", "g1", {"drop", "table"})});
  site->post_rules = CKeywordRules({Rule("post rule", "", "p1", {"drop", "table"})});
  site->header_rules = CKeywordRules({Rule("header rule", "noted", "h1", {"drop", "table"})});
  return site;
}

struct Outcome {
  CheckResult result;
  std::vector<std::string> statistics;
  bool attack = false;
};

Outcome Judge(std::shared_ptr<WebsiteConfig> site, RequestFacts facts, bool countable = true) {
  const InjectionLibrary library(std::vector{Rule("union", "union query", "r1", {"union"})},
                                 std::vector{Rule("'", "", "k1", {"'"})},
                                 std::vector{Rule("onload", "", "e1", {"onload"})});
  facts.client_ip = "203.0.113.7";
  for (const HeaderEntry& header : facts.headers) facts.all_headers += header.value;
  CStatistics statistics;
  CLoneContext lone(*site, nullptr, &statistics);
  Outcome outcome;
  outcome.result.request.statistics = countable;
  InjectionCheck(facts, lone.With(library), outcome.result);
  outcome.statistics = statistics.lines;
  outcome.attack = outcome.result.request.attack;
  return outcome;
}

RequestFacts Query(std::string text) {
  RequestFacts facts;
  facts.query = std::move(text);
  return facts;
}
RequestFacts Body(std::string text) {
  RequestFacts facts;
  facts.body = std::move(text);
  return facts;
}
RequestFacts Headers(std::vector<HeaderEntry> headers) {
  RequestFacts facts;
  facts.headers = std::move(headers);
  return facts;
}

TEST(InjectionCheck, WritesTheTextsOfEveryPlaceAndKind) {
  struct Case {
    const char* name;
    RequestFacts facts;
    const char* item;
    const char* reason;
    const char* detail;  // what it begins with
    const char* detail_end;
    const char* statistics;
  };
  const Case cases[] = {
      {"keyword in query", Query("A=1 Drop the TABLE x"), "SQL Injection Protection(GET)",
       "Deny SQL injection,Keywords:get rule", "Deny SQL injection,Keywords:get rule(noted)", "(noted)",
       "sql_get 203.0.113.7 g1"},
      {"semantic in query", Query("a=1' UNION select 1"), "SQL Injection Protection(GET)",
       "Deny SQL injection(Cloud matching),Keywords:union", "Deny SQL injection(Cloud matching),Keywords:union(", ")",
       "sql_act 203.0.113.7 r1"},
      {"xss in query", Query("a=<script>x"), "XSS Injection Protection",
       "Deny XSS injection(GET),Type:", "Deny XSS injection(GET),Type:", "", "xss 203.0.113.7 -"},
      {"keyword in body", Body("a=drop table x"), "SQL Injection Protection(POST)",
       "Deny SQL injection,Keywords:post rule",
       "Deny SQL injection,Keywords:post rule,Connective:", "Connective:a=drop table x", "sql_post 203.0.113.7 p1"},
      {"xss in body", Body("a=<script>x"), "XSS Injection Protection", "Deny XSS injection(POST),Type:",
       "Deny XSS injection(POST),Type:", ",Connective:a=<script>x", "xss 203.0.113.7 -"},
      {"keyword in one header", Headers({{20, "Accept", "*/*"}, {40, "User-Agent", "Drop table"}}),
       "SQL Injection Protection(Header)", "Deny SQL injection,Keywords:header rule",
       "Deny SQL injection,Keywords:header rule(Remark:noted)", "(Header[User-Agent]=Drop table)",
       "sql_header 203.0.113.7 h1"},
      {"keyword across headers", Headers({{20, "Accept", "d"}, {40, "User-Agent", "rop table"}}),
       "SQL Injection Protection(Header)", "Deny SQL injection,Keywords:header rule",
       "Deny SQL injection,Keywords:header rule(Remark:noted)", "(Header[(Merge)]=)", "sql_header 203.0.113.7 h1"},
      {"semantic in header", Headers({{25, "Cookie", "a"}, {36, "Referer", "x' union select"}}),
       "SQL Injection Protection(Header)", "Deny SQL injection(Cloud matching),Keywords:union",
       "Deny SQL injection(Cloud matching),Keywords:union(Remark:union query)", "(Header[Referer]=x' union select)",
       "sql_act 203.0.113.7 r1"},
      {"xss in a header without a name", Headers({{20, "Accept", "a"}, {99, "", "<script>x"}}),
       "XSS Injection Protection", "Deny XSS injection(Header),Type:", "Deny XSS injection(Header),Type:",
       "(Header[1]=<script>x)", "xss 203.0.113.7 -"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome outcome = Judge(Site(), c.facts);
    const CheckResult& r = outcome.result;
    ASSERT_EQ(r.status, kBlocked);
    EXPECT_EQ(r.item, c.item);
    EXPECT_TRUE(r.reason.starts_with(c.reason)) << r.reason;
    EXPECT_TRUE(r.detail.starts_with(c.detail)) << r.detail;
    EXPECT_TRUE(r.detail.ends_with(c.detail_end)) << r.detail;
    EXPECT_EQ(r.category, "Injection");
    EXPECT_EQ(std::vector<std::int64_t>({r.log, r.notify, r.plain_block, r.smart_block}),
              std::vector<std::int64_t>({1, 1, 1, 0}));
    EXPECT_EQ(r.kind, 5u);
    EXPECT_TRUE(outcome.attack);
    EXPECT_EQ(outcome.statistics, std::vector<std::string>{c.statistics});
  }
}

TEST(InjectionCheck, SpeaksChinese) {
  auto site = Site();
  site->language = Language::kChinese;
  site->sql.header_mode = 1;
  const CheckResult r = Judge(site, Headers({{40, "User-Agent", "drop table"}})).result;
  EXPECT_EQ(CCharSet::LocalToUtf8(r.item), "SQL防注入（Header）");
  EXPECT_EQ(CCharSet::LocalToUtf8(r.reason), "拦截SQL注入，关键词：header rule");
  EXPECT_EQ(CCharSet::LocalToUtf8(r.detail),
            "拦截SQL注入，关键词：header rule（备注：noted）（Header[User-Agent]=drop table）");
  EXPECT_EQ(CCharSet::LocalToUtf8(r.category), "注入防护");
  EXPECT_EQ(CCharSet::LocalToUtf8(r.smart_block_title), "智能拦截");
  EXPECT_EQ(CCharSet::LocalToUtf8(r.smart_block_text), "触发严格拦截模式，自动拦截");
  EXPECT_EQ(r.smart_block, 1);
  EXPECT_EQ(r.plain_block, 0);
}

/// Facts as they are collected.
RequestFacts Sent(std::string url, std::string body = {}, std::string type = "application/x-www-form-urlencoded") {
  static std::deque<std::string> kept;  // raw bodies are views
  RequestFacts facts;
  facts.raw_url = std::move(url);
  const std::size_t mark = std::min(facts.raw_url.find('?'), facts.raw_url.size() - 1);
  facts.query = Trim(NormalizeText(std::string(Trim(facts.raw_url.substr(mark + 1)))));
  facts.raw_body = kept.emplace_back(std::move(body));
  facts.content_type = std::move(type);
  SetBodyText(true, &facts);
  return facts;
}

TEST(InjectionCheck, ShowsWhatWasSent) {
  const std::string form = "multipart/form-data; boundary=b";
  const std::string part = "--b\r\nContent-Disposition: form-data; name=\"";
  const std::string filler(700, 'x');
  struct Case {
    RequestFacts facts;
    std::string detail;  // a piece of it, in UTF-8
  };
  const Case cases[] = {
      // Characters whose second byte is a capital, and capitals.
      {Sent("/?a=1&B=%E6%9C%B1%E9%95%95%E5%9F%BA%27+Union+Select+X"), "(Detail:B=朱镕基' Union Select X)"},
      {Sent("/", "Q=%E9%95%95'+UNION+SELECT+1"), "(Detail:Q=镕'+UNION+SELECT+1),Connective:Q=镕'+UNION+SELECT+1"},
      {Sent("/", "a=1&b=<IMG+Title=%E9%95%95+OnLoad=Go()>"), "Keywords:<IMG+Title=镕+OnLoad=Go(),Connective:a=1&b="},
      {Headers({{40, "User-Agent", "<p title=镕 onLoad=Go>"}}),
       "Keywords:<p title=镕 onLoad=Go(Header[User-Agent]=<p t"},
      {Sent("/", "a=" + filler + "镕镕''+un/**/ion+select"), ",Connective:...xxx"},
      {Sent("/", "a=" + filler + "镕镕'+union+select"), "xxx镕镕'+union+select"},
      // Secrets, whatever they hold; other values stay.
      {Sent("/?Pass%77ord=a%26hush%27+union+select+1&b=2"), "(Detail:=***)"},
      {Sent("/", "a=1&pwd=%26hush%22'+union+select+hush&b=2"), "(Detail:=***),Connective:a=1&pwd=***&b=2"},
      {Sent("/", "a=1&pwd=hush<p+onload=hush>&b=2"), "Keywords:***,Connective:a=1&pwd=***&b=2"},
      {Sent("/", "a=1&pwd=" + filler + "hush'+union+select+hush"), "Connective:...***"},
      {Sent("/", R"({"b":2,"password":"a%22\"&hush' union select 1"})", "application/json"), R"("password":"***"})"},
      {Sent("/", part + "psw\"\r\n\r\nhu\r\nhush' union select&\r\n--b--", form), "name=\"psw\"\r\n\r\n***\r\n--b--"},
      {Headers({{24, "Authorization", "Digest a=\"hush' union select 1"}}), "(Header[Authorization]=***)"},
      {Headers({{24, "Authorization", "drop table hush"}}), "(Header[Authorization]=***)"},
      {Headers({{24, "Authorization", "hush<p onload=hush"}}), "Keywords:***(Header[Authorization]=***)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.detail);
    const CheckResult r = Judge(Site(), c.facts).result;
    EXPECT_EQ(r.status, kBlocked);
    const std::string detail = CCharSet::LocalToUtf8(r.detail);
    EXPECT_NE(detail.find(c.detail), std::string::npos) << detail;
    EXPECT_EQ((r.detail + r.reason).find("hush"), std::string::npos) << detail;
    CheckResult hidden = r;
    HideSecrets(&hidden);
    EXPECT_EQ(hidden.detail, r.detail) << "no more than the secrets is hidden";
  }
}

// The contents of a binary file are no text, whatever stands in them; of a part that some reader takes for a field they
// are.
TEST(InjectionCheck, LeavesBinaryFilesOut) {
  const std::string binary = std::string("PK\3\4\0\0", 6) + std::string(300, 'x') + "' union select drop table";
  const auto judge = [](const std::string& head, const std::string& content, const std::string& rest = "--b--") {
    const std::string part = "--b\r\nContent-Disposition: form-data; " + head + "\r\n\r\n" + content + "\r\n" + rest;
    return Judge(Site(), Sent("/", part, "multipart/form-data; boundary=b")).result.status;
  };
  const std::string file = "name=\"f\"; filename=\"a.zip\"";
  EXPECT_EQ(judge(file, binary), kUndecided);
  EXPECT_EQ(judge(file, binary, "--b\r\nContent-Disposition: form-data; name=\"q\"\r\n\r\ndrop table\r\n--b--"),
            kBlocked);
  EXPECT_EQ(judge(file, binary.substr(6)), kBlocked) << "a file of text";
  EXPECT_EQ(judge(file + "\r\nContent-Type: application/zip", binary), kUndecided);
  EXPECT_EQ(judge(file, std::string(300, '\1') + "drop table"), kUndecided) << "no NUL, but no text";
  EXPECT_EQ(judge(file, "\1" + binary.substr(6)), kBlocked) << "one control byte";
  EXPECT_EQ(judge(file, std::string("\0' union select", 15)), kBlocked) << "short";
  EXPECT_EQ(judge(file + "\n\n" + binary, binary), kBlocked) << "contents of two readings";
  for (const std::string& head :
       {std::string("name=\"f\""), std::string("name=\"f\"; filename=\"\""), std::string("name=f; filename=a.zip"),
        std::string("name=\"f\\\"; filename=\"a.zip\""), std::string("name=\"f\"; filename=\"a\"; filename=\"b\""),
        std::string("name=\"q\"; x=\"; filename=\"a.zip\""), std::string("name=\"q\"\r\nX-A: b; filename=\"a.zip\""),
        file + "\r\nContent-Disposition: form-data; name=\"q\"", file + "\r\nContent-Transfer-Encoding: base64",
        std::string("name=\"q\0\"; filename=\"a.zip\"", 27),
        "name=\"" + std::string(5000, 'q') + "\"; filename=\"a\""}) {
    EXPECT_EQ(judge(head, binary), kBlocked) << head;
  }
  EXPECT_EQ(judge(file, binary + "\r\n--bx\r\nContent-Disposition: form-data; name=\"q\"\r\n\r\ndrop table"), kBlocked)
      << "two readings";
}

// A page may believe the charset that the client states, or not.
TEST(InjectionCheck, JudgesWideBodiesInBothReadings) {
  const std::string text = "q=drop table";
  std::string wide = "\xFF\xFE";
  for (const char c : text) wide.append(1, c).append(1, '\0');
  const std::string form = "application/x-www-form-urlencoded";
  for (const std::string& type : {form, form + "; charset=utf-16", form + "; charset=utf-8; xcharset=utf-16"}) {
    EXPECT_EQ(Judge(Site(), Sent("/", wide, type)).result.status, kBlocked) << type;
    EXPECT_EQ(Judge(Site(), Sent("/", "\xFF\xFE&" + text, type)).result.status, kBlocked) << type;
  }
}

TEST(InjectionCheck, RuleWordsAreWholeCharacters) {
  const struct {
    const char* words;  // in UTF-8
    std::string query;  // in GBK
    bool hit;
  } cases[] = {
      {"镕", "a=\xD6\xEC\xE9\x46\xBB\xF9", true},
      {"镕", "a=\xD6\xEC\xE9\x66\xBB\xF9", false},  // second byte "f" in place of "F"
      {"中", "a=\xD6\xD0", true},
      {"中", "a=\xB9\xD6\xD0\xC7", false},  // the end of one character and the beginning of the next
      {"中DROP",
       "a=\xD6\xD0"
       "Drop",
       true},
      {"drop",
       "a=\x81"
       "Drop",
       true},  // nothing hides a word of ASCII letters
      {"drop*中",
       "a=\x81"
       "Drop \xD6\xD0",
       true},
      {"drop*中", "a=\xD6\xD0 drop", false},
  };
  for (const auto& c : cases) {
    auto site = Site();
    site->get_rules = CKeywordRules(ParseRules(CCharSet::Utf8ToLocal(c.words) + "{*}{*}{*}1{#}", '*', true));
    EXPECT_EQ(Judge(site, Query(c.query)).result.status, c.hit ? kBlocked : kUndecided) << c.words << " " << c.query;
  }
}

TEST(InjectionTexts, MatchRecords) {
  const InjectionLibrary library({Rule("shown", "remark", "77", {"select"})}, {Rule("and", "", "", {"and"})}, {});
  const auto record = [&](std::string value, bool is_parameter, Language language = Language::kEnglish) {
    SqlFinding finding = SqlInjectionDetector::FindingOf(0, library);
    finding.is_parameter = is_parameter;
    const HeaderEntry text{0, "", "n=" + value};
    finding.name = {0, 1};
    finding.value = {2, value.size()};
    finding.word = {2, 0};
    return MatchRecord(finding, std::string_view(text.value), CShownText::Header(text), language);
  };
  EXPECT_EQ(record("and select 1", true), Rule("shown", "Detail:n=and select 1", "77", {"select"}));
  EXPECT_EQ(record("and select 1", false), Rule("shown", "remark", "77", {"select"}));
  EXPECT_EQ(CCharSet::LocalToUtf8(record("1", true, Language::kChinese).remark), "详情：n=1");
  const std::string a(849, 'a');
  std::string han = "b";
  while (han.size() < 900) han += "\xD6\xD0";
  const std::pair<std::string, std::string> values[] = {
      {std::string(800, 'a'), std::string(800, 'a')},
      {std::string(801, 'a'), std::string(800, 'a') + "..."},
      {a + " select " + std::string(42, 'b'), "...select " + std::string(42, 'b')},
      {"select" + a, "select" + std::string(794, 'a') + "..."},
      {a + "select" + a, "...select" + std::string(794, 'a') + "..."},
      {han, han.substr(0, 799) + "..."},  // no half character at the end
      {a + "\xD6"
           "select",
       "...\xD6"
       "select"},  // nor at the beginning
  };
  for (const auto& [value, shown] : values) EXPECT_EQ(record(value, true).remark, "Detail:n=" + shown);
  const SqlFinding mismatch = SqlInjectionDetector::FindingOf(1, library);
  const InjectionRule reserved = MatchRecord(mismatch, {}, {}, Language::kEnglish);
  EXPECT_EQ(reserved, (InjectionRule{"", "", "Format does not match", "0", {""}}));
}

TEST(InjectionCheck, FollowsItsSwitches) {
  struct Case {
    const char* name;
    void (*change)(WebsiteConfig&);
    RequestFacts facts;
    const char* item;  // null: passes
  };
  const Case cases[] = {
      {"get off, xss on: xss", [](WebsiteConfig& s) { s.sql.get = 0; }, Query("a=<script>x"),
       "XSS Injection Protection"},
      {"get off, xss on: no sql", [](WebsiteConfig& s) { s.sql.get = 0; }, Query("a=1' union select drop table"),
       nullptr},
      {"xss off: xss_get does nothing", [](WebsiteConfig& s) { s.sql.xss = 0; }, Query("a=<script>x"), nullptr},
      {"super mode off: rules only", [](WebsiteConfig& s) { s.sql.get_super_mode = 0; }, Query("a=1' union select"),
       nullptr},
      {"capitals behind a byte that databases read as a blank", [](WebsiteConfig&) {},
       Query("a=1\xA0"
             "DROP\xA0TABLE"),
       "SQL Injection Protection(GET)"},
      {"super mode without a hit: rules", [](WebsiteConfig&) {}, Body("a=drop table"),
       "SQL Injection Protection(POST)"},
      {"post off",
       [](WebsiteConfig& s) {
         s.sql.post = false;
         s.sql.xss_post = 0;
       },
       Body("a=drop table"), nullptr},
      {"header off", [](WebsiteConfig& s) { s.sql.header = 0; }, Headers({{40, "User-Agent", "drop table"}}), nullptr},
      {"words inside longer words", [](WebsiteConfig&) {}, Query("a=raindrop tables"), nullptr},
      {"words in the other order", [](WebsiteConfig&) {}, Query("a=table drop"), nullptr},
      {"nothing", [](WebsiteConfig&) {}, RequestFacts{}, nullptr},
      {"query before body", [](WebsiteConfig&) {},
       [] {
         RequestFacts facts = Query("a=drop table");
         facts.body = std::string("a=drop table");
         return facts;
       }(),
       "SQL Injection Protection(GET)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto site = Site();
    c.change(*site);
    const Outcome outcome = Judge(site, c.facts);
    EXPECT_EQ(outcome.result.status, c.item ? kBlocked : kUndecided);
    EXPECT_EQ(outcome.result.item, c.item ? c.item : "");
    EXPECT_EQ(outcome.result.log, c.item ? 1 : 0);
    EXPECT_EQ(outcome.statistics.empty(), c.item == nullptr);
  }
}

TEST(InjectionCheck, ExemptsUrlsOfTheList) {
  RequestFacts facts = Query("id=1' union select");
  facts.raw_url = "/news/show.asp?id=1%27+union+select";
  facts.path = "/news/show.asp";
  facts.body = std::string("a=drop table");
  auto site = Site();
  site->sql.allow_urls = "show.asp?id";
  site->injection_exemptions = CUrlExemptions(site->sql.allow_urls);
  EXPECT_EQ(Judge(site, facts).result.status, kBlocked) << "the switch is off";
  site->sql.allow = 1;
  EXPECT_EQ(Judge(site, facts).result.status, kUndecided);
  facts.path = "/news/list.asp";
  facts.raw_url = "/news/list.asp?id=1%27+union+select";
  EXPECT_EQ(Judge(site, facts).result.status, kBlocked) << "the same parameter of another page";
}

TEST(InjectionCheck, CountsAQueryHitAlwaysAndOthersOnlyWhenCountable) {
  const std::pair<RequestFacts, std::size_t> cases[] = {
      {Query("a=drop table"), 1}, {Body("a=drop table"), 0}, {Headers({{40, "User-Agent", "drop table"}}), 0}};
  for (const auto& [facts, lines] : cases) {
    EXPECT_EQ(Judge(Site(), facts, false).statistics.size(), lines);
  }
}

}  // namespace
}  // namespace qiv
