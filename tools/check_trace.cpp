#include "tools/check_trace.h"

#include <memory>
#include <string_view>

#include "checks/access_block.h"
#include "checks/check_state.h"
#include "common/char_set.h"
#include "common/secrets.h"
#include "common/text.h"
#include "port/clock.h"
#include "tools/printable.h"

namespace qiv {
namespace {

constexpr std::size_t kShown = 120;  // bytes of a part; the whole of it stands in the request

const char* VerdictName(CheckVerdict verdict) {
  switch (verdict) {
    case CheckVerdict::kPass:
      return "pass";
    case CheckVerdict::kAllow:
      return "allowed";
    case CheckVerdict::kBlock:
      return "blocked";
    case CheckVerdict::kWouldBlock:
      return "would block";
    case CheckVerdict::kExempt:
      return "exempt";
  }
  return "";
}

/// A text of the request, which may be in any encoding.
std::string Shown(std::string_view text) {
  const std::string plain = WithoutSecrets(text);
  const std::string utf8 = CCharSet::IsValidUtf8(plain) ? plain : CCharSet::LocalToUtf8(plain);
  if (utf8.size() <= kShown) return PrintableUtf8(utf8);
  std::size_t end = kShown;
  while ((static_cast<unsigned char>(utf8[end]) & 0xC0U) == 0x80U) --end;
  return PrintableUtf8(utf8.substr(0, end)) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string Bytes(std::size_t size) { return std::to_string(size) + " bytes"; }

std::string Readings(const RequestFacts& facts) {
  std::string text;
  for (const std::string& reading : RequestPaths(facts)) AppendAll(&text, {text.empty() ? "" : ", ", Shown(reading)});
  return text;
}

std::string Now(const CheckContext& context) {
  const CalendarTime now = LocalTime(context.state.clock());
  const auto digits = [](int number) { return std::string(number < 10 ? "0" : "") + std::to_string(number); };
  return digits(now.hour) + ":" + digits(now.minute);
}

std::vector<CCheckTrace::Part> LookedAt(std::uint32_t parts, const RequestFacts& facts, const CheckContext& context) {
  std::vector<CCheckTrace::Part> texts;
  const auto add = [&](RequestPart part, const char* name, const auto& text) {
    if ((parts & part) != 0) texts.emplace_back(name, text());
  };
  add(kPartClient, "client", [&] { return facts.client_ip; });
  add(kPartForwarded, "forwarded", [&] {
    return facts.forwarded_for_as_sent.empty() ? std::string(facts.proxy_seen ? "by a proxy" : "no")
                                               : Shown(facts.forwarded_for_as_sent);
  });
  add(kPartMethod, "method", [&] { return Shown(facts.method); });
  add(kPartUrl, "URL", [&] { return Shown(facts.raw_url); });
  add(kPartPath, "path", [&] { return Readings(facts); });
  add(kPartQuery, "query", [&] { return Bytes(facts.query.size()); });
  add(kPartAgent, "user agent", [&] { return Shown(facts.user_agent); });
  add(kPartReferer, "referer", [&] { return Shown(facts.referer); });
  add(kPartCookie, "cookie", [&] { return Bytes(facts.cookie.size()); });
  add(kPartHeaders, "headers", [&] { return Bytes(facts.header_bytes); });
  add(kPartBody, "body", [&] { return Bytes(facts.raw_body.size()); });
  add(kPartTime, "time", [&] { return Now(context); });
  add(kPartResponse, "response", [&] { return Bytes(context.response.text.size()); });
  return texts;
}

}  // namespace

void CCheckTrace::OnCheck(const CheckRow& row, CheckVerdict verdict, const RequestFacts& facts,
                          const CheckContext& context) {
  const auto found = asked_.find(row.name);
  if (found != asked_.end() && verdict == CheckVerdict::kPass) return;
  const std::uint32_t parts = row.reads == nullptr ? 0U : row.reads(context.config);
  asked_[row.name] = {verdict, LookedAt(parts, facts, context)};
}

const char* CCheckTrace::VerdictOf(const CheckRow& row, const WebsiteConfig& config) const {
  if (!row.IsOn(config)) return "off";
  const auto found = asked_.find(row.name);
  return found == asked_.end() ? "not asked" : VerdictName(found->second.verdict);
}

const std::vector<CCheckTrace::Part>& CCheckTrace::PartsOf(const CheckRow& row) const {
  static const std::vector<Part> kNothing;
  const auto found = asked_.find(row.name);
  return found == asked_.end() ? kNothing : found->second.parts;
}

std::string CCheckTrace::Text(const WebsiteConfig& config) const {
  constexpr std::size_t kNameWidth = 18;
  constexpr std::size_t kVerdictWidth = 12;
  std::string text;
  for (const CheckRow& row : CheckTable()) {
    std::string line = "    " + std::string(row.name);
    line.resize(4 + kNameWidth, ' ');
    std::string verdict = VerdictOf(row, config);
    std::string looked_at;
    for (const auto& [name, part] : PartsOf(row)) {
      AppendAll(&looked_at, {looked_at.empty() ? "" : "; ", name, " ", part.empty() ? "none" : part});
    }
    if (!looked_at.empty()) verdict.resize(kVerdictWidth, ' ');
    AppendAll(&text, {line, verdict, looked_at, "\n"});
  }
  return text;
}

std::unique_ptr<JsonArray> CCheckTrace::Json(const WebsiteConfig& config) const {
  auto checks = std::make_unique<JsonArray>();
  for (const CheckRow& row : CheckTable()) {
    auto check = std::make_unique<JsonObject>();
    check->SetText("check", row.name);
    check->SetText("verdict", VerdictOf(row, config));
    auto parts = std::make_unique<JsonObject>();
    for (const auto& [name, part] : PartsOf(row)) parts->SetText(name, part);
    check->Set("looked_at", std::move(parts));
    checks->Append(std::move(check));
  }
  return checks;
}

}  // namespace qiv
