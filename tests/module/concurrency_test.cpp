// Many threads through one pipeline while its configuration changes under them.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "module/pipeline.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

/// Every look at it is a tick later, so that every request looks at the files.
std::int64_t HastyClock() {
  static std::atomic<std::int64_t> seconds{1700000000};
  return seconds += 3;
}

TEST(Concurrency, EveryRequestIsJudgedWholeWhileConfigurationsChange) {
  constexpr int kThreads = 8;
  constexpr int kRequests = 100;
  test::CInstallation installation;
  test::Site site = test::InjectionSite();
  const auto write = [&](int round) {
    site.sections["website_response"] = "\"ret_type\":\"" + std::to_string(1 + round / 2 % 2) + "\"";
    installation.Write(site);
  };
  write(0);
  CQivConfig config(installation.Directory(), &HastyClock);
  config.SetModuleId(&config);
  config.RefreshTick();
  CStoredContexts contexts(config);
  CNoRecorder nobody;
  CExchangeFiles exchange("", "");
  CheckState state(exchange);
  CPipeline pipeline(config, contexts, CheckTable(), {state, nobody});

  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRequests; ++i) {
        if (t == 0) write(i);
        test::CFakeContext context;
        const bool attack = (i + t) % 2 == 0;
        context.request.SetBody(attack ? "id=1' union select 1" : "id=" + std::string(100u * i, 'x'), "text/plain");
        const bool finished = pipeline.BeginRequest(context) == iis::RQ_NOTIFICATION_FINISH_REQUEST;
        pipeline.SendResponse(context, nullptr);
        const std::string& page = context.response.body;
        const bool whole = page.empty() ? !attack : attack && page.ends_with("<!--") && page.find("{{") == page.npos;
        if (finished != attack || !whole) ++wrong;
        if (context.request.ApplicationBody() != context.request.body.data) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  write(2);
  test::CFakeContext attack;
  attack.request.SetUrl("/?id=1' union select 1");
  EXPECT_EQ(pipeline.BeginRequest(attack), iis::RQ_NOTIFICATION_FINISH_REQUEST);
  EXPECT_NE(attack.response.body.find("Remark: "), std::string::npos) << "the last configuration is in force";
}

}  // namespace
}  // namespace qiv
