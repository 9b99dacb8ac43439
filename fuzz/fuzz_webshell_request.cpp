// The search for webshells in requests over any bytes; the first line is the Content-Type, or "GET" for a query. Views
// inside the request, a bound on what is visited, the same judgement of code with and without its hints, and a decision
// with its texts or none.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "checks/request_values.h"
#include "checks/webshell_check.h"
#include "common/multipart.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/webshell/request_code.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/checks/lone_context.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

bool Inside(std::string_view part, std::string_view text) {
  return part.empty() || (part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size());
}

std::shared_ptr<const qiv::WebsiteConfig> Config() {
  auto config = std::make_shared<qiv::WebsiteConfig>();
  config->base.trojan = config->base.trojan_get = config->base.trojan_header = 1;
  config->base.trojan_post = true;
  config->base.trojan_strict_mode = 1;
  return config;
}

void JudgeText(std::string_view text) {
  qiv::WebshellResult result;
  const bool found = qiv::AnalyseFragment(text, &result) != qiv::FragmentStrength::kNone;
  Require(found == result.finding.has_value() && (!found || qiv::CodeHints(text) != 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::shared_ptr<const qiv::WebsiteConfig> config = Config();
  static const auto libs = std::make_shared<const qiv::CQivLibs>();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string_view type = text.substr(0, text.find('\n'));
  const std::string_view rest = text.substr(type.size());
  const bool query = type == "GET";

  static qiv::CLoneContext lone(*config, libs.get());
  qiv::RequestFacts facts;
  facts.raw_url = query ? "/a.php?" + std::string(rest) : "/a.php";
  facts.query = query ? qiv::NormalizeText(std::string(rest)) : "";
  facts.content_type = type;
  facts.raw_body = query ? std::string_view() : rest;
  facts.body = qiv::PercentDecode(std::string(facts.raw_body));
  facts.headers.push_back({25, "Cookie", std::string(rest.substr(0, 4096))});
  facts.headers.push_back({40, "User-Agent", std::string(rest.substr(0, 4096))});

  std::size_t bytes = 0;
  std::string_view whole;
  const qiv::ValueVisitor visit = [&](const qiv::RequestValue& value) {
    Require(Inside(value.raw, whole) && Inside(value.name, whole));
    bytes += value.raw.size();
    std::string room;
    const std::string_view decoded = value.Decoded(&room);
    JudgeText(decoded);
    const std::string plain = qiv::DecodeEncodedText(decoded, 1024);
    Require(plain.size() <= 1024);
    JudgeText(plain);
    return true;
  };
  whole = facts.raw_url;
  Require(qiv::ForEachQueryValue(facts, visit));
  whole = facts.raw_body;
  Require(qiv::ForEachBodyValue(facts.content_type, facts.raw_body, visit));
  Require(bytes <= (qiv::kMostPasses + 1) * (size + 1024));

  qiv::CheckResult result;
  qiv::WebshellCheck(facts, lone.Context(), result);
  const bool blocked = result.status == qiv::kBlocked;
  Require(blocked || result.status == qiv::kUndecided);
  Require(blocked != result.reason.empty() && blocked != result.item.empty() && blocked != result.detail.empty());
  return 0;
}
