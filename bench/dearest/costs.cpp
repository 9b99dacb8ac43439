// The heap is counted by this program's own operator new: each block begins with its size.
#include "bench/dearest/costs.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <new>
#include <system_error>

#include "engines/attacks/attack_rules.h"
#include "engines/webshell/page/analysis.h"
#include "engines/webshell/webshell_scan.h"
#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"
#include "port/clock.h"
#include "tools/installation.h"

namespace {

constexpr std::size_t kSizeRoom = alignof(std::max_align_t);
std::atomic<std::size_t> heap_now{0};
std::atomic<std::size_t> heap_most{0};

void* Allocate(std::size_t bytes) noexcept {
  void* const block = std::malloc(bytes + kSizeRoom);
  if (block == nullptr) return nullptr;
  *static_cast<std::size_t*>(block) = bytes;
  const std::size_t now = heap_now.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  if (now > heap_most.load(std::memory_order_relaxed)) heap_most.store(now, std::memory_order_relaxed);
  return static_cast<char*>(block) + kSizeRoom;
}

void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  void* const block = static_cast<char*>(memory) - kSizeRoom;
  heap_now.fetch_sub(*static_cast<std::size_t*>(block), std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

void* operator new(std::size_t bytes) {
  if (void* const memory = Allocate(bytes)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t bytes) { return operator new(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { Free(memory); }

namespace qiv::bench {
namespace {

constexpr std::size_t kEngineKinds = 5;  // the first ones are texts, not requests

host::InProcessRequest RequestOf(std::string_view kind, std::string text) {
  host::InProcessRequest request;
  request.raw_url = "/submit.aspx";
  request.headers = {{"Host", "www.example.com"}, {"User-Agent", "Mozilla/5.0"}};
  request.read_body_for_handler = false;
  if (kind == "cookie") {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    request.headers.push_back({"Cookie", std::move(text)});
    return request;
  }
  if (kind == "response") return request;
  std::string type = "application/x-www-form-urlencoded";
  if (kind == "json") type = "application/json";
  if (kind == "raw") type = "application/octet-stream";
  if (kind == "multipart" || kind == "upload") type = "multipart/form-data; boundary=B";
  request.method = "POST";
  request.headers.push_back({"Content-Type", std::move(type)});
  request.body = std::move(text);
  return request;
}

}  // namespace

double ThreadSeconds() {
#ifdef CLOCK_THREAD_CPUTIME_ID
  std::timespec now{};
  if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now) == 0)
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
#endif
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

struct CCosts::Parts {
  CQivLibs libs;
  host::CModuleHost modules;
};

CCosts::CCosts(const std::string& rules, const std::string& profile)
    : directory_(
          (std::filesystem::temp_directory_path() / ("dearest-" + std::to_string(MonotonicMicroseconds()))).string()) {
  InitOptions options;
  options.directory = directory_;
  options.rules = rules;
  options.profile = profile;
  if (InitInstallation(options) != 0) return;
  InitialiseModule(directory_, false);
  State().config.RefreshTick();
  parts_ = new Parts;
  ready_ = State().config.IsConfigValid() && !iis::Failed(parts_->modules.Register(&RegisterModule));
  // What is made once, with the first request of a kind, is no request's.
  for (std::size_t kind = 0; ready_ && kind < KindNames().size(); ++kind)
    Measure({kind, 0, Shape::kCycle, {0}}, 4096, 2);
}

CCosts::~CCosts() {
  delete parts_;
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

Cost CCosts::Measure(const Mix& mix, std::size_t bytes, int rounds) {
  const std::string_view kind = KindNames()[mix.kind];
  const std::string text = TextOf(mix, bytes);
  const bool is_request = mix.kind >= kEngineKinds;
  const host::InProcessRequest request = is_request ? RequestOf(kind, text) : host::InProcessRequest();
  const host::InProcessHandler handler =
      host::AnswerWith(200, kind == "response" ? text : "ok", {{"Content-Type", "text/html"}});
  Cost cost;
  for (int round = 0; round < rounds; ++round) {
    const std::size_t before = heap_now.load();
    heap_most.store(before);
    const double begin = ThreadSeconds();
    bool blocked = false;
    if (is_request) {
      blocked = host::RunInProcess(parts_->modules, request, handler).status != 200;
    } else if (kind == "attacks") {
      const std::shared_ptr<const AttackRuleSet> rules = State().config.AttackRules();
      CAttackScan scan(rules->attacks);
      blocked = scan.Find(text, kInBody, kLocalFiles | kRemoteFiles | kBadCode).rule != nullptr;
    } else {
      WebshellResult result;
      if (kind == "asp" || kind == "aspx") {
        CWalkBudget walks(text.size());
        blocked = AnalysePage(parts_->libs.Library(), text, {}, &walks, &result);
      } else {
        blocked = parts_->libs.WebshellScan(std::string_view(text), &result);
      }
    }
    const double ns = (ThreadSeconds() - begin) * 1e9 / static_cast<double>(bytes);
    if (round == 0 || ns < cost.ns_per_byte) cost.ns_per_byte = ns;
    cost.memory = std::max(cost.memory, static_cast<double>(heap_most.load() - before) / static_cast<double>(bytes));
    cost.blocked = blocked;
  }
  return cost;
}

}  // namespace qiv::bench
