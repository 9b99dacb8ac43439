#include "module/response_hardening.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "config/config_keys.h"
#include "tests/checks/lone_context.h"
#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::CFakeContext;
using Values = std::vector<std::string>;

constexpr char kAll[] = "hidden=value; Secure; HttpOnly; SameSite=Strict";

class ResponseHardening : public testing::Test {
 protected:
  ResponseHardening() {
    settings_->base.hide = 1;
    settings_->request.cookie = 1;
    settings_->request.xss_mode = 1;
    settings_->request.csrf_mode = kSameSiteStrict;
    facts_.context = &context_;
  }
  Values Cookies() const { return context_.response.Values("Set-Cookie"); }

  CheckContext Context() {
    CheckContext context = lone_.Context();
    context.phase = phase_;
    return context;
  }

  std::shared_ptr<WebsiteConfig> settings_ = std::make_shared<WebsiteConfig>();
  CLoneContext lone_{*settings_};
  Phase phase_ = kPhaseBegin;
  CFakeContext context_;
  RequestFacts facts_;
};

TEST_F(ResponseHardening, ChoosesTheAttributeText) {
  struct {
    int cookie, xss_mode, csrf_mode;
    const char* text;
  } const cases[] = {
      {0, 1, 2, ""},
      {1, 1, 2, kAll},
      {1, 1, 1, "hidden=value; Secure; HttpOnly; SameSite=Lax"},
      {1, 1, 0, "hidden=value; Secure; HttpOnly"},
      {1, 0, 2, "SameSite=Strict"},
      {1, 0, 1, "SameSite=Lax"},
      {1, 0, 0, ""},
  };
  for (const auto& [cookie, xss_mode, csrf_mode, text] : cases) {
    RequestSettings request;
    std::tie(request.cookie, request.xss_mode, request.csrf_mode) = std::tie(cookie, xss_mode, csrf_mode);
    EXPECT_EQ(CookieAttributeText(request), text);
  }
}

TEST_F(ResponseHardening, TreatsEveryCookieOnceAndLosesNone) {
  test::CFakeResponse& response = context_.response;
  response.Add("Set-Cookie", "a=1; Path=/");
  response.Add("Content-Style", "x");
  response.Add("set-cookie", "b=2, Expires=x");
  response.Add("SET-COOKIE", std::string("c=3; ") + kAll);
  response.Add("Set-Cookie", "");                       // no cookie
  response.Add("Set-Cookie", std::string(65500, 'd'));  // no room for the attributes: kept as it is
  const Values expected = {std::string("a=1; Path=/; ") + kAll, std::string("b=2, Expires=x; ") + kAll,
                           std::string("c=3; ") + kAll, std::string(65500, 'd')};
  for (int notification = 0; notification < 3; ++notification) {
    CookieAndFrameHeaders(facts_, Context());
    EXPECT_EQ(Cookies(), expected);
    EXPECT_EQ(response.Values("Content-Style"), Values{"x"});
  }
}

TEST_F(ResponseHardening, LosesNoCookieWithoutMemoryOrRawResponse) {
  context_.response.Add("Set-Cookie", "a=1");
  context_.response.Add("Set-Cookie", "b=2");
  const Values before = Cookies();
  context_.memory_limit = 0;
  CookieAndFrameHeaders(facts_, Context());
  EXPECT_EQ(Cookies(), before);
  context_.memory_limit = test::kNever;
  context_.response.has_raw = false;
  CookieAndFrameHeaders(facts_, Context());
  EXPECT_EQ(Cookies(), before);
}

TEST_F(ResponseHardening, SetsFrameOptions) {
  struct {
    const char* mode;
    const char* current;
    Values expected;
    Phase phase = kPhaseBegin;
  } const cases[] = {
      {"DENY", nullptr, {"DENY"}},
      // Our value in front of the application's.
      {"DENY", "DENY,SAMEORIGIN", {"DENY"}, kPhasePostExecute},
      {"DENY", "DENY, DENY", {"DENY"}, kPhaseSendResponse},
      {"SAMEORIGIN", "SAMEORIGIN,sameorigin", {"SAMEORIGIN"}, kPhaseSendResponse},
      {"ALLOW-FROM", "\"ALLOW-FROM https://o/\",DENY", {"\"ALLOW-FROM https://o/\""}, kPhaseSendResponse},
      {"SAMEORIGIN", "SAMEORIGIN,DENY", {"SAMEORIGIN,DENY"}},  // nothing of it is ours yet
      {"DENY", "XDENYX", {"XDENYX"}},
      {"DENY", "SAMEORIGIN", {"DENY"}},
      {"SAMEORIGIN", "DENY", {"SAMEORIGIN"}},
      {"SAMEORIGIN", "SAMEORIGIN", {"SAMEORIGIN"}},
      {"ALLOW-FROM", nullptr, {"\"ALLOW-FROM https://o/\""}},
      {"ALLOW-FROM", "\"ALLOW-FROM https://o/\"", {"\"ALLOW-FROM https://o/\""}},
      {"OTHER", nullptr, {}},
      {"", "DENY", {"DENY"}},
  };
  settings_->request.cookie = 0;
  settings_->request.xframe_allowfrom = "https://o/";
  for (const bool on : {true, false}) {
    settings_->request.xframe = on;
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.mode) + " over " + (c.current ? c.current : "nothing"));
      CFakeContext context;
      facts_.context = &context;
      settings_->request.xframe_type = ReadChoice(c.mode, FindConfigKey("website_request", "xframe_type")->values);
      phase_ = c.phase;
      if (c.current) context.response.Add("X-Frame-Options", c.current);
      CookieAndFrameHeaders(facts_, Context());
      EXPECT_EQ(context.response.Values("x-frame-options"), on ? c.expected : c.current ? Values{c.current} : Values{});
      EXPECT_EQ(context.response.Values("Set-Cookie"), Values{});
    }
  }
}

TEST_F(ResponseHardening, HidesServerHeaders) {
  const char* const names[] = {"Server", "X-Powered-By", "X-AspNet-Version", "X-AspNetMvc-Version"};
  for (const bool on : {false, true}) {
    settings_->base.hide = on;
    for (const char* name : names) context_.response.Add(name, "x");
    CheckResult result;
    HideServerHeaders(facts_, Context(), result);
    EXPECT_EQ(result.status, kUndecided);
    for (const char* name : names) EXPECT_EQ(context_.response.Values(name).empty(), on) << name;
  }
}

TEST_F(ResponseHardening, LeavesAResponseAloneThatIsOnItsWayOrMissing) {
  context_.headers_sent = true;
  context_.response.Add("Server", "x");
  settings_->request.xframe = 1;
  settings_->request.xframe_type = kFrameDeny;
  CheckResult result;
  HideServerHeaders(facts_, Context(), result);
  CookieAndFrameHeaders(facts_, Context());
  EXPECT_EQ(context_.response.header_writes, 0);
  EXPECT_EQ(result.status, kUndecided);

  context_.has_response = false;
  result.status = kBlocked;
  HideServerHeaders(facts_, Context(), result);
  CookieAndFrameHeaders(facts_, Context());
  EXPECT_EQ(result.status, kAllowed);
  EXPECT_EQ(result.item, "System error");
}

}  // namespace
}  // namespace qiv
