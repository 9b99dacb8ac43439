#include "bench/uploads.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/texts.h"
#include "checks/check_result.h"
#include "checks/injection_check.h"
#include "checks/request_facts.h"
#include "checks/upload_check.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"
#include "module/module_state.h"
#include "tests/checks/lone_context.h"

namespace qiv::bench {
namespace {

// Pictures are compressed: their bytes look like random ones.
std::string Image(std::size_t bytes) {
  std::string image("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR\0\0\0\1\0\0\0\1\x08\2\0\0\0", 29);
  image.resize(bytes);
  std::uint32_t state = 1;  // a fixed sequence: every run uploads the same bytes
  for (std::size_t i = 29; i < bytes; ++i) image[i] = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  return image;
}
// Bodies that make a careless reader slow.
std::string Dashes(std::size_t bytes) { return Repeat("-", bytes); }
std::string Marks(std::size_t bytes) { return Repeat("<?\x80<%\x80", bytes); }
std::string Delimiters(std::size_t bytes) { return Repeat("--XX --XXy\r\n--XX \r\n", bytes); }
// Script text, which is scanned for webshells.
std::string Script(std::size_t bytes) {
  return "<?php\n" + Repeat("$list[] = array('title' => $row['title'], 'url' => link_to($row));\n", bytes);
}

struct UploadKind {
  const char* name;
  const char* file_name;
  std::string (*content)(std::size_t bytes);
  bool injection;  // with injection protection
};
constexpr UploadKind kKinds[] = {
    {"upload_check:image", "photo.png", Image, false},    {"upload_check:dashes", "a.txt", Dashes, false},
    {"upload_check:script_marks", "a.txt", Marks, false}, {"upload_check:delimiters", "a.txt", Delimiters, false},
    {"upload_check:script", "a.txt", Script, false},      {"upload_and_injection:image", "photo.png", Image, true},
};

void CheckUpload(benchmark::State& state, const UploadKind* kind) {
  const auto config = std::make_shared<WebsiteConfig>(*State().config.Current());
  config->base.upload = config->base.upload_file = config->base.upload_exe = true;
  config->request.photo = 1;
  config->request.photo_post = true;
  const std::string body = std::string("--XX\r\nContent-Disposition: form-data; name=\"file\"; filename=\"") +
                           kind->file_name + "\"\r\n\r\n" + kind->content(static_cast<std::size_t>(state.range(0))) +
                           "\r\n--XX--\r\n";
  const std::shared_ptr<const InjectionLibrary> library = State().config.Library();
  const std::shared_ptr<const CQivLibs> webshells = State().config.Webshells();
  CLoneContext lone(*config, webshells.get());
  RequestFacts facts;
  facts.content_type = "multipart/form-data; boundary=XX";
  facts.raw_body = body;
  facts.body = CCharSet::LowerAscii(CCharSet::ToLocal(PercentDecode(body)));
  for (auto _ : state) {
    CheckResult result;
    UploadCheck(facts, lone.Context(), result);
    if (kind->injection) InjectionCheck(facts, lone.With(*library), result);
    // Hostile bodies may be refused.
    if (kind->content == Image && result.status == kBlocked) state.SkipWithError("an ordinary upload was blocked");
    benchmark::DoNotOptimize(result.status);
  }
  const double bytes = static_cast<double>(state.range(0)) * 1e-9;
  state.counters["ns_per_byte"] =
      benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

void RegisterUploadBenchmarks() {
  for (const UploadKind& kind : kKinds) {
    benchmark::RegisterBenchmark(kind.name, CheckUpload, &kind)->Arg(64 << 10)->Arg(1 << 20)->Arg(10 << 20);
  }
}

}  // namespace qiv::bench
