// The order in which each notification consults the rows of a check table, with rows that write down their calls.
#include "module/pipeline.h"

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <string>
#include <vector>

#include "checks/check_table.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

using test::CFakeContext;

/// Every look at it is a tick later.
std::int64_t HastyClock() {
  static std::int64_t seconds = 1700000000;
  return seconds += 3;
}

struct Script {
  std::map<std::string, std::int32_t> decisions;  ///< row name to the status it sets
  std::string out_of_memory;                      ///< the row that throws after its decision
  const WebsiteConfig* config = nullptr;          ///< of the request under way
  std::string calls;                              ///< "phase:row ", with "!" when response headers were treated before
};
Script* script = nullptr;

constexpr const char* kNames[] = {"lists", "shape", "access", "words", "body", "missing", "counter"};

template <int kIndex>
void Row(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  auto& response = static_cast<CFakeContext*>(facts.context)->response;
  const std::string name = kNames[kIndex];
  script->calls += std::to_string(context.phase) + ":" + name + (response.header_writes ? "! " : " ");
  EXPECT_TRUE(result.request.statistics || kIndex != 0) << "each notification starts anew";
  if (context.phase == kPhaseBegin) script->config = &context.config;
  EXPECT_EQ(&context.config, script->config) << "a request keeps its settings";
  result.request.statistics = false;
  const auto found = script->decisions.find(name);
  if (found != script->decisions.end()) {
    result.status = found->second;
    result.reason = "pwd=hush";
  }
  if (name == script->out_of_memory) throw std::bad_alloc();
}

constexpr CheckRow kRows[] = {
    {kNames[0], Stage::kLists, Row<0>},         {kNames[1], Stage::kRequest, Row<1>},
    {kNames[2], Stage::kRequest, Row<2>},       {kNames[3], Stage::kRequestAlways, Row<3>},
    {kNames[4], Stage::kResponseBody, Row<4>},  {kNames[5], Stage::kNotFound, Row<5>},
    {kNames[6], Stage::kAfterDecision, Row<6>},
};

class CRecorder final : public IEventRecorder {
 public:
  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult& result) override {
    EXPECT_EQ(result.reason, "pwd=***");
  }
  void RecordStatistics(std::string_view, std::string_view, std::string_view) override {}
};

class Pipeline : public testing::Test {
 protected:
  void Configure(bool e404 = true) {
    test::Site site;
    site.sections["website_base"] = R"("hide":"1")";
    if (e404) site.sections["website_attack"] = R"("e404":"1","e404_lock_freq":"5","e404_lock_time":"5")";
    site.sections["website_response"] = R"("disable_compress":"1","passwd":"1","passwd_key":"k")";
    installation_.Write(site);
    config_.RefreshTick();
  }
  Pipeline() { script = &script_; }
  ~Pipeline() { script = nullptr; }

  std::string Calls() { return std::exchange(script_.calls, ""); }

  Script script_;
  test::CInstallation installation_;
  CQivConfig config_{installation_.Directory(), &HastyClock};
  CStoredContexts contexts_{config_};
  CRecorder recorder_;
  CExchangeFiles exchange_{"", ""};
  CheckState state_{exchange_};
  CPipeline pipeline_{config_, contexts_, kRows, {state_, recorder_}};
};

constexpr std::int32_t kFinish = iis::RQ_NOTIFICATION_FINISH_REQUEST;
constexpr std::int32_t kContinue = iis::RQ_NOTIFICATION_CONTINUE;

TEST_F(Pipeline, BeginsInOrder) {
  Configure();
  struct {
    std::map<std::string, std::int32_t> decisions;
    const char* calls;
    std::int32_t returned;
    bool hardened;
    bool form;  // of the page, when there is one
  } const cases[] = {
      {{}, "1:lists 1:shape 1:access 1:words! 1:counter! ", kContinue, true, false},
      {{{"lists", kAllowed}}, "1:lists 1:words 1:counter ", kContinue, false, false},
      {{{"lists", kAllowed}, {"words", kBlocked}}, "1:lists 1:words 1:counter! ", kFinish, false, true},
      {{{"shape", kAllowed}}, "1:lists 1:shape 1:words 1:counter ", kContinue, false, false},
      {{{"lists", kBlocked}}, "1:lists 1:counter! ", kFinish, true, false},
      {{{"shape", kBlocked}}, "1:lists 1:shape 1:counter! ", kFinish, true, true},
      {{{"access", kBlocked}}, "1:lists 1:shape 1:access 1:counter! ", kFinish, true, true},
      {{{"words", kBlocked}}, "1:lists 1:shape 1:access 1:words! 1:counter! ", kFinish, true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.calls);
    script_.decisions = c.decisions;
    CFakeContext context;
    context.response.Add("Server", "x");
    EXPECT_EQ(pipeline_.BeginRequest(context), c.returned);
    EXPECT_EQ(Calls(), c.calls);
    EXPECT_EQ(context.response.Values("Server").empty(), c.hardened);
    EXPECT_EQ(context.response.body.empty(), c.returned == kContinue);
    EXPECT_EQ(contexts_.PageWritten(context), c.returned == kFinish);
    EXPECT_EQ(context.response.body.find("<form") != std::string::npos, c.form);
    const StoredRequest stored = contexts_.Load(context);
    ASSERT_TRUE(stored.record);
    EXPECT_EQ(stored.record->facts.path, "/");
    EXPECT_EQ(stored.record->config, config_.Current());
  }
}

TEST_F(Pipeline, KeepsItsDecisionWhenMemoryRunsOutAfterIt) {
  Configure();
  script_.out_of_memory = "counter";
  for (const bool blocked : {true, false}) {
    if (blocked) script_.decisions = {{"shape", kBlocked}};
    CFakeContext context;
    EXPECT_EQ(pipeline_.BeginRequest(context), blocked ? kFinish : kContinue);
    EXPECT_EQ(context.response.body.empty(), !blocked);
    script_.decisions.clear();
  }
}

TEST_F(Pipeline, FollowsTheResponse) {
  Configure();
  struct {
    std::map<std::string, std::int32_t> decisions;
    bool page_before;
    const char* calls;  // after the handler
    std::int32_t returned;
    const char* send_calls;  // of a 404
    std::int32_t send_returned;
  } const cases[] = {
      {{}, false, "3:lists 3:body! ", kContinue, "4:lists! 4:missing! ", kContinue},
      {{}, true, "3:lists ", kContinue, "4:lists! 4:missing! ", kContinue},
      {{{"lists", kAllowed}}, false, "3:lists 3:body ", kContinue, "4:lists ", kContinue},
      {{{"lists", kBlocked}}, false, "3:lists 3:counter ", kFinish, "4:lists ", kFinish},
      {{{"body", kBlocked}}, false, "3:lists 3:body! 3:counter! ", kFinish, "4:lists! 4:missing! ", kContinue},
      {{{"missing", kBlocked}}, false, "3:lists 3:body! ", kContinue, "4:lists! 4:missing! ", kContinue},
  };
  for (const bool saved : {true, false}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.calls);
      CFakeContext context;
      script_.decisions.clear();
      context.has_container = saved;
      pipeline_.BeginRequest(context);
      if (c.page_before && !contexts_.MarkPageWritten(context, "id")) continue;
      context.response.header_writes = 0;
      Calls();
      script_.decisions = c.decisions;
      EXPECT_EQ(pipeline_.PostExecuteRequestHandler(context), c.returned);
      EXPECT_EQ(Calls(), c.calls);
      context.response.status = 404;
      const test::CFakeSend send(true);
      EXPECT_EQ(pipeline_.SendResponse(context, &send), c.send_returned);
      EXPECT_EQ(Calls(), c.send_calls);
      EXPECT_EQ(context.response.body.empty(), !c.decisions.contains("body")) << "the lists write no page here";
    }
  }
}

TEST_F(Pipeline, HardensAndCountsOnlyTheSendWithTheHeaders) {
  Configure();
  CFakeContext context;
  pipeline_.BeginRequest(context);
  context.response.header_writes = 0;
  context.response.status = 404;
  Calls();
  const test::CFakeSend later(false);
  EXPECT_EQ(pipeline_.SendResponse(context, &later), kContinue);
  EXPECT_EQ(Calls(), "4:lists ");
  context.headers_sent = true;
  EXPECT_EQ(pipeline_.SendResponse(context, nullptr), kContinue);
  EXPECT_EQ(Calls(), "4:lists ");
  EXPECT_EQ(context.response.header_writes, 0);
  context.headers_sent = false;
  context.response.status = 200;
  EXPECT_EQ(pipeline_.SendResponse(context, nullptr), kContinue);
  EXPECT_EQ(Calls(), "4:lists ") << "no 404";
  EXPECT_NE(context.response.header_writes, 0);
}

TEST_F(Pipeline, CountsNo404WhileThatProtectionIsOff) {
  Configure(false);
  CFakeContext context;
  pipeline_.BeginRequest(context);
  Configure(true);  // too late for a request under way
  context.response.status = 404;
  Calls();
  EXPECT_EQ(pipeline_.SendResponse(context, nullptr), kContinue);
  EXPECT_EQ(Calls(), "4:lists! ");
}

TEST_F(Pipeline, LetsPassWhatItCannotOrMustNotJudge) {
  struct {
    const char* name;
    void (*change)(CFakeContext&);
    bool ipv6;
    bool judged;
  } const cases[] = {
      {"IPv6, unprotected", [](CFakeContext& c) { c.request.SetFamily(iis::kFamilyIpv6); }, false, false},
      {"IPv6, protected", [](CFakeContext& c) { c.request.SetFamily(iis::kFamilyIpv6); }, true, true},
      {"unknown family", [](CFakeContext& c) { c.request.SetFamily(1); }, true, false},
      {"no request", [](CFakeContext& c) { c.has_request = false; }, true, false},
      {"no response", [](CFakeContext& c) { c.has_response = false; }, true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::CInstallation installation;
    test::Site site;
    site.ipv6 = c.ipv6;
    site.sections["website_base"] = R"("hide":"1")";
    installation.Write(site);
    CQivConfig config(installation.Directory());
    CStoredContexts contexts(config);
    CPipeline pipeline(config, contexts, kRows, {state_, recorder_});
    CFakeContext context;
    c.change(context);
    EXPECT_EQ(pipeline.BeginRequest(context), kContinue);
    EXPECT_EQ(pipeline.PostExecuteRequestHandler(context), kContinue);
    EXPECT_EQ(pipeline.SendResponse(context, nullptr), kContinue);
    EXPECT_EQ(Calls().empty(), !c.judged);
  }
  CFakeContext context;  // no configuration file at all
  script_.decisions = {{"lists", kBlocked}};
  EXPECT_EQ(pipeline_.BeginRequest(context), kContinue);
  EXPECT_EQ(pipeline_.PostExecuteRequestHandler(context), kContinue);
  EXPECT_EQ(pipeline_.SendResponse(context, nullptr), kContinue);
  EXPECT_EQ(Calls(), "");
}

// An answer out of the system's own cache passes by everything here, whoever filled the cache.
TEST_F(Pipeline, KeepsAnswersFromTheSystemsCacheWhereTheClientMatters) {
  const std::pair<const char*, const char*> cases[] = {
      {"website_base", R"("hide":"1","trojan":"1")"},
      {"website_lists", R"("status_url":"1")"},
      {"website_lists", R"("status_ua":"1")"},
      {"website_lists", R"("status_rf":"1")"},
      {"website_lists", R"("status_iparea":"1")"},
      {"website_lists", R"("status_malice":"1")"},
      {"website_attack", R"("e404":"1","e404_lock_freq":"5","e404_lock_time":"5")"},
      {"website_attack", R"("cc":"1","cc_lock_freq":"5","cc_lock_time":"5")"},
      {"website_attack", R"("agent":"1")"},
      {"website_attack", R"("spider":"1")"},
      {"website_protect", R"("link":"1")"},
      {"website_protect", R"("admin":"1")"},
      {"website_protect", R"("timelimit":"1")"},
  };
  for (const auto& [section, members] : cases) {
    SCOPED_TRACE(members);
    test::Site site;
    site.sections[section] = members;
    test::CInstallation installation;
    installation.Write(site);
    CQivConfig config(installation.Directory());
    CPipeline pipeline(config, contexts_, kRows, {state_, recorder_});
    for (const int kind : {0, 1, 2}) {
      const bool allowed = kind == 1;
      const bool ipv6 = kind == 2;  // protection is off for IPv6: such a client must not fill the cache either
      const bool kept_out = std::string(section) != "website_base" || allowed;
      const std::vector<iis::ULONG> expected(kept_out ? 1 : 0, 9);
      script_.decisions = {{"lists", allowed ? kAllowed : kUndecided}};
      CFakeContext context;
      if (ipv6) context.request.SetFamily(iis::kFamilyIpv6);
      pipeline.BeginRequest(context);
      pipeline.SendResponse(context, nullptr);
      EXPECT_EQ(context.response.kernel_cache_disabled, expected);
    }
    CFakeContext without;
    without.has_response = false;
    pipeline.BeginRequest(without);
  }
}

TEST_F(Pipeline, AsksForUncompressedResponsesByReplacingAHeaderOnly) {
  Configure();
  CFakeContext with;
  with.request.known[iis::HttpHeaderAcceptEncoding] = "gzip, br";
  pipeline_.BeginRequest(with);
  EXPECT_EQ(with.request.known[iis::HttpHeaderAcceptEncoding], " ");
  CFakeContext without;
  pipeline_.BeginRequest(without);
  EXPECT_FALSE(without.request.known.contains(iis::HttpHeaderAcceptEncoding));
}

}  // namespace
}  // namespace qiv
