#include "module/register_module.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "module/global_module.h"
#include "module/module_factory.h"
#include "module/module_state.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

std::string Narrow(iis::PCWSTR text) {
  std::string narrow;
  for (; *text; ++text) narrow += static_cast<char>(*text);
  return narrow;
}

std::string Hex(iis::DWORD value) {
  std::string text;
  for (int shift = 28; shift >= 0; shift -= 4) text += "0123456789abcdef"[value >> shift & 15];
  return text;
}

/// Writes down what is registered; each call can be told to fail.
class CFakeRegistration final : public stubs::UnexpectedHttpModuleRegistrationInfo {
 public:
  ~CFakeRegistration() {
    if (factory) factory->Terminate();
    if (global) global->Terminate();
  }
  iis::HTTP_MODULE_ID GetId() const override { return id; }
  iis::HRESULT SetRequestNotifications(iis::IHttpModuleFactory* given, iis::DWORD request, iis::DWORD post) override {
    calls.push_back("request " + Hex(request) + " " + Hex(post));
    if (iis::Succeeded(request_result)) factory = given;
    return request_result;
  }
  iis::HRESULT SetGlobalNotifications(iis::CGlobalModule* given, iis::DWORD bits) override {
    calls.push_back("global " + Hex(bits));
    if (iis::Succeeded(other_result)) global = given;
    return other_result;
  }
  iis::HRESULT SetPriorityForRequestNotification(iis::DWORD bit, iis::PCWSTR alias) override {
    calls.push_back("priority " + Hex(bit) + " " + Narrow(alias));
    return other_result;
  }
  iis::HRESULT SetPriorityForGlobalNotification(iis::DWORD bit, iis::PCWSTR alias) override {
    calls.push_back("global priority " + Hex(bit) + " " + Narrow(alias));
    return other_result;
  }

  iis::HTTP_MODULE_ID id = reinterpret_cast<void*>(5);
  iis::HRESULT request_result = 0;
  iis::HRESULT other_result = 0;
  iis::IHttpModuleFactory* factory = nullptr;
  iis::CGlobalModule* global = nullptr;
  std::vector<std::string> calls;
};

const std::vector<std::string> kRequestCalls = {"request 20000001 00000080", "priority 00000001 FIRST",
                                                "priority 00000080 FIRST"};
const std::vector<std::string> kGlobalCalls = {"global 00000100", "global priority 00000100 FIRST"};

std::vector<std::string> AllCalls() {
  std::vector<std::string> calls = kRequestCalls;
  calls.insert(calls.end(), kGlobalCalls.begin(), kGlobalCalls.end());
  return calls;
}

class Registration : public testing::Test {
 protected:
  Registration() {
    installation_.Write(test::Site{});
    InitialiseModule(installation_.Directory(), true);
  }
  test::CInstallation installation_;
  CFakeRegistration registration_;
};

TEST_F(Registration, LoadsTheConfigurationAndRegistersInOrder) {
  EXPECT_FALSE(State().config.IsConfigValid());
  EXPECT_EQ(RegisterModule(10, &registration_, nullptr), 0);
  EXPECT_TRUE(State().config.IsConfigValid());
  EXPECT_EQ(registration_.calls, AllCalls());
  EXPECT_EQ(State().config.ModuleId(), registration_.id);
  EXPECT_EQ(static_cast<MyGlobalModule*>(registration_.global)->Id(), registration_.id);
  EXPECT_EQ(registration_.global->OnGlobalPreBeginRequest(nullptr), iis::GL_NOTIFICATION_CONTINUE);
}

TEST_F(Registration, ReturnsTheFirstFailure) {
  registration_.request_result = iis::kAlreadyExists;
  EXPECT_EQ(RegisterModule(10, &registration_, nullptr), iis::kAlreadyExists);
  EXPECT_EQ(registration_.calls, std::vector<std::string>{kRequestCalls[0]});

  CFakeRegistration without_id;
  without_id.id = nullptr;
  EXPECT_EQ(RegisterModule(10, &without_id, nullptr), iis::E_INVALIDARG);
  EXPECT_EQ(without_id.calls, kRequestCalls) << "no global module";
  EXPECT_EQ(State().config.ModuleId(), nullptr);

  EXPECT_EQ(RegisterModule(10, nullptr, nullptr), iis::E_INVALIDARG);
}

TEST_F(Registration, IgnoresFailuresOfPrioritiesAndOfTheGlobalModule) {
  registration_.other_result = iis::kNotSupported;
  EXPECT_EQ(RegisterModule(10, &registration_, nullptr), 0);
  EXPECT_EQ(registration_.calls, AllCalls());
  EXPECT_EQ(State().config.ModuleId(), registration_.id);
}

TEST_F(Registration, TheFactoryLoadsTheConfigurationAtItsFirstCall) {
  auto* factory = new CQivIpsIIsModuleFactory;
  iis::CHttpModule* modules[2] = {};
  ASSERT_EQ(factory->GetHttpModule(&modules[0], nullptr), 0);
  EXPECT_TRUE(State().config.IsConfigValid());
  ASSERT_EQ(factory->GetHttpModule(&modules[1], nullptr), 0);
  EXPECT_NE(modules[0], modules[1]);
  for (iis::CHttpModule* module : modules) module->Dispose();
  EXPECT_EQ(factory->GetHttpModule(nullptr, nullptr), iis::E_INVALIDARG);
  factory->Terminate();
}

}  // namespace
}  // namespace qiv
