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

}  // namespace
}  // namespace qiv::host
