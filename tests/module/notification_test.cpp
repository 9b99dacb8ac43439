// The module as the server drives it: registered, with a configuration file, through its notifications.
#include <gtest/gtest.h>

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
    installation_.Write(test::InjectionSite());
    InitialiseModule(installation_.Directory(), true);
    ModuleConfig().SetModuleId(reinterpret_cast<void*>(3));
    ModuleConfig().RefreshTick();
    EXPECT_TRUE(ModuleConfig().IsConfigValid());
    attack_.request.SetUrl("/a.asp?id=1%27%20union%20select%201");
  }
  ~Notification() { InitialiseModule(".", false); }
  std::size_t Events() const { return Split(installation_.Log(), '\n').size() - 1; }

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

TEST_F(Notification, ALongListIsReadByRequestsThatWereAnswered) {
  installation_.Write(LinkedSite());
  std::string list;
  for (std::uint32_t i = 0; list.size() <= CExchangeFiles::kReadAtOnceBytes; ++i) {
    const std::string client = i == 0 ? "203.0.113.7" : CIpAddress::FromIpv4(i).Text();
    list += EncipherLine("denylist\tadd\tIIS\t" + client + "\t1\t99999999999\treason");
  }
  ASSERT_TRUE(ReplaceFile(ModuleConfig().Paths().in_file, list));
  InitialiseModule(installation_.Directory(), true);
  ModuleConfig().RefreshTick();
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
