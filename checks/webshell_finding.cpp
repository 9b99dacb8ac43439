#include "checks/webshell_finding.h"

#include <cstddef>
#include <initializer_list>
#include <string>

#include "checks/event_recorder.h"
#include "common/char_set.h"
#include "config/website_config.h"

namespace qiv {
namespace {

// Names and matched texts come from the client: what a line of the log needs of them, in bytes.
constexpr std::size_t kLongestName = 100;
constexpr std::size_t kLongestDetail = 300;

void Append(std::string* text, std::initializer_list<std::string_view> pieces) {
  for (const std::string_view piece : pieces) *text += piece;
}

}  // namespace

void BlockWebshell(const WebshellPlace& place, const WebshellResult& found, RequestFacts& facts, CheckResult& result) {
  const auto text = [&facts](MessageId id) { return Message(facts.config->language, id); };
  const std::string_view open = text(MessageId::kOpenBracket);
  const std::string_view close = text(MessageId::kCloseBracket);
  const std::string_view comma = text(MessageId::kComma);
  const std::string_view colon = text(MessageId::kColon);

  result.item = text(place.item);
  Append(&result.item, {open, place.place, close});
  result.category = text(MessageId::kWebshellCategory);
  result.reason = text(MessageId::kWebshellReason);
  result.detail = result.reason;
  Append(&result.reason, {open, place.place, close, comma, text(MessageId::kType), colon, found.name});

  Append(&result.detail, {open, place.place});
  if (!place.name.empty()) Append(&result.detail, {"[", CCharSet::Prefix(place.name, kLongestName), "]"});
  Append(&result.detail, {close, comma, text(MessageId::kType), colon, found.name});
  if (!found.category.empty()) Append(&result.detail, {open, found.category, close});
  if (!found.detail.empty()) {
    Append(&result.detail, {comma, text(MessageId::kKeywords), colon, CCharSet::Prefix(found.detail, kLongestDetail)});
  }

  result.rule = found.rule;
  result.kind = kKindWebshell;
  result.plain_block = 1;
  result.log = 1;
  result.notify = 1;
  result.status = kBlocked;
  facts.attack = true;
  // The lists leave only the first phase countable.
  if (facts.statistics || facts.phase == kPhasePostExecute) {
    EventRecorder().RecordStatistics(place.statistics, facts.client_ip,
                                     found.rule.empty() ? std::string_view("-") : std::string_view(found.rule));
  }
}

}  // namespace qiv
