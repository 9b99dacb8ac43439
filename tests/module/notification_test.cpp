// The module as the server drives it: registered, with a configuration file, through its notifications.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/text.h"
#include "config/exchange_files.h"
#include "module/global_module.h"
#include "module/module_factory.h"
#include "module/module_state.h"
#include "module/qiv_module.h"
#include "port/file.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

using test::CFakeContext;

constexpr std::int32_t kFinish = iis::RQ_NOTIFICATION_FINISH_REQUEST;
constexpr std::int32_t kContinue = iis::RQ_NOTIFICATION_CONTINUE;

class Notification : public testing::Test {
 protected:
  Notification() {
    installation_.Start(test::InjectionSite());
    State().config.SetModuleId(reinterpret_cast<void*>(3));
    EXPECT_TRUE(State().config.IsConfigValid());
    attack_.request.SetUrl("/a.asp?id=1%27%20union%20select%201");
  }
  ~Notification() { InitialiseModule(".", false); }
  /// Lines of the event log that hold a piece; by default those about requests.
  std::size_t Events(std::string_view piece = "\"action\":") const {
    const std::string log = installation_.Log();
    const std::vector<std::string_view> lines = Split(log, '\n');
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [piece](std::string_view line) {
      return line.find(piece) != std::string_view::npos;
    }));
  }

  test::CInstallation installation_;
  CQivIpsIIsModule* module_ = new CQivIpsIIsModule;
  struct Disposer {
    CQivIpsIIsModule* module;
    ~Disposer() { static_cast<iis::CHttpModule*>(module)->Dispose(); }
  } disposer_{module_};
  CFakeContext attack_;
};

TEST_F(Notification, BlocksAnAttackWithOnePageAndOneEvent) {
  EXPECT_EQ(module_->OnBeginRequest(&attack_, nullptr), kFinish);
  EXPECT_EQ(attack_.response.status, 403);
  EXPECT_NE(attack_.response.body.find("Access denied"), std::string::npos);
  const std::string body = attack_.response.body;
  test::CFakeSend send(true);
  EXPECT_EQ(module_->OnSendResponse(&attack_, &send), kContinue);
  EXPECT_EQ(module_->OnPostExecuteRequestHandler(&attack_, nullptr), kContinue);
  EXPECT_EQ(attack_.response.body, body);
  EXPECT_EQ(Events(), 1u);
  for (const char* piece : {R"("check":"injection")", R"x("item":"SQL Injection Protection(GET)")x", R"("rule":"r1")",
                            R"("client":"203.0.113.7")", R"("status":403)", R"("action":"block")", R"("site":7)"}) {
    EXPECT_NE(installation_.Log().find(piece), std::string::npos) << piece << "\n" << installation_.Log();
  }
}

TEST_F(Notification, SaysOnceThatProtectionIsOff) {
  installation_.WriteRaw("damaged");
  InitialiseModule(installation_.Directory(), true);  // as a new worker process
  EXPECT_EQ(Events("\"kind\":\"protection\",\"state\":\"on\""), 1u) << "of the process before";
  EXPECT_EQ(module_->OnBeginRequest(&attack_, nullptr), kContinue);
  EXPECT_EQ(module_->OnBeginRequest(&attack_, nullptr), kContinue);
  EXPECT_EQ(Events("\"kind\":\"protection\",\"state\":\"off\""), 1u);
  EXPECT_EQ(Events(R"("kind":"load","state":"fault","file":"_config.db")"), 1u) << installation_.Log();
  EXPECT_EQ(Events(), 0u);
}

constexpr char kCookie[] = "hidden=value; Secure; HttpOnly; SameSite=Lax";
constexpr char kFrames[] = "X-Frame-Options";
using Values = std::vector<std::string>;

void Append(test::CFakeResponse& response, const char* name, const std::string& value) {
  response.SetHeader(name, value.data(), static_cast<iis::USHORT>(value.size()), 0);
}
void Replace(test::CFakeResponse& response, const char* name, const std::string& value) {
  response.SetHeader(name, value.data(), static_cast<iis::USHORT>(value.size()), 1);
}

// The first notification sets it, then others append to it, replace it or clear it all, then the later notifications.
TEST_F(Notification, SendsOneValueOfEachHeaderItSets) {
  using R = test::CFakeResponse;
  constexpr auto kType = iis::HttpHeaderContentType;
  const std::string a = std::string("a=1; ") + kCookie;
  const std::string b = std::string("b=2; ") + kCookie;
  struct {
    const char* name;
    void (*others)(R&);
    Values expected;
    bool blocked = false;
  } const cases[] = {
      {kFrames, [](R&) {}, {"SAMEORIGIN"}},
      {kFrames, [](R& r) { Append(r, kFrames, "SAMEORIGIN"); }, {"SAMEORIGIN"}},
      {kFrames, [](R& r) { Append(r, kFrames, "DENY"); }, {"SAMEORIGIN"}},
      {kFrames, [](R& r) { r.Add(kFrames, "DENY"); }, {"SAMEORIGIN"}},
      {kFrames, [](R& r) { Replace(r, kFrames, "DENY"); }, {"SAMEORIGIN"}},
      {kFrames, [](R& r) { r.Clear(); }, {"SAMEORIGIN"}},
      {"Set-Cookie", [](R&) {}, {kCookie}},
      {"Set-Cookie", [](R& r) { Append(r, "Set-Cookie", "a=1"), Append(r, "Set-Cookie", "b=2"); }, {a, b}},
      {"Set-Cookie", [](R& r) { r.joins_cookies = true, Append(r, "Set-Cookie", "a=1"); }, {a}},
      {"Set-Cookie", [](R& r) { Replace(r, "Set-Cookie", "a=1"); }, {a}},
      {"Set-Cookie", [](R& r) { r.Clear(), Append(r, "Set-Cookie", "a=1"); }, {a}},
      {"Set-Cookie", [](R& r) { r.Clear(); }, {kCookie}},
      {"X-Qiv-Dropped", [](R& r) { Append(r, "Set-Cookie", "a=1"); }, {}},
      {"X-Qiv-Event", [](R&) {}, {}},
      {"X-Qiv-Event", [](R&) {}, {"ID"}, true},
      {"X-Qiv-Event", [](R& r) { Append(r, "X-Qiv-Event", "x"); }, {"ID"}, true},
      {"X-Qiv-Event", [](R& r) { Replace(r, "x-qiv-event", "x"); }, {"ID"}, true},
      {"X-Qiv-Event", [](R& r) { r.Clear(); }, {"ID"}, true},
      {"", [](R&) {}, {"text/html; charset=utf-8"}, true},
      {"", [](R& r) { r.SetHeader(kType, "text/css", 8, 0); }, {"text/html; charset=utf-8"}, true},
      {"", [](R& r) { r.SetHeader(kType, "text/css", 8, 1); }, {"text/css"}, true},  // another's response by now
      {"", [](R& r) { r.Clear(); }, {""}, true},
  };
  test::Site site = test::InjectionSite();
  site.sections["website_request"] =
      R"("cookie":"1","xss_mode":"1","csrf_mode":"1","xframe":"1","xframe_type":"SAMEORIGIN")";
  installation_.Start(site);
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(*c.name ? c.name : "Content-Type") + " row " + std::to_string(&c - cases));
    CFakeContext context;
    if (c.blocked) context.request.SetUrl("/a.asp?id=1%27%20union%20select%201");
    ASSERT_EQ(module_->OnBeginRequest(&context, nullptr), c.blocked ? kFinish : kContinue);
    c.others(context.response);
    if (!c.blocked) module_->OnPostExecuteRequestHandler(&context, nullptr);
    test::CFakeSend send(true);
    for (int sends = 0; sends < 2; ++sends) module_->OnSendResponse(&context, &send);
    Values values = *c.name ? context.response.Values(c.name) : Values{context.response.known[kType]};
    for (std::string& value : values) {
      const bool logged =
          value.size() == 16 && installation_.Log().find("\"event_id\":\"" + value) != std::string::npos;
      if (logged) value = "ID";
    }
    EXPECT_EQ(values, c.expected);
  }
}

TEST_F(Notification, LooksAtNoRequestThatAnotherRequestMade) {
  attack_.is_child = true;
  EXPECT_EQ(module_->OnBeginRequest(&attack_, nullptr), kContinue);
  EXPECT_EQ(module_->OnPostExecuteRequestHandler(&attack_, nullptr), kContinue);
  EXPECT_EQ(module_->OnSendResponse(&attack_, nullptr), kContinue);
  EXPECT_EQ(attack_.container.sets, 0);
  EXPECT_EQ(module_->OnBeginRequest(nullptr, nullptr), kContinue);
  EXPECT_EQ(module_->OnExecuteRequestHandler(&attack_, nullptr), kContinue);
}

TEST_F(Notification, KeepsExceptionsInsideAndLogsOneAMinute) {
  attack_.throws_in_response = true;
  EXPECT_EQ(module_->OnBeginRequest(&attack_, nullptr), kContinue);
  EXPECT_EQ(module_->OnPostExecuteRequestHandler(&attack_, nullptr), kContinue);
  EXPECT_EQ(module_->OnSendResponse(&attack_, nullptr), kContinue);
  EXPECT_EQ(Events(), 1u);
  EXPECT_NE(installation_.Log().find("no response today"), std::string::npos);

  static std::int64_t now;
  CBlockRecorder recorder(State().log, State().service, [] { return now; });
  std::size_t events = 1;
  for (const auto& [at, told] : {std::pair(1000, true), {1059, false}, {1060, true}, {500, true}, {559, false}}) {
    now = at;
    recorder.RecordFailure("begin", "it broke");
    EXPECT_EQ(Events(), events += told) << at;
  }
}

TEST_F(Notification, TellsOnceAMinuteOfBodiesThatItCouldNotExamine) {
  const std::pair<const char*, void (*)(CFakeContext&)> cases[] = {
      {"could not be read",
       [](CFakeContext& c) { c.request.body.fail_at = 0, c.request.body.failure = iis::kNetnameDeleted; }},
      {"too large", [](CFakeContext& c) { c.request.known[iis::HttpHeaderContentLength] = "104857601"; }},
      {"out of memory", [](CFakeContext& c) { c.memory_limit = 2; }},
  };
  const auto body_events = [this] { return Events("\"kind\":\"body\""); };
  std::size_t events = body_events();
  for (const auto& [reason, change] : cases) {
    for (int request = 0; request < 2; ++request) {
      CFakeContext context;
      context.request.SetUrl("/up?password=hunter2");
      context.request.SetBody("a=1", "text/plain");
      change(context);
      EXPECT_EQ(module_->OnBeginRequest(&context, nullptr), kContinue);
      EXPECT_EQ(context.request.ApplicationBody(), "a=1");
    }
    EXPECT_EQ(body_events(), ++events) << reason;
    EXPECT_NE(installation_.Log().find(reason), std::string::npos) << installation_.Log();
  }
  EXPECT_NE(installation_.Log().find("POST /up?password=***"), std::string::npos) << installation_.Log();
}

/// A linked site that locks who attacks, gives notices and asks the deny list.
test::Site LinkedSite() {
  test::Site site = test::InjectionSite();
  site.linked = true;
  site.sections["website_sql"] += R"(,"get_mode":"1")";
  site.sections["website_attack"] = R"("e404":"1","e404_lock_freq":"5","e404_lock_time":"5")";
  site.sections["website_response"] = R"("notice":"1","lock":"1","lock_freq":"3","lock_time":"10")";
  return site;
}

TEST_F(Notification, ALongListIsReadByRequestsThatWereAnswered) {
  installation_.Write(LinkedSite());
  std::string list;
  for (std::uint32_t i = 0; list.size() <= CExchangeFiles::kReadAtOnceBytes; ++i) {
    const std::string client = i == 0 ? "203.0.113.7" : CIpAddress::FromIpv4(i).Text();
    list += EncipherLine("denylist\tadd\tIIS\t" + client + "\t1\t99999999999\treason");
  }
  ASSERT_TRUE(ReplaceFile(State().config.Paths().in_file, list));
  InitialiseModule(installation_.Directory(), true);
  State().config.RefreshTick();
  const auto request = [](bool is_child) {
    CFakeContext context;
    context.is_child = is_child;
    context.request.SetUrl("/");
    auto* const module = new CQivIpsIIsModule;
    const std::int32_t status = module->OnBeginRequest(&context, nullptr);
    static_cast<iis::CHttpModule*>(module)->Dispose();
    return status;
  };
  for (int i = 0; i < 5; ++i) EXPECT_EQ(request(true), kContinue) << "another request waits for it";
  EXPECT_EQ(request(false), kContinue);
  EXPECT_EQ(request(false), kContinue);
  EXPECT_EQ(request(false), kFinish);
}

TEST_F(Notification, TellsTheFirewallService) {
  installation_.Write(LinkedSite());
  for (const bool may_write : {false, true}) {
    InitialiseModule(installation_.Directory(), may_write);
    auto* factory = new CQivIpsIIsModuleFactory;
    iis::CHttpModule* module = nullptr;
    ASSERT_EQ(factory->GetHttpModule(&module, nullptr), 0);
    CFakeContext attack;
    attack.request.SetUrl("/a.asp?id=1%27%20union%20select%201");
    EXPECT_EQ(module->OnBeginRequest(&attack, nullptr), kFinish);
    module->Dispose();
    factory->Terminate();
    (new MyGlobalModule(nullptr))->Terminate();
    EXPECT_EQ(installation_.Out().empty(), !may_write);
  }
  const std::vector<std::string> out = installation_.Out();
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ(out[0],
            "msg 203.0.113.7 Injection SQL Injection Protection(GET) - - Deny SQL injection(Cloud matching),"
            "Keywords:union /a.asp?id=1%27%20union%20select%201");
  EXPECT_TRUE(out[1].starts_with("denylist add IIS 203.0.113.7 T T Trigger strict blocking mode")) << out[1];
  EXPECT_EQ(out[2], "check injection 203.0.113.7 block 0 1 r1 -");
  EXPECT_EQ(out[3], "tongji sql_act - 203.0.113.7 r1 1 - -");
}

TEST_F(Notification, SendsNoNoticeWhereTheSiteWantsNone) {
  for (const bool notice : {false, true}) {
    const test::CInstallation installation;
    test::Site site = LinkedSite();
    site.sections["website_response"] = notice ? R"("notice":"1")" : R"("notice":"0")";
    installation.Start(site);
    CFakeContext attack;
    attack.request.SetUrl("/a.asp?id=1%27%20union%20select%201");
    EXPECT_EQ(module_->OnBeginRequest(&attack, nullptr), kFinish);
    const std::string out = installation.AllOut();
    EXPECT_EQ(out.find("msg ") != std::string::npos, notice);
    EXPECT_FALSE(out.empty()) << "blocks are counted in any case";
  }
}

// One request that several checks would stop: which of them comes first.
TEST_F(Notification, AsksTheChecksInTheirOrder) {
  const std::pair<const char*, const char*> cases[] = {
      {R"("upload":"1","upload_file":"1","upload_types":"*|!php","trojan":"1","trojan_get":"1")", "upload"},
      {R"("trojan":"1","trojan_get":"1")", "webshell"},
      {"", "injection"},
  };
  const std::string body =
      "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.php\"\r\n\r\n"
      "<?php eval($_POST[1]); ?>\r\n--b--\r\n";
  for (const bool listed : {false, true}) {
    for (const auto& [members, check] : cases) {
      const test::CInstallation installation;
      test::Site site = LinkedSite();
      site.sections["website_base"] = members;
      if (listed) installation.Deny("203.0.113.7");
      installation.Start(site);
      CFakeContext attack;
      attack.request.SetUrl("/a.asp?id=1%27%20union%20select%201&c=%3C%3Fphp%20eval(%24_POST%5B1%5D)%3B%3F%3E");
      attack.request.SetBody(body, "multipart/form-data; boundary=b");
      EXPECT_EQ(module_->OnBeginRequest(&attack, nullptr), kFinish);
      const std::string expected = std::string(R"("check":")") + (listed ? "lists" : check) + "\"";
      EXPECT_NE(installation.Log().find(expected), std::string::npos) << expected << installation.Log();
    }
  }
}

TEST_F(Notification, ShowsNoSecretAnywhere) {
  test::Site site = LinkedSite();
  site.sections["website_sql"] += R"(,"post_mode":"1","header_mode":"1","xss":"1","xss_post":"1","xss_header":"1",)"
                                  R"("xss_html_action":"1")";
  site.sections["website_response"] += R"(,"ret_type":"2")";
  site.log_ex = "request";
  installation_.Start(site);
  const char form[] = "application/x-www-form-urlencoded";
  const struct {
    const char *url, *type, *body, *authorization;
  } cases[] = {
      {"/?password=hush%26hush' union select 1", "", "", ""},
      {"/?x=1&user%5Bpass%5D=hush' union select 1&y", "", "", ""},
      {"/?passwd=hush", form, "a=1&passwd=%26hush' union select hush&b=1", ""},
      {"/", form, "a=1&pwd=hush<a onload=hush>&b=1", ""},
      {"/", "application/json", R"({"a":1,"password":"hush\"&hush' union select hush"})", ""},
      {"/", "multipart/form-data; boundary=b",
       "--b\r\nContent-Disposition: form-data; name=\"password\"\r\n\r\nhush' union select hush\r\nhush\r\n--b--", ""},
      {"/", "", "", "Basic hush' union select hush"},
      {"/", "", "", "hush<a onload=hush>"},
  };
  std::size_t events = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.url) + c.body + c.authorization);
    CFakeContext context;
    context.request.SetUrl(c.url);
    context.request.known[iis::HttpHeaderUserAgent] = "agent?password=hush";
    if (*c.authorization) context.request.known[iis::HttpHeaderAuthorization] = c.authorization;
    if (*c.body) context.request.SetBody(c.body, c.type);
    iis::CHttpModule* const module = new CQivIpsIIsModule;
    EXPECT_EQ(module->OnBeginRequest(&context, nullptr), kFinish);
    module->Dispose();
    const std::string written =
        context.response.body + installation_.Log() + installation_.Log("_log_req.log") + installation_.AllOut();
    EXPECT_EQ(written.find("hush"), std::string::npos) << written;
    EXPECT_EQ(Events(), ++events);
    EXPECT_FALSE(installation_.Out().empty()) << "the service was told";
  }
}

}  // namespace
}  // namespace qiv
