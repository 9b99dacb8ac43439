#include "bench/request_webshells.h"

#include <benchmark/benchmark.h>

#include <string>

#include "bench/texts.h"
#include "checks/webshell_check.h"
#include "common/char_set.h"
#include "common/text.h"
#include "module/module_state.h"
#include "tests/checks/lone_context.h"

namespace qiv::bench {
namespace {

constexpr const char* kForm = "application/x-www-form-urlencoded";
constexpr const char* kJson = "application/json";
constexpr const char* kRaw = "application/octet-stream";

// A body: what it begins with, and what it is filled with.
struct BodyKind {
  const char* name;
  const char* type;
  const char* head;
  const char* unit;
};

constexpr BodyKind kKinds[] = {
    {"ordinary_form", kForm, "", "field=some+ordinary+words%2C+a+date+2024-05-17&count=12&"},
    {"ordinary_json", kJson, "[", R"({"id":17,"title":"An ordinary title","tags":["red","blue"],"done":false},)"},
    {"prices", kForm, "", "price=12.50+(incl.+tax)+%24+off&note=(see+list)&"},
    {"page_source", kForm, "text=", "%3Cscript%3Efunction+f(a)%7Breturn+$(a).on(b)%7D%3C%2Fscript%3E"},
    {"brackets", kForm, "a=", "("},
    {"evals", kForm, "a=", "eval(eval("},
    {"arguments", kForm, "a=", "eval(aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa;"},
    {"setups", kForm, "a=", "@ini_set("},
    {"comments", kForm, "a=", "*/ ("},
    {"tags", kForm, "a=", "<?<?<?"},
    {"script", kRaw, "<?php ", "$a=array($a,trim($_POST[1]));"},
    {"open_script", kRaw, "<?php ", "f(trim("},
    {"page", kRaw, "<% ", "x=x&chr(101)&"},
    {"sources", kForm, "", "a=$_&"},
    {"scripts", kForm, "", "a=<?php f($_POST[1]);&"},
    {"parameters", kForm, "", "a&"},
    {"calls", kForm, "", "a=eval(b)&"},
    {"base64", kForm, "", "a=ZWNobyAxOyBldmFsKGFycmF5KGFycmF5KCRhKSkpOyA8P3BocCA&"},
    {"base64_twice", kForm, "a=", "V2xkT2IySjVRWGhQZVVKc1pHMUdjMHRIUm5samJVWTFTMGRHZVdOdFJqVkxRMUpv"},
    {"escapes", kJson, "[\"", "\\u0065val("},
    {"strings", kJson, "[", "\"\\u0065(\","},
};

void CheckWebshells(benchmark::State& state, const BodyKind* kind) {
  std::string body = kind->head;
  body += Repeat(kind->unit, static_cast<std::size_t>(state.range(0)) - body.size());
  const std::shared_ptr<const WebsiteConfig> config = State().config.Current();
  const std::shared_ptr<const CQivLibs> webshells = State().config.Webshells();
  CLoneContext lone(*config, webshells.get());
  RequestFacts facts;
  facts.raw_url = "/submit.php";
  facts.content_type = kind->type;
  facts.raw_body = body;
  facts.body = CCharSet::LowerAscii(CCharSet::ToLocal(PercentDecode(body)));
  for (auto _ : state) {
    CheckResult result;
    WebshellCheck(facts, lone.Context(), result);
    // What is found ends the search: such a body measures nothing.
    if (result.status == kBlocked) state.SkipWithError("the body was blocked");
    benchmark::DoNotOptimize(result.status);
  }
  const double bytes = static_cast<double>(state.range(0)) * 1e-9;
  state.counters["ns_per_byte"] =
      benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

void RegisterRequestWebshellBenchmarks() {
  for (const BodyKind& kind : kKinds) {
    const std::string name = std::string("webshell_check:") + kind.name;
    benchmark::RegisterBenchmark(name.c_str(), CheckWebshells, &kind)->Arg(1 << 10)->Arg(64 << 10)->Arg(2 << 20);
  }
}

}  // namespace qiv::bench
