// What the protection costs: the whole decision on typical requests, and each detector by the byte.
//
// Every figure of one run comes from one machine and one moment: compare figures within a run only.
#include <benchmark/benchmark.h>

#include <iostream>
#include <memory>
#include <string>

#include "bench/access.h"
#include "bench/addresses.h"
#include "bench/flatness.h"
#include "bench/installation.h"
#include "bench/request_webshells.h"
#include "bench/requests.h"
#include "bench/texts.h"
#include "bench/uploads.h"
#include "bench/webshell_texts.h"
#include "checks/injection_check.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/injection/sql_injection_detector.h"
#include "engines/injection/xss_detector.h"
#include "engines/webshell/webshell_scan.h"
#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"
#include "tests/checks/lone_context.h"

namespace qiv::bench {
namespace {

constexpr std::int64_t kSmallest = 1 << 10;
constexpr std::int64_t kLargest = 16 << 20;

// The decision on one request: everything the module does from the first notification to the last, with a handler that
// answers at once. The pair without the module is what the host itself costs.

void Decide(benchmark::State& state, const DecisionCase* decision, bool with_module) {
  host::CModuleHost modules;
  if (with_module && iis::Failed(modules.Register(&RegisterModule))) {
    state.SkipWithError("the module did not register");
    return;
  }
  const host::InProcessRequest request = decision->make();
  const host::InProcessHandler handler = host::AnswerWith(200, "ok");
  for (auto _ : state) {
    const host::InProcessResponse response = host::RunInProcess(modules, request, handler);
    if (response.status != 200) state.SkipWithError("an ordinary request was not answered with 200");
    benchmark::DoNotOptimize(response.status);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(request.body.size()));
}

// What one byte of a text costs. A counter turned into nanoseconds by the library: bytes per iteration, inverted.

void CountBytes(benchmark::State& state) {
  const double bytes = static_cast<double>(state.range(0)) * 1e-9;
  state.counters["ns_per_byte"] =
      benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::string TextOf(const TextKind& kind, const benchmark::State& state) {
  return Repeat(kind.unit(), static_cast<std::size_t>(state.range(0)));
}

void CheckBody(benchmark::State& state, const TextKind* kind) {
  const std::shared_ptr<const WebsiteConfig> config = State().config.Current();
  const std::shared_ptr<const InjectionLibrary> library = State().config.Library();
  CLoneContext lone(*config);
  RequestFacts facts;
  facts.body = TextOf(*kind, state);
  for (auto _ : state) {
    CheckResult result;
    InjectionCheck(facts, lone.With(*library), result);
    benchmark::DoNotOptimize(result.status);
  }
  CountBytes(state);
}

void DetectSql(benchmark::State& state, const TextKind* kind) {
  const std::string text = TextOf(*kind, state);
  const std::shared_ptr<const InjectionLibrary> library = State().config.Library();
  for (auto _ : state) benchmark::DoNotOptimize(SqlInjectionDetector::MatchUnit(text, *library));
  CountBytes(state);
}

void DetectXss(benchmark::State& state, const TextKind* kind) {
  const std::string text = TextOf(*kind, state);
  const std::shared_ptr<const InjectionLibrary> library = State().config.Library();
  for (auto _ : state) {
    benchmark::DoNotOptimize(XssDetector::EventCheck(text, *library).size());
    benchmark::DoNotOptimize(XssDetector::ScriptTagCheck(text).size());
    benchmark::DoNotOptimize(XssDetector::JavascriptUrlCheck(text).size());
  }
  CountBytes(state);
}

void TestKeywords(benchmark::State& state, const TextKind* kind) {
  const std::string text = TextOf(*kind, state);
  const std::shared_ptr<const WebsiteConfig> config = State().config.Current();
  for (auto _ : state) benchmark::DoNotOptimize(config->post_rules.FindFirst(text));
  CountBytes(state);
}

void Normalize(benchmark::State& state, const TextKind* kind) {
  const std::string text = TextOf(*kind, state);
  for (auto _ : state) benchmark::DoNotOptimize(NormalizeText(text).size());
  CountBytes(state);
}

void ScanScript(benchmark::State& state, const WebshellText* kind) {
  static const CQivLibs libs;
  const std::string text = kind->make(libs.Library(), static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    WebshellResult result;
    benchmark::DoNotOptimize(libs.WebshellScan(std::string_view(text), &result));
  }
  CountBytes(state);
}

void RegisterAll(const std::string& rules) {
  for (const DecisionCase& decision : Decisions()) {
    for (const bool with_module : {true, false}) {
      const std::string name = std::string(with_module ? "decision/" : "host_alone/") + decision.name;
      benchmark::RegisterBenchmark(name.c_str(), Decide, &decision, with_module)->Unit(benchmark::kMicrosecond);
    }
  }
  struct Detector {
    const char* name;
    void (*run)(benchmark::State&, const TextKind*);
  };
  constexpr Detector kDetectors[] = {{"injection_check", CheckBody},
                                     {"sql", DetectSql},
                                     {"xss", DetectXss},
                                     {"keywords", TestKeywords},
                                     {"normalize", Normalize}};
  for (const Detector& detector : kDetectors) {
    for (const TextKind& kind : TextKinds()) {
      const std::string name = std::string(detector.name) + ":" + kind.name;
      benchmark::RegisterBenchmark(name.c_str(), detector.run, &kind)->RangeMultiplier(16)->Range(kSmallest, kLargest);
    }
  }
  for (const WebshellText& kind : WebshellTexts()) {
    const std::string name = std::string("webshell:") + kind.name;
    benchmark::RegisterBenchmark(name.c_str(), ScanScript, &kind)
        ->RangeMultiplier(16)
        ->Range(kSmallest, static_cast<std::int64_t>(CQivLibs::kLongestText));
  }
  RegisterAccessBenchmarks(rules);
  RegisterAddressBenchmarks();
  RegisterUploadBenchmarks();
  RegisterRequestWebshellBenchmarks();
}

}  // namespace
}  // namespace qiv::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc > 2) {
    std::cerr << "usage: qivbench [--benchmark_filter=REGEX ...] [RULES_DIRECTORY]\n";
    return 2;
  }
  const std::string rules = argc == 2 ? argv[1] : QIV_BENCH_RULES;
  const qiv::bench::CBenchInstallation installation(rules);
  if (!installation.Use()) return 2;
  qiv::bench::RegisterAll(rules);
  qiv::bench::CFlatnessReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
