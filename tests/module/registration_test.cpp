#include "module/register_module.h"

#include <gtest/gtest.h>

#include <ios>
#include <sstream>
#include <string>

#include "module/global_module.h"
#include "module/module_factory.h"
#include "module/module_state.h"
#include "port/code_page.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

/// Writes down what is registered; each call can be told to fail.
class CFakeRegistration final : public stubs::UnexpectedHttpModuleRegistrationInfo {
 public:
  CFakeRegistration() { calls << std::hex; }
  ~CFakeRegistration() {
    if (factory) factory->Terminate();
    if (global) global->Terminate();
  }
  iis::HTTP_MODULE_ID GetId() const override { return id; }
  iis::HRESULT SetRequestNotifications(iis::IHttpModuleFactory* given, iis::DWORD request, iis::DWORD post) override {
    calls << "request " << request << " " << post << "\n";
    if (iis::Succeeded(request_result)) factory = given;
    return request_result;
  }
  iis::HRESULT SetGlobalNotifications(iis::CGlobalModule* given, iis::DWORD bits) override {
    calls << "global " << bits << "\n";
    if (iis::Succeeded(other_result)) global = given;
    return other_result;
  }
  iis::HRESULT SetPriorityForRequestNotification(iis::DWORD bit, iis::PCWSTR alias) override {
    calls << "priority " << bit << " " << Utf16ToUtf8(alias) << "\n";
    return other_result;
  }
  iis::HRESULT SetPriorityForGlobalNotification(iis::DWORD bit, iis::PCWSTR alias) override {
    calls << "global priority " << bit << " " << Utf16ToUtf8(alias) << "\n";
    return other_result;
  }

  iis::HTTP_MODULE_ID id = reinterpret_cast<void*>(5);
  iis::HRESULT request_result = 0;
  iis::HRESULT other_result = 0;
  iis::IHttpModuleFactory* factory = nullptr;
  iis::CGlobalModule* global = nullptr;
  std::ostringstream calls;
};

constexpr char kRequest[] = "request 20000001 80\n";
constexpr char kPriorities[] = "priority 1 FIRST\npriority 80 FIRST\n";
constexpr char kGlobal[] = "global 100\nglobal priority 100 FIRST\n";

class Registration : public testing::Test {
 protected:
  Registration() {
    installation_.Write(test::Site{});
    InitialiseModule(installation_.Directory(), true);
  }
  test::CInstallation installation_;
};

TEST_F(Registration, LoadsTheConfigurationAndRegistersInOrder) {
  for (const iis::HRESULT result : {0, iis::kNotSupported}) {  // of the priorities and the global module: it may fail
    InitialiseModule(installation_.Directory(), true);
    CFakeRegistration registration;
    registration.other_result = result;
    EXPECT_FALSE(State().config.IsConfigValid());
    EXPECT_EQ(RegisterModule(10, &registration, nullptr), 0);
    EXPECT_TRUE(State().config.IsConfigValid());
    EXPECT_EQ(registration.calls.str(), std::string(kRequest) + kPriorities + kGlobal);
    EXPECT_EQ(State().config.ModuleId(), registration.id);
    if (!registration.global) continue;
    EXPECT_EQ(static_cast<MyGlobalModule*>(registration.global)->Id(), registration.id);
    EXPECT_EQ(registration.global->OnGlobalPreBeginRequest(nullptr), iis::GL_NOTIFICATION_CONTINUE);
  }
}

TEST_F(Registration, ReturnsTheFirstFailure) {
  CFakeRegistration refused;
  refused.request_result = iis::kAlreadyExists;
  EXPECT_EQ(RegisterModule(10, &refused, nullptr), iis::kAlreadyExists);
  EXPECT_EQ(refused.calls.str(), kRequest);

  CFakeRegistration without_id;
  without_id.id = nullptr;
  EXPECT_EQ(RegisterModule(10, &without_id, nullptr), iis::E_INVALIDARG);
  EXPECT_EQ(without_id.calls.str(), std::string(kRequest) + kPriorities) << "no global module";
  EXPECT_EQ(State().config.ModuleId(), nullptr);

  EXPECT_EQ(RegisterModule(10, nullptr, nullptr), iis::E_INVALIDARG);
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
