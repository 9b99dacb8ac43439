// The webshell detectors over any bytes, as a file and as code that a file runs.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "engines/webshell/php/flow.h"
#include "engines/webshell/webshell_scan.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const qiv::CQivLibs libs("<trojan_wholeword>1</trojan_wholeword>", "own!mark{#}", "known good{#}");
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  qiv::WebshellResult result;
  const bool found = libs.WebshellScan(text, &result);
  Require(found == (result.finding.has_value() || !result.rule.empty()));
  Require(!found || !result.known_good);
  qiv::WebshellResult again;
  Require(libs.WebshellScan(text, &again) == found && again.finding == result.finding && again.rule == result.rule &&
          again.detail == result.detail && again.place.offset == result.place.offset);
  Require(result.view != qiv::TextView::kSent || result.place.offset + result.place.length <= text.size());
  qiv::FollowPhp(text, true);  // what stands in no page: the walk alone
  return 0;
}
