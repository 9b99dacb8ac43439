#include "checks/injection_texts.h"

#include "common/char_set.h"
#include "common/messages.h"
#include "common/secrets.h"
#include "engines/injection/word_list.h"

namespace qiv {
namespace {

constexpr std::size_t kDetailValue = 800;  // bytes of a value that a detail line shows
constexpr std::string_view kCut = "...";

// Identifiers of what is found by form, one for each SqlExpressionKind; rules of the libraries have others.
constexpr int kFirstExpression = 13001;
constexpr std::size_t kShownExpression = 80;  // bytes of it that are the keyword

/// The value as a detail line shows it: whole when short, else from `begin` on, moved back to where a character begins.
std::string DetailValue(std::string_view value, std::size_t begin) {
  std::string detail;
  std::string_view tail = value;
  if (value.size() > kDetailValue) {
    tail.remove_prefix(CCharSet::Prefix(value, begin).size());
    if (tail.size() < value.size()) detail = kCut;
  }
  const std::string_view kept = CCharSet::Prefix(tail, kDetailValue);
  detail += WithHiddenSecrets(kept);
  if (kept.size() < tail.size()) detail += kCut;
  return detail;
}

}  // namespace

TextPlace ExcerptPlace(const InjectionRule& rule, TextPlace found, const JudgedText& text) {
  if (rule.words.empty() || rule.words.front().empty()) return {};
  const std::string& word = rule.words.front();
  const std::size_t first = FindWord(text, word);
  return first == std::string_view::npos ? found : TextPlace{first, word.size()};
}

InjectionRule MatchRecord(const SqlFinding& finding, const JudgedText& text, const CShownText& shown,
                          Language language) {
  if (finding.id == SqlFindingId::kNone) return {};
  if (finding.id == SqlFindingId::kFormatMismatch) {
    return {"", "", std::string(Message(language, MessageId::kFormatMismatch)), "0", {""}};
  }
  InjectionRule record;
  if (finding.id == SqlFindingId::kExpression) {
    record.shown = CCharSet::Prefix(shown.At(finding.word), kShownExpression);
    record.identifier = std::to_string(kFirstExpression + static_cast<int>(finding.kind));
  } else {
    record = *finding.rule;
  }
  if (!finding.is_parameter) return record;
  const TextPlace found = {finding.word.offset - finding.value.offset, finding.word.length};
  const TextPlace word = ExcerptPlace(record, found, text.Part(finding.value));
  record.remark = Message(language, MessageId::kDetail);
  AppendAll(&record.remark, {Message(language, MessageId::kColon), shown.At(finding.name), "=",
                             DetailValue(finding.value.In(shown.View()), word.offset)});
  return record;
}

std::string_view XssTypeName(XssType type, Language language) {
  switch (type) {
    case XssType::kHtmlEvent:
      return Message(language, MessageId::kXssHtmlEvent);
    case XssType::kScriptTag:
      return Message(language, MessageId::kXssScriptTag);
    case XssType::kScriptLoading:
      return Message(language, MessageId::kXssScriptLoading);
    case XssType::kScriptCode:
      return Message(language, MessageId::kXssScriptCode);
    case XssType::kNone:
      break;
  }
  return {};
}

std::string XssFragment(XssType type, TextPlace fragment, const CShownText& shown) {
  return type == XssType::kScriptTag ? std::string(XssDetector::kScriptFragment) : shown.At(fragment);
}

}  // namespace qiv
