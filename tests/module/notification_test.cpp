// The module as the server drives it: registered, with a configuration file, through its notifications.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/text.h"
#include "module/global_module.h"
#include "module/module_factory.h"
#include "module/module_state.h"
#include "module/qiv_module.h"
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
    installation_.Write(test::InjectionSite());
    InitialiseModule(installation_.Directory(), true);
    ModuleConfig().SetModuleId(reinterpret_cast<void*>(3));
    ModuleConfig().RefreshTick();
    EXPECT_TRUE(ModuleConfig().IsConfigValid());
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

TEST_F(Notification, DeniesWhomTheFirewallServiceLists) {
  installation_.Write(LinkedSite());
  installation_.Deny("203.0.113.7");
  InitialiseModule(installation_.Directory(), true);
  CFakeContext denied;
  EXPECT_EQ(module_->OnBeginRequest(&denied, nullptr), kFinish);
  EXPECT_NE(installation_.Log().find(R"("item":"Deny list")"), std::string::npos) << installation_.Log();
  CFakeContext other;
  other.request.SetClient("203.0.113.8");
  EXPECT_EQ(module_->OnBeginRequest(&other, nullptr), kContinue);
}

}  // namespace
}  // namespace qiv
