#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "checks/form_target.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/config_keys.h"
#include "config/page_settings.h"
#include "config/website_config.h"
#include "module/facts_collector.h"
#include "module/page_renderer.h"
#include "module/page_writer.h"
#include "tests/checks/lone_context.h"
#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::CFakeContext;

constexpr char kHead[] =
    "<!DOCTYPE html><html lang=\"zh-CN\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
    "content=\"width=device-width, initial-scale=1.0\"><meta http-equiv=\"Content-Type\" content=\"text/html; "
    "charset=utf-8\" /><title>";
constexpr char kEnd[] =
    "</body></html><script>if(window.stop){window.stop();}else{document.execCommand(\"stop\");}</script><!--";

class CRecorder final : public IEventRecorder {
 public:
  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult&) override { ++blocks; }
  void RecordStatistics(std::string_view, std::string_view, std::string_view) override {}
  int blocks = 0;
};

class Page : public testing::Test {
 protected:
  Page() {
    facts_.context = &context_;
    facts_.client_ip = "203.0.113.7";
    facts_.full_url = "http://h/a?x=1";
    facts_.raw_url = "/a?x=1";
  }
  /// `settings` are the response section's, given the form that a load gives them.
  void Use(const ResponseSettings& settings, Language language = Language::kEnglish) {
    config_of_site_.response = settings;
    config_of_site_.language = language;
    config_of_site_.page = MakePageSettings(settings);
  }
  CheckContext Context() { return lone_.Context(); }
  std::string Render(CheckResult result = Blocked()) { return RenderPage(facts_, Context(), result); }
  static std::string WithoutTime(std::string page) {
    const std::string_view shape = "dddd-dd-dd dd:dd:dd";
    for (std::size_t at = 0; at + shape.size() <= page.size(); ++at) {
      const auto fits = [](char c, char s) { return s == 'd' ? c >= '0' && c <= '9' : c == s; };
      const auto begin = page.begin() + static_cast<std::ptrdiff_t>(at);
      if (std::equal(shape.begin(), shape.end(), begin, [&](char s, char c) { return fits(c, s); })) {
        return page.replace(at, shape.size(), "TIME");
      }
    }
    return page;
  }
  static CheckResult Blocked() {
    CheckResult result;
    result.status = kBlocked;
    result.reason = "REASON";
    result.item = "ITEM";
    return result;
  }
  const test::CFakeResponse& Write(CheckResult result, const PageOptions& options = {}) {
    WritePage(facts_, Context(), result, contexts_, options);
    return context_.response;
  }

  CQivConfig config_{"./"};
  CStoredContexts contexts_{config_};
  CFakeContext context_;
  CRecorder recorder_;
  WebsiteConfig config_of_site_;
  CLoneContext lone_{config_of_site_, nullptr, &recorder_};
  RequestFacts facts_;
};

TEST_F(Page, HasItsTextsInBothLanguages) {
  struct {
    int type;
    Language language;
    std::string title;
    std::string body;
  } const cases[] = {
      {1, Language::kEnglish, "Sorry, this access is blocked",
       "Notice: Access denied<br>Time: TIME<br>Client IP: 203.0.113.7<br>Client information has been recorded<br>"},
      {2, Language::kChinese, "抱歉，此访问被禁止",
       "安全提示：当前访问被拒绝<br>备注：ITEM<br>详情：REASON<br>时间：TIME<br>客户端IP：203.0.113.7<br>URL地址："
       "http://h/a?x=1<br>"},
  };
  for (const auto& c : cases) {
    ResponseSettings settings;
    settings.ret_type = c.type;
    Use(settings, c.language);
    EXPECT_EQ(WithoutTime(Render()), kHead + c.title + "</title></head><body>" + c.body + kEnd);
  }
}

TEST_F(Page, ShowsCustomContent) {
  ResponseSettings settings;
  settings.ret_type = 4;
  settings.ret_content = "被拒绝";
  Use(settings);
  CheckResult result = Blocked();
  EXPECT_EQ(RenderPage(facts_, Context(), result), kHead + std::string("被拒绝</title></head><body>被拒绝") + kEnd);
  EXPECT_FALSE(result.request.custom_page);

  settings.ret_content = "<b>no</b>\n{{ip}}";
  Use(settings, Language::kChinese);
  EXPECT_EQ(Render(), kHead + std::string("抱歉，此访问被禁止</title></head><body><b>no</b><br>{{ip}}") + kEnd);

  settings.ret_content = "<html><head><title>t</title></head><body>{{charset}} {{ip}}|{{secretrkey}}|</body></html>";
  Use(settings);
  EXPECT_EQ(RenderPage(facts_, Context(), result),
            "<html><head><title>t</title></head><body>gbk {{ip}}||</body></html>");
  EXPECT_TRUE(result.request.custom_page);

  settings.ret_content = "Quote {{event_id}}.";
  Use(settings);
  result = Blocked();
  result.request.event_id = "00<ff";
  EXPECT_NE(Render(result).find("<body>Quote 00&lt;ff.</body>"), std::string::npos);
  settings.ret_type = 2;
  Use(settings);
  result.request.prepared_page = "<p>{{charset}}{{secretrkey}}";
  EXPECT_EQ(Render(result), "<p>utf-8{{secretrkey}}");
}

TEST_F(Page, OffersThePasswordFormWhereAllowed) {
  ResponseSettings settings;
  settings.passwd = true;
  Use(settings);
  facts_.raw_url = "//evil.example/\xE4\xB8\xAD?a=\"&b='";
  const std::string page = Render();
  EXPECT_NE(page.find("action=\"/.//evil.example/%E4%B8%AD?a=&quot;&amp;b="), std::string::npos) << page;
  EXPECT_NE(page.find("<input type=\"password\" name=\"secretrkey203.0.113.7\">\n"), std::string::npos);
  EXPECT_NE(page.find("Please enter the preset authorization password to unlock</p>\n"), std::string::npos);

  CheckResult of_list = Blocked();
  of_list.request.page_detail = false;
  EXPECT_EQ(Render(of_list).find("<form"), std::string::npos);
}

TEST_F(Page, PutsTheFormsTargetOnThisHost) {
  const std::pair<const char*, const char*> cases[] = {{"/a?b", "/a?b"},
                                                       {"/\\evil/", "/./\\evil/"},
                                                       {"http://evil/a", "/a"},
                                                       {"http://evil", "/"},
                                                       {"javascript:x", "/"},
                                                       {"*", "/"},
                                                       {"http://e//evil", "/.//evil"},
                                                       {"/a b\"\n", "/a%20b\"%0A"}};
  for (const auto& [raw_url, action] : cases) EXPECT_EQ(FormAction(raw_url), action) << raw_url;
}

TEST_F(Page, ReplacesPlaceholdersInOnePass) {
  const Placeholder values[] = {{"{{a}}", "{{b}}"}, {"{{b}}", "B"}};
  EXPECT_EQ(Substitute("{{a}}{{b}}{{{a}}}{{c}}{{", values), "{{b}}B{{{b}}}{{c}}{{");
}

TEST_F(Page, IsAnsweredWithTheStatusAskedFor) {
  struct {
    const char* ret_status;
    int ret_type;
    const char* ret_url;
    std::uint64_t of_result;
    int status;
    const char* reason;
    const char* location;
  } const cases[] = {
      {"", 1, "", 0, 403, "Forbidden", ""},
      {"200", 1, "", 0, 200, "OK", ""},
      {"404", 1, "", 0, 404, "File Not Found", ""},
      {"500", 1, "", 0, 500, "Internal Server Error", ""},
      {"302", 1, "", 0, 403, "Forbidden", ""},
      {"302", 1, "go.example/x", 0, 302, "Found", "http://go.example/x"},
      {"200", 3, "https://go.example/", 0, 302, "Found", "https://go.example/"},
      {"200", 3, "go.example/?a=1&b={{ip}}", 0, 302, "Found", "http://go.example/?a=1&b={{ip}}"},
      {"200", 3, "go.example/\xD6\xD0 x", 0, 302, "Found", "http://go.example/%E4%B8%AD%20x"},
      {"200", 3, "", 0, 200, "OK", ""},
      {"200", 1, "", 503, 503, "Internal Server Error", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.ret_status) + " " + std::to_string(c.ret_type) + " " + c.ret_url);
    context_.response = {};
    context_.response.known = {{iis::HttpHeaderContentLength, "5"}, {iis::HttpHeaderContentEncoding, "gzip"}};
    ResponseSettings settings;
    settings.ret_status = ReadChoice(c.ret_status, FindConfigKey("website_response", "ret_status")->values);
    settings.ret_type = c.ret_type;
    settings.ret_url = c.ret_url;
    CheckResult result = Blocked();
    result.response_status = c.of_result;
    Use(settings);
    const test::CFakeResponse& response = Write(result);
    EXPECT_EQ(response.status, c.status);
    EXPECT_EQ(response.reason, c.reason);
    EXPECT_TRUE(response.skip_custom_errors);
    std::map<std::int32_t, std::string> headers = {{iis::HttpHeaderContentType, "text/html; charset=utf-8"},
                                                   {iis::HttpHeaderCacheControl, "no-store"}};
    if (*c.location) headers[iis::HttpHeaderLocation] = c.location;
    EXPECT_EQ(response.known, headers);
    EXPECT_TRUE(response.more_data);
    if (c.ret_type == 3 && *c.ret_url) {
      const std::string url = CCharSet::LocalToUtf8(c.ret_url);
      EXPECT_TRUE(response.body.starts_with("302 Found http") && response.body.ends_with(url)) << response.body;
    }
  }
  EXPECT_EQ(recorder_.blocks, 1) << "once a request, however many pages";
}

TEST_F(Page, GoesOutInOneEncoding) {
  const std::string utf8_page = "<html><head><title></title></head><body>中 {{charset}}</body></html>";
  const std::string gbk_page = CCharSet::Utf8ToLocal(utf8_page);
  struct {
    const char* name;
    std::string content;  // custom page; empty: the short page in Chinese
    bool gbk;
    const char* charset;
  } const cases[] = {
      {"ordinary", "", false, "utf-8"},
      {"ordinary for a GBK request", "", true, "gbk"},
      {"custom", utf8_page, false, "gbk"},
      {"custom for a GBK request", utf8_page, true, "utf-8"},
      {"custom that names gbk", "<meta charset=gbk>" + utf8_page, false, "utf-8"},
      {"custom in GBK that names it", "<meta charset=gbk>" + gbk_page, true, "gbk"},
      {"custom that GBK cannot hold", utf8_page + "😀", false, "utf-8"},
      {"custom words that GBK cannot hold", "😀 中 {{charset}}", true, "utf-8"},
      {"custom words for a GBK request", "中 {{charset}}", true, "gbk"},
      {"custom in GBK that names it not", "<meta charset=gbk>" + gbk_page, false, "utf-8"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    context_.response = {};
    ResponseSettings settings;
    settings.ret_type = c.content.empty() ? 1 : 4;
    settings.ret_content = c.content;
    Use(settings, Language::kChinese);
    CheckResult result = Blocked();
    result.request.gbk_page = c.gbk;
    const test::CFakeResponse& response = Write(result);
    EXPECT_EQ(response.known.at(iis::HttpHeaderContentType), std::string("text/html; charset=") + c.charset);
    const bool is_utf8 = std::string(c.charset) == "utf-8";
    EXPECT_EQ(CCharSet::IsValidUtf8(response.body), is_utf8);
    const std::string text = is_utf8 ? response.body : CCharSet::LocalToUtf8(response.body);
    const std::string shown = c.content.empty() ? "当前访问被拒绝" : std::string("中 ") + c.charset;
    EXPECT_NE(text.find(shown), std::string::npos) << text;
    EXPECT_EQ(text.find("😀") != std::string::npos, c.content.find("😀") != std::string::npos);
  }
}

TEST_F(Page, KeepsToItsOptionsAndToWhatTheServerAllows) {
  Use({});
  PageOptions options;
  options.extra_text = "<i>more</i>";
  options.render = false;
  EXPECT_EQ(Write(Blocked(), options).body, "<i>more</i>");
  EXPECT_EQ(context_.response.status, 200) << "extra text leaves the status";

  context_.response = {};
  context_.response.body = "the application's";
  options = {};
  options.reset_response = true;
  EXPECT_TRUE(Write(Blocked(), options).body.starts_with("<!DOCTYPE"));

  context_.response = {};
  context_.response.status_result = iis::kInvalidData;
  EXPECT_EQ(Write(Blocked()).body, "") << "no page without its status";

  context_.response = {};
  context_.headers_sent = true;
  EXPECT_TRUE(Write(Blocked()).known.empty());

  context_.has_response = false;
  Write(Blocked());
  EXPECT_TRUE(contexts_.PageWritten(context_));
}

/// Bytes that break out of markup, of an encoding, or of the templates, mixed with random ones.
std::string Hostile(std::mt19937& random) {
  using namespace std::string_view_literals;
  static const std::vector<std::string_view> pieces = Split(
      "<script>alert(1)</script> \" ' > < & {{ip}} {{secretrkey}} {{ --> \x81 \xFE \xD6\" \xE4\xB8 %3Cb%3E %81%22 "
      "&lt; \r\nX:y +ADw- //e/ \\ \0 %00"sv,
      ' ');
  std::string text;
  for (int i = 0; i < 12; ++i) {
    const std::size_t pick = random() % (pieces.size() + 4);
    text += pick < pieces.size() ? std::string(pieces[pick]) : std::string(1, static_cast<char>(random()));
  }
  return text;
}

/// How often each character that markup is made of occurs.
std::vector<std::ptrdiff_t> MarkupCounts(const std::string& page) {
  std::vector<std::ptrdiff_t> counts;
  for (const char c : {'<', '>', '"', '\''}) counts.push_back(std::count(page.begin(), page.end(), c));
  return counts;
}

TEST_F(Page, ReflectsNoMarkup) {
  std::mt19937 random(20240607);
  ResponseSettings settings;
  settings.passwd = true;
  settings.cdn = 1;
  settings.ret_type = 2;
  Use(settings);
  const auto expected = MarkupCounts(Render());
  for (int round = 0; round < 3000; ++round) {
    CFakeContext context;
    context.request.SetUrl("/" + Hostile(random) + "?" + Hostile(random), u"h\"><b>" + std::u16string(1, round));
    context.request.unknown["X-Forwarded-For"] = Hostile(random);
    context.request.known[iis::HttpHeaderHost] = Hostile(random);
    facts_ = {};
    ASSERT_TRUE(CollectFacts(context, config_of_site_, facts_) &&
                ReadHeadersAndBody(context, config_of_site_, false, facts_));
    CheckResult result = Blocked();
    result.request.gbk_page = round % 2;
    result.reason = Hostile(random);
    result.item = Hostile(random);
    WritePage(facts_, Context(), result, contexts_, {});
    const std::string& body = context.response.body;
    const std::string page = result.request.gbk_page ? CCharSet::LocalToUtf8(body) : body;
    ASSERT_TRUE(CCharSet::IsValidUtf8(page));
    ASSERT_EQ(MarkupCounts(page), expected) << page;
    ASSERT_EQ(page.find("{{"), std::string::npos) << page;
    for (const auto& [id, value] : context.response.known) ASSERT_EQ(value.find_first_of("\r\n"), std::string::npos);
  }
}

}  // namespace
}  // namespace qiv
