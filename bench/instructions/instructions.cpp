// Decisions to be counted by callgrind: `valgrind --tool=callgrind --collect-atstart=no instructions`.
//
// For each setting and each ordinary request one dump, "setting/request": what kCounted requests cost from the first
// notification to the last, the host included. bench/instructions/check.py runs it and holds it against the budget.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <string>

#include "bench/installation.h"
#include "bench/requests.h"
#include "host/in_process.h"
#include "module/register_module.h"

namespace qiv::bench {
namespace {

constexpr int kWarming = 2;  // the first requests build what is kept
constexpr int kCounted = 2;
constexpr std::size_t kLongestBody = 128 << 10;  // larger ones take minutes here

constexpr BenchSetting kSettings[] = {
    {"default", "default", ""},
    {"strict", "strict", R"({"website_attack": {"cc_lock_freq": "2000000000"}})"},
    {"without_families", "default", R"({"website_base": {"badcode": "0"}, "website_request": {"file": "0"}})"},
};

/// False when the module does not let an ordinary request pass: nothing would be counted then.
bool Count(host::CModuleHost& modules, const std::string& name, const host::InProcessRequest& request) {
  const host::InProcessHandler handler = host::AnswerWith(200, "ok");
  bool passes = true;
  const auto decide = [&] { passes = host::RunInProcess(modules, request, handler).status == 200 && passes; };
  for (int i = 0; i < kWarming; ++i) decide();
  CALLGRIND_ZERO_STATS;
  CALLGRIND_TOGGLE_COLLECT;
  for (int i = 0; i < kCounted; ++i) decide();
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  if (!passes) std::fprintf(stderr, "instructions: %s: an ordinary request was not answered with 200\n", name.c_str());
  return passes;
}

bool CountAll() {
  bool all = true;
  const auto count = [&all](const BenchSetting* setting) {
    host::CModuleHost modules;
    if (setting != nullptr && iis::Failed(modules.Register(&RegisterModule))) return false;
    for (const DecisionCase& decision : Decisions()) {
      const host::InProcessRequest request = decision.make();
      if (request.body.size() > kLongestBody) continue;
      all = Count(modules, std::string(setting ? setting->name : "host") + "/" + decision.name, request) && all;
    }
    return true;
  };
  if (!count(nullptr)) return false;
  for (const BenchSetting& setting : kSettings) {
    const CBenchInstallation installation(QIV_BENCH_RULES, setting.profile, setting.changes);
    if (!installation.Use() || !count(&setting)) return false;
  }
  std::printf("%d\n", kCounted);
  return all;
}

}  // namespace
}  // namespace qiv::bench

int main() { return qiv::bench::CountAll() ? 0 : 2; }
