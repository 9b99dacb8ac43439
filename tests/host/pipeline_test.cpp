// The way of a request through the notifications, against the behaviour of the real server.
#include <gtest/gtest.h>

#include <thread>

#include "tests/host/scripted_module.h"

namespace qiv::host {
namespace {

using iis::RQ_NOTIFICATION_CONTINUE;
using iis::RQ_NOTIFICATION_FINISH_REQUEST;
using iis::RQ_NOTIFICATION_PENDING;
using Names = std::vector<std::string>;

constexpr iis::DWORD kEverything = 0xFFF;

ScriptStep Return(iis::REQUEST_NOTIFICATION_STATUS status) {
  return [status](iis::IHttpContext&) { return status; };
}

TEST(Pipeline, RunsStagesAndPostEventsInOrder) {
  CModuleHost host;
  ModuleScript script;
  script.main = kEverything | iis::RQ_SEND_RESPONSE;
  script.post = kEverything;
  script.global = iis::GL_PRE_BEGIN_REQUEST;
  ASSERT_EQ(RegisterScript(host, script), 0);
  const InProcessResponse response = RunInProcess(host, {});
  Names expected = {"OnGlobalPreBeginRequest"};
  for (const char* stage :
       {"BeginRequest", "AuthenticateRequest", "AuthorizeRequest", "ResolveRequestCache", "MapRequestHandler",
        "AcquireRequestState", "PreExecuteRequestHandler", "ExecuteRequestHandler", "ReleaseRequestState",
        "UpdateRequestCache", "LogRequest", "EndRequest"}) {
    expected.push_back(std::string("On") + stage);
    expected.push_back(std::string("OnPost") + stage);
  }
  expected.push_back("OnSendResponse");
  EXPECT_EQ(response.notifications, expected);
  EXPECT_TRUE(response.handler_ran);
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "<html><body>ok</body></html>");
  EXPECT_EQ(script.alive, 0);
  host.Shutdown();
  EXPECT_EQ(script.terminated, 2);
}

TEST(Pipeline, FinishSkipsToLogEndAndSend) {
  struct Case {
    const char* step;
    bool post_begin_option;
    Names expected;
    bool handler;
  };
  const Case cases[] = {
      {"OnBeginRequest", false, {"OnBeginRequest", "OnLogRequest", "OnEndRequest", "OnSendResponse"}, false},
      {"OnBeginRequest",
       true,
       {"OnBeginRequest", "OnPostBeginRequest", "OnLogRequest", "OnEndRequest", "OnSendResponse"},
       false},
      {"OnPostBeginRequest",
       false,
       {"OnBeginRequest", "OnPostBeginRequest", "OnLogRequest", "OnEndRequest", "OnSendResponse"},
       false},
      {"OnPostExecuteRequestHandler",
       false,
       {"OnBeginRequest", "OnPostBeginRequest", "OnPostExecuteRequestHandler", "OnLogRequest", "OnEndRequest",
        "OnSendResponse"},
       true},
      {"OnLogRequest",  // cannot finish anything
       false,
       {"OnBeginRequest", "OnPostBeginRequest", "OnPostExecuteRequestHandler", "OnLogRequest", "OnEndRequest",
        "OnSendResponse"},
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.step);
    HostOptions options;
    options.post_begin_after_finish = c.post_begin_option;
    CModuleHost host(options);
    ModuleScript script;
    script.main = iis::RQ_BEGIN_REQUEST | iis::RQ_LOG_REQUEST | iis::RQ_END_REQUEST | iis::RQ_SEND_RESPONSE;
    script.post = iis::RQ_BEGIN_REQUEST | iis::RQ_EXECUTE_REQUEST_HANDLER;
    script.steps[c.step] = Return(RQ_NOTIFICATION_FINISH_REQUEST);
    RegisterScript(host, script);
    const InProcessResponse response = RunInProcess(host, {});
    EXPECT_EQ(response.notifications, c.expected);
    EXPECT_EQ(response.handler_ran, c.handler);
    EXPECT_EQ(script.alive, 0);
  }
}

TEST(Pipeline, OrdersModulesByPriorityAndInvertsSends) {
  CModuleHost host;
  std::string order;
  ModuleScript scripts[3];
  const std::u16string priorities[3] = {u"LAST", u"FIRST", u"MEDIUM"};
  for (int i = 0; i < 3; ++i) {
    scripts[i].main = iis::RQ_BEGIN_REQUEST | iis::RQ_SEND_RESPONSE;
    scripts[i].begin_priority = scripts[i].send_priority = priorities[i];
    scripts[i].steps["OnBeginRequest"] = [&order, i](iis::IHttpContext&) {
      order += "b" + std::to_string(i);
      return RQ_NOTIFICATION_CONTINUE;
    };
    scripts[i].send_response = [&order, i](iis::IHttpContext&, iis::ISendResponseProvider&) {
      order += "s" + std::to_string(i);
    };
    RegisterScript(host, scripts[i]);
  }
  RunInProcess(host, {});
  EXPECT_EQ(order, "b1b2b0s0s2s1");
  // A FINISH keeps later modules of the stage out.
  order.clear();
  scripts[2].steps["OnBeginRequest"] = Return(RQ_NOTIFICATION_FINISH_REQUEST);
  RunInProcess(host, {});
  EXPECT_EQ(order, "b1s0s2s1");
}

class CCountedContext final : public iis::IHttpStoredContext {
 public:
  explicit CCountedContext(std::string* journal) : journal_(journal) {}
  void CleanupStoredContext() override {
    *journal_ += "cleanup;";
    delete this;
  }

 private:
  std::string* const journal_;
};

TEST(Pipeline, StoredContextIsSetOnceAndCleanedUp) {
  for (const bool dispose_first : {false, true}) {
    HostOptions options;
    options.dispose_before_cleanup = dispose_first;
    CModuleHost host(options);
    ModuleScript script;
    script.main = iis::RQ_BEGIN_REQUEST | iis::RQ_SEND_RESPONSE;
    script.steps["OnBeginRequest"] = [&](iis::IHttpContext& context) {
      iis::IHttpModuleContextContainer* container = context.GetModuleContextContainer();
      EXPECT_EQ(container->GetModuleContext(script.id), nullptr);
      auto* own = new CCountedContext(&script.journal);
      EXPECT_EQ(container->SetModuleContext(own, script.id), 0);
      EXPECT_EQ(container->SetModuleContext(own, script.id), iis::kAlreadyAssigned);
      EXPECT_LT(container->SetModuleContext(nullptr, script.id), 0);
      return RQ_NOTIFICATION_FINISH_REQUEST;
    };
    script.send_response = [&](iis::IHttpContext& context, iis::ISendResponseProvider&) {
      EXPECT_NE(context.GetModuleContextContainer()->GetModuleContext(script.id), nullptr);
      script.journal += "send;";
    };
    RegisterScript(host, script);
    RunInProcess(host, {});
    EXPECT_EQ(script.journal, "send;cleanup;");
  }
}

TEST(Pipeline, PendingNotificationsAreResumed) {
  CModuleHost host;
  ModuleScript script;
  script.main = iis::RQ_BEGIN_REQUEST | iis::RQ_AUTHORIZE_REQUEST;
  std::thread helper;
  char buffer[64];
  // An asynchronous read comes back through OnAsyncCompletion ...
  script.steps["OnBeginRequest"] = [&](iis::IHttpContext& context) {
    iis::BOOL pending = 0;
    EXPECT_EQ(context.GetRequest()->ReadEntityBody(buffer, sizeof buffer, 1, nullptr, &pending), 0);
    EXPECT_TRUE(pending);
    return RQ_NOTIFICATION_PENDING;
  };
  script.steps["OnAsyncCompletion"] = Return(RQ_NOTIFICATION_CONTINUE);
  // ... and another thread may let a request go on.
  script.steps["OnAuthorizeRequest"] = [&](iis::IHttpContext& context) {
    helper = std::thread([&context] { context.IndicateCompletion(RQ_NOTIFICATION_FINISH_REQUEST); });
    return RQ_NOTIFICATION_PENDING;
  };
  RegisterScript(host, script);
  InProcessRequest request;
  request.method = "POST";
  request.body = "hello";
  const InProcessResponse response = RunInProcess(host, request);
  helper.join();
  EXPECT_EQ(script.journal, "completed 5;");
  EXPECT_EQ(std::string(buffer, 5), "hello");
  EXPECT_TRUE(response.finished);
  EXPECT_FALSE(response.handler_ran);
}

TEST(Pipeline, SwitchesOfTheRequest) {
  struct Case {
    const char* name;
    std::function<void(HostOptions&, ModuleScript&, InProcessRequest&)> prepare;
    std::function<void(const InProcessResponse&)> check;
  };
  const Case cases[] = {
      {"a factory that fails answers 500", [](auto&, auto& script, auto&) { script.factory_fails = true; },
       [](const auto& r) {
         EXPECT_EQ(r.status, 500);
         EXPECT_FALSE(r.handler_ran);
       }},
      {"a global module that handled does not end the request",
       [](auto&, auto& script, auto&) { script.pre_begin = [] { return iis::GL_NOTIFICATION_HANDLED; }; },
       [](const auto& r) { EXPECT_TRUE(r.handler_ran); }},
      {"or does, by option",
       [](auto& options, auto& script, auto&) {
         options.global_handled_ends_request = true;
         script.pre_begin = [] { return iis::GL_NOTIFICATION_HANDLED; };
       },
       [](const auto& r) {
         EXPECT_FALSE(r.handler_ran);
         EXPECT_EQ(r.notifications, Names{"OnGlobalPreBeginRequest"});
       }},
      {"a handled request skips the handler, not the stages",
       [](auto&, auto& script, auto&) {
         script.steps["OnBeginRequest"] = [](iis::IHttpContext& context) {
           context.SetRequestHandled();
           return RQ_NOTIFICATION_CONTINUE;
         };
       },
       [](const auto& r) {
         EXPECT_FALSE(r.handler_ran);
         EXPECT_EQ(r.notifications.back(), "OnSendResponse");
         EXPECT_EQ(r.notifications[r.notifications.size() - 2], "OnPostExecuteRequestHandler");
       }},
      {"notifications can be disabled",
       [](auto&, auto& script, auto&) {
         script.steps["OnBeginRequest"] = [](iis::IHttpContext& context) {
           context.DisableNotifications(iis::RQ_SEND_RESPONSE, iis::RQ_EXECUTE_REQUEST_HANDLER);
           return RQ_NOTIFICATION_CONTINUE;
         };
       },
       [](const auto& r) {
         EXPECT_EQ(r.notifications, (Names{"OnGlobalPreBeginRequest", "OnBeginRequest"}));
         EXPECT_EQ(r.status, 200);
       }},
      {"no send notification by option", [](auto& options, auto&, auto&) { options.send_response_never = true; },
       [](const auto& r) {
         EXPECT_EQ(r.notifications.back(), "OnPostExecuteRequestHandler");
         EXPECT_EQ(r.status, 200);
       }},
      {"a child request has a parent",
       [](auto&, auto& script, auto& request) {
         request.is_child = true;
         script.steps["OnBeginRequest"] = [](iis::IHttpContext& context) {
           EXPECT_NE(context.GetParentContext(), nullptr);
           EXPECT_EQ(context.GetRootContext(), context.GetParentContext());
           return RQ_NOTIFICATION_CONTINUE;
         };
       },
       [](const auto& r) { EXPECT_EQ(r.status, 200); }},
      {"a warm-up request has neither raw URL nor connection",
       [](auto&, auto& script, auto& request) {
         request.warm_up = true;
         script.steps["OnBeginRequest"] = [](iis::IHttpContext& context) {
           EXPECT_EQ(context.GetConnection(), nullptr);
           EXPECT_EQ(context.GetRequest()->GetRawHttpRequest()->pRawUrl, nullptr);
           EXPECT_EQ(context.GetRequest()->GetRawHttpRequest()->RawUrlLength, 0);
           EXPECT_EQ(context.GetParentContext(), nullptr);
           return RQ_NOTIFICATION_CONTINUE;
         };
       },
       [](const auto& r) { EXPECT_EQ(r.status, 200); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HostOptions options;
    ModuleScript script;
    InProcessRequest request;
    script.main = iis::RQ_BEGIN_REQUEST | iis::RQ_SEND_RESPONSE;
    script.post = iis::RQ_EXECUTE_REQUEST_HANDLER;
    script.global = iis::GL_PRE_BEGIN_REQUEST;
    c.prepare(options, script, request);
    CModuleHost host(options);
    RegisterScript(host, script);
    c.check(RunInProcess(host, request));
    EXPECT_EQ(script.alive, 0);
  }
}

TEST(Pipeline, RegistrationFailuresAreReported) {
  CModuleHost host;
  ModuleScript script;
  script.register_result = iis::kOutOfMemory;
  EXPECT_EQ(RegisterScript(host, script), iis::kOutOfMemory);
  EXPECT_TRUE(host.modules().empty());
  std::string error;
  EXPECT_FALSE(host.Load("/nowhere/module.so", &error));
  EXPECT_NE(error.find("cannot be loaded"), std::string::npos) << error;
}

}  // namespace
}  // namespace qiv::host
