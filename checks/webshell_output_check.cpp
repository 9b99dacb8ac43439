#include "checks/webshell_output_check.h"

#include <string>

#include "checks/file_content.h"
#include "checks/webshell_finding.h"
#include "config/website_config.h"
#include "engines/webshell/webshell_output.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

// The detectors of files take up to a microsecond a byte, and a site may show source on purpose, on every request.
constexpr std::size_t kScannedSource = 64 * 1024;

}  // namespace

void WebshellOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const WebsiteConfig& site = context.config;
  const std::string_view text = context.response.text;
  if (site.base.trojan == 0 || site.base.trojan_webout == 0 || !context.webshells || !context.response.page ||
      text.empty() || context.response.part == ResponsePart::kLaterPiece) {
    return;
  }

  WebshellPlace place;
  place.place = "Response";
  place.statistics = kWebshellOutputStatistics;
  WebshellResult found;
  if (IsWebshellOutput(text, &found)) {
    BlockWebshell(place, found, facts, context, result);
    return;
  }
  if (FindScript(text) == std::string_view::npos) return;
  const bool strict = site.base.trojan_strict_mode != 0;
  if (context.webshells->WebshellScan(text.substr(0, kScannedSource), &found) && (strict || !found.suspicious)) {
    place.name = Message(site.language, MessageId::kScriptSource);
    const std::string excerpt = WebshellExcerpt(found, text);
    place.excerpt = excerpt;
    BlockWebshell(place, found, facts, context, result);
  }
}

}  // namespace qiv
