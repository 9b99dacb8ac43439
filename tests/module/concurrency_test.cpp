// Many threads through one module while its configuration changes.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

TEST(Concurrency, EveryRequestIsJudgedWholeWhileConfigurationsChange) {
  constexpr int kThreads = 8;
  constexpr int kRequests = 60;
  test::CInstallation installation;
  test::Site site = test::InjectionSite();
  installation.Write(site);
  InitialiseModule(installation.Directory(), true);
  host::CModuleHost server;
  ASSERT_EQ(server.Register(&RegisterModule), 0);
  // Ticks that are not held back to one in two seconds: a configuration object of its own for each would share nothing.
  std::atomic<bool> stop{false};
  std::thread reloader([&] {
    for (int round = 0; !stop; ++round) {
      site.sections["website_response"] = "\"ret_type\":\"" + std::to_string(1 + round % 2) + "\"";
      installation.Write(site);
      ModuleConfig().RefreshTick();
    }
  });
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRequests; ++i) {
        host::InProcessRequest request;
        const bool attack = (i + t) % 2 == 0;
        request.method = "POST";
        request.headers = {{"Content-Type", "text/plain"}};
        request.body = attack ? "id=1' union select 1" : "id=" + std::string(static_cast<std::size_t>(100 * i), 'x');
        const host::InProcessResponse response = RunInProcess(server, request);
        const bool right = attack ? response.status == 403 && response.body.find("Access denied") != std::string::npos
                                  : response.status == 200 && response.handler_body == request.body;
        if (!right) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  stop = true;
  reloader.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(static_cast<int>(ModuleConfig().IsConfigValid()), 1);
}

}  // namespace
}  // namespace qiv
