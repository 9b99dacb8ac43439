// Memory runs out at every allocation in turn: nothing leaks or is freed twice (the sanitizers see to that), a request
// is either let pass or blocked as a whole, and a load that failed is tried again.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "config/qiv_config.h"
#include "config/website_config.h"
#include "module/facts_collector.h"
#include "module/module_state.h"
#include "module/qiv_module.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"

namespace {

// The allocation of this thread that fails, counted from now; below 0: none. Then all others too, when so asked.
thread_local long countdown = -1;
thread_local bool all_that_follow = false;
thread_local bool failed = false;
// Bytes of all threads. Each block has its size in front of it.
std::atomic<std::size_t> in_use{0};
std::atomic<std::size_t> most_in_use{0};
constexpr std::size_t kInFront = alignof(std::max_align_t);

void* Allocate(std::size_t size) {
  if (countdown == 0) {
    failed = true;
    if (!all_that_follow) countdown = -1;
    return nullptr;
  }
  if (countdown > 0) --countdown;
  char* const block = static_cast<char*>(std::malloc(kInFront + size));
  if (!block) return nullptr;
  std::memcpy(block, &size, sizeof(size));
  most_in_use = std::max<std::size_t>(most_in_use, in_use += size);
  return block + kInFront;
}

// Not inlined, or the compiler sees free() after new and complains.
[[gnu::noinline]] void Free(void* memory) noexcept {
  if (!memory) return;
  char* const block = static_cast<char*>(memory) - kInFront;
  std::size_t size;
  std::memcpy(&size, block, sizeof(size));
  in_use -= size;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { Free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { Free(memory); }

namespace qiv {
namespace {

constexpr long kMostAllocations = 100'000;

/// Runs `work` with the nth allocation failing, until there is no nth. `step`: every one of the first `step`
/// allocations, then ever fewer.
template <typename Work>
void FailEach(bool all, long step, Work&& work) {
  for (long n = 0; n < kMostAllocations; n += 1 + n / step) {
    all_that_follow = all;
    failed = false;
    work(n);
    countdown = -1;
    if (!failed) return;
  }
  FAIL() << "too many allocations";
}

TEST(Memory, ARequestIsLetPassOrBlockedAsAWhole) {
  test::CInstallation installation;
  test::Site site = test::InjectionSite();
  site.sections["website_request"] = R"("cookie":"1","xss_mode":"1","xframe":"1","xframe_type":"DENY")";
  site.sections["website_response"] = R"("passwd":"1","passwd_key":"k","ret_type":"2")";
  site.linked = true;
  installation.Start(site);
  for (const bool attack : {false, true}) {
    for (const bool all : {false, true}) {
      int blocked = 0;
      FailEach(all, kMostAllocations, [&](long n) {
        test::CFakeContext context;
        context.request.SetUrl(attack ? "/a?x=1' union select 1" : "/a?x=a+text%20that+takes+memory");
        context.request.unknown["x-forwarded-for"] = "198.51.100.200, 198.51.100.201";
        context.response.Add("Set-Cookie", "session=0123456789abcdef; path=/");
        const test::CFakeSend send(true);
        iis::CHttpModule* module = new CQivIpsIIsModule;
        countdown = n;
        const auto begun = module->OnBeginRequest(&context, nullptr);
        if (begun == iis::RQ_NOTIFICATION_CONTINUE) module->OnPostExecuteRequestHandler(&context, nullptr);
        module->OnSendResponse(&context, const_cast<test::CFakeSend*>(&send));
        countdown = -1;
        module->Dispose();
        const bool finished = begun == iis::RQ_NOTIFICATION_FINISH_REQUEST;
        ASSERT_EQ(context.response.status, finished ? 403 : 200) << "allocation " << n;
        ASSERT_TRUE(finished || context.response.body.empty()) << "allocation " << n;
        blocked += finished;
      });
      EXPECT_EQ(blocked > 0, attack);
    }
  }
}

TEST(Memory, ABodyTakesLittleMoreThanItselfAndItsText) {
  constexpr std::size_t kSize = 2 << 20;
  for (const char* letter : {"a", "%41", "\xE4\xB8\xAD", "\xD6\xD0"}) {
    test::CFakeContext context;
    std::string text;
    while (text.size() < kSize) text += letter;
    context.request.SetBody(text, "text/plain");
    const std::size_t size = text.size();
    WebsiteConfig config;
    config.need_post_body = true;
    RequestFacts facts;
    const std::size_t before = in_use;
    most_in_use = before;
    ASSERT_TRUE(ReadHeadersAndBody(context, config, true, facts));
    EXPECT_FALSE(facts.body.empty());
    const std::size_t of_the_server = size;  // the stand-in keeps what was given back
    EXPECT_LT(most_in_use - before - of_the_server, size / 10 * 22) << letter;
  }
}

TEST(Memory, ALoadThatFailedIsTriedAgain) {
  test::CInstallation installation;
  installation.Write(test::InjectionSite());
  // A load takes thousands of allocations, most of them for equal records of the libraries.
  FailEach(false, 20, [&](long n) {
    static std::int64_t now;
    now = 1000;
    CQivConfig config(installation.Directory(), [] { return now; });
    countdown = n;
    try {
      config.RefreshTick();
    } catch (const std::bad_alloc&) {
      // The barrier of the notifications.
    }
    countdown = -1;
    now += 2;
    config.RefreshTick();
    ASSERT_TRUE(config.IsConfigValid()) << "allocation " << n;
    ASSERT_FALSE(config.Library()->Rules().empty()) << "allocation " << n;
    ASSERT_NE(config.Webshells(), nullptr) << "allocation " << n;
  });
}

}  // namespace
}  // namespace qiv
