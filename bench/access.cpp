#include "bench/access.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/installation.h"
#include "bench/requests.h"
#include "checks/check_table.h"
#include "checks/client_counter.h"
#include "config/website_config.h"
#include "host/in_process.h"
#include "module/facts_collector.h"
#include "module/module_state.h"
#include "module/register_module.h"

namespace qiv::bench {
namespace {

// Without them, and with all of them; of each as much as a site would list.
constexpr const char* kNoAccess =
    R"({"website_base": {"url": "0", "xforwardedfor": "0"}, "website_attack": {"overflow": "0", "e404": "0", "cc": "0",
        "spider": "0", "agent": "0"}, "website_request": {"type": "0"}})";
constexpr const char* kAllAccess =
    R"({"website_base": {"url": "1", "url_short_filename": "1", "url_bad_filename": "1", "url_script_parserr": "1",
        "url_dir_list": "1", "xforwardedfor": "1"},
        "website_request": {"type": "1", "types": ["get", "post", "head", "options"]},
        "website_attack": {"overflow": "1", "overflow_url_maxlen": "8192", "overflow_httpheader_maxlen": "32768",
        "overflow_httpheader_rule": "1", "overflow_httpheader_rules": ["Referer:4096", "Cookie:8192"], "spider": "1",
        "spider_strict_mode": "1", "agent": "1", "cc": "1", "cc_lock_freq": "2000000000", "cc_lock_time": "10",
        "cc_allow_ips": "198.51.100.0/24", "cc_allow_urls": "/api/|/feed/", "e404": "1", "e404_lock_freq": "600",
        "e404_lock_time": "10"},
        "website_protect": {"static": "1", "static_urls": "/images/|/css/|/upload/", "admin": "1",
        "admin_urls": "/admin/|/manage/|login.aspx", "admin_ips": "198.51.100.0/24", "timelimit": "1",
        "timelimit_limit_urls": "/shop/order/", "timelimit_auth_times": "1-5 08:00-18:00", "link": "1",
        "link_file_types": "jpg,png,gif,aspx", "link_white_referers": "friend.example", "type": "1",
        "type_file_types": "mdb,ini,inc"},
        "website_response": {"passwd": "1", "passwd_key": "k"}})";

constexpr BenchSetting kSettings[] = {{"default", "default", ""},
                                      {"default_without_access", "default", kNoAccess},
                                      {"default_all_access", "default", kAllAccess},
                                      {"strict", "strict", R"({"website_attack": {"cc_lock_freq": "2000000000"}})"},
                                      {"strict_without_access", "strict", kNoAccess},
                                      {"strict_all_access", "strict", kAllAccess}};

/// The module of this process uses another installation while this lives.
class CUsing {
 public:
  CUsing(const std::string& rules, const char* profile, const char* changes)
      : before_(State().config.Paths().module_directory), installation_(rules, profile, changes) {
    ready_ = installation_.Use();
  }
  ~CUsing() {
    InitialiseModule(before_, false);
    State().config.RefreshTick();
  }
  bool Ready() const { return ready_; }

 private:
  const std::string before_;
  CBenchInstallation installation_;
  bool ready_ = false;
};

void PlainGetWith(benchmark::State& state, const std::string& rules, const BenchSetting* setting) {
  const CUsing using_it(rules, setting->profile, setting->changes);
  host::CModuleHost modules;
  if (!using_it.Ready() || iis::Failed(modules.Register(&RegisterModule))) {
    state.SkipWithError("the module did not register");
    return;
  }
  const host::InProcessRequest request = PlainGet();
  const host::InProcessHandler handler = host::AnswerWith(200, "ok");
  for (auto _ : state) {
    if (host::RunInProcess(modules, request, handler).status != 200)
      state.SkipWithError("a plain GET was not answered");
  }
}

/// One check of the table on the facts of a plain GET, everything on.
void OneCheck(benchmark::State& state, const std::string& rules, const CheckRow* row) {
  const CUsing using_it(rules, "strict", kAllAccess);
  host::CModuleHost modules;
  if (!using_it.Ready() || iis::Failed(modules.Register(&RegisterModule))) {
    state.SkipWithError("the module did not register");
    return;
  }
  const std::shared_ptr<const WebsiteConfig> config = State().config.Current();
  const std::shared_ptr<const InjectionLibrary> library = State().config.Library();
  const std::shared_ptr<const CQivLibs> webshells = State().config.Webshells();
  const std::shared_ptr<const AttackRuleSet> rules_of_attacks = State().config.AttackRules();
  CNoRecorder nobody;
  RequestFacts facts;
  host::RunInProcess(modules, PlainGet(), [&](iis::IHttpContext& context) {
    CollectFacts(context, *config, facts);
    ReadHeadersAndBody(context, *config, false, facts);
  });
  const CheckContext context{.config = *config,
                             .library = *library,
                             .webshells = webshells.get(),
                             .attacks = &rules_of_attacks->attacks,
                             .state = State().service.Checks(),
                             .recorder = nobody};
  for (auto _ : state) {
    facts.path_readings.clear();  // each pays for them
    CheckResult result;
    if (row->IsOn(*config)) row->run(facts, context, result);
    if (result.status == kBlocked) state.SkipWithError("a plain GET was blocked");
  }
}

/// A flood of one request each from ten million addresses, while a thousand clients ask on.
void TenMillionClients(benchmark::State& state) {
  constexpr std::uint32_t kFlood = 10'000'000;
  constexpr std::uint32_t kHeavy = 1000;
  constexpr std::int64_t kPeriod = 1000;
  for (auto _ : state) {
    CClientCounter counter;
    const auto heavy = [](std::uint32_t i) { return CIpAddress::FromIpv4(0x0A000000 + i * 7919); };
    for (std::uint32_t i = 0; i < 3 * kHeavy; ++i) counter.Add(heavy(i % kHeavy), kPeriod, kPeriod);
    const std::size_t before = counter.Bytes();
    for (std::uint32_t i = 0; i < kFlood; ++i) counter.Add(CIpAddress::FromIpv4(0x20000000 + i), kPeriod, kPeriod);
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < kHeavy; ++i) kept += counter.Look(heavy(i), kPeriod, kPeriod).requests == 3 ? 1 : 0;
    state.counters["heavy_kept"] = kept;
    state.counters["grown_bytes"] = static_cast<double>(counter.Bytes() - before);
  }
  state.SetItemsProcessed(state.iterations() * kFlood);
}

}  // namespace

void RegisterAccessBenchmarks(const std::string& rules) {
  for (const BenchSetting& setting : kSettings) {
    const std::string name = std::string("plain_get/") + setting.name;
    benchmark::RegisterBenchmark(name.c_str(), PlainGetWith, rules, &setting);
  }
  for (const CheckRow& row : CheckTable()) {
    if (row.stage == Stage::kAfterDecision) continue;
    const std::string name = std::string("one_check/") + row.name;
    benchmark::RegisterBenchmark(name.c_str(), OneCheck, rules, &row);
  }
  benchmark::RegisterBenchmark("client_counter/ten_million", TenMillionClients)->Unit(benchmark::kMillisecond);
}

}  // namespace qiv::bench
