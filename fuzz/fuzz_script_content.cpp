// Taking server code out of any bytes: it does not depend on how they come in, never grows without bound, and nothing
// comes of a text that holds no code.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "engines/webshell/script_content.h"
#include "engines/webshell/webshell_scan.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string Extract(qiv::CodeFamily family, bool every_mark, std::string_view text, std::size_t piece) {
  std::string joined;
  qiv::CServerCode code(family, every_mark, [&](std::string_view part) {
    Require(!part.empty() && part.size() <= qiv::CQivLibs::kLongestText);
    joined += part;
    return true;
  });
  for (std::size_t at = 0; at < text.size(); at += piece) code.Add(text.substr(at, piece));
  code.End();
  return joined;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const bool holds_code = qiv::HoldsServerCode(text);
  for (const qiv::CodeFamily family : {qiv::CodeFamily::kPhp, qiv::CodeFamily::kPhpShort, qiv::CodeFamily::kAsp}) {
    for (const bool every_mark : {false, true}) {
      const std::string whole = Extract(family, every_mark, text, size + 1);
      Require(whole == Extract(family, every_mark, text, 601));
      Require(whole.size() <= 8 * size);
      Require(every_mark || holds_code || whole.empty());
    }
  }
  return 0;
}
