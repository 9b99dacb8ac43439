#include "checks/webshell_finding.h"

#include <cstddef>
#include <string>

#include "common/char_set.h"
#include "common/secrets.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

// Names and matched texts come from the client: what a line of the log needs of them, in bytes.
constexpr std::size_t kLongestName = 100;
constexpr std::size_t kLongestDetail = 300;
constexpr std::size_t kLongestExcerpt = 200;

std::string NameOf(const WebshellResult& found, Language language) {
  if (found.finding) return std::string(Message(language, *found.finding));
  const bool chinese = language == Language::kChinese && !found.rule_name.chinese.empty();
  const std::string& name = chinese ? found.rule_name.chinese : found.rule_name.english;
  return name.empty() ? std::string(Message(language, MessageId::kUserSignature)) : name;
}

}  // namespace

WebshellWords WordsOf(const WebshellResult& found, Language language) {
  constexpr std::string_view kFullWidthColon = "\xA3\xBA";
  WebshellWords words{NameOf(found, language), {}, found.detail};
  if (found.category) words.category = Message(language, *found.category);
  if (found.label) {
    words.detail = Message(language, *found.label);
    AppendAll(&words.detail, {language == Language::kChinese ? kFullWidthColon : ": ", found.detail});
  }
  return words;
}

std::string WebshellExcerpt(const WebshellResult& found, std::string_view text) {
  std::string_view excerpt = found.In(text);
  if (excerpt.size() > kLongestExcerpt) {
    excerpt = excerpt.substr(0, kLongestExcerpt);
    // Behind a byte that is a character by itself, whatever the encoding.
    while (!excerpt.empty() && static_cast<unsigned char>(excerpt.back()) >= 0x80) excerpt.remove_suffix(1);
  }
  return CCharSet::ToLocal(std::string(excerpt));
}

void BlockWebshell(const WebshellPlace& place, const WebshellResult& found, const RequestFacts& facts,
                   const CheckContext& context, CheckResult& result) {
  const auto text = [&context](MessageId id) { return Message(context.config.language, id); };
  const WebshellWords words = WordsOf(found, context.config.language);
  const std::string_view open = text(MessageId::kOpenBracket);
  const std::string_view close = text(MessageId::kCloseBracket);
  const std::string_view comma = text(MessageId::kComma);
  const std::string_view colon = text(MessageId::kColon);

  result.item = text(place.item);
  AppendAll(&result.item, {open, place.place, close});
  result.category = text(MessageId::kWebshellCategory);
  result.reason = text(MessageId::kWebshellReason);
  result.detail = result.reason;
  AppendAll(&result.reason, {open, place.place, close, comma, text(MessageId::kType), colon, words.name});

  AppendAll(&result.detail, {open, place.place});
  if (!place.name.empty()) AppendAll(&result.detail, {"[", CCharSet::Prefix(place.name, kLongestName), "]"});
  AppendAll(&result.detail, {close, comma, text(MessageId::kType), colon, words.name});
  if (!words.category.empty()) AppendAll(&result.detail, {open, words.category, close});
  if (!words.detail.empty()) {
    const std::string matched = IsSecretName(place.name) ? std::string(kHiddenSecret) : CCharSet::ToLocal(words.detail);
    AppendAll(&result.detail, {comma, text(MessageId::kKeywords), colon, CCharSet::Prefix(matched, kLongestDetail)});
  }

  if (!place.excerpt.empty() && !IsSecretName(place.name))
    AppendAll(&result.detail, {comma, text(MessageId::kConnective), colon, WithoutSecrets(place.excerpt)});

  result.rule = found.rule;
  // The lists leave only the first phase countable.
  BlockPlainly(kKindWebshell, result.request.statistics || context.phase == kPhasePostExecute ? place.statistics : "",
               facts, context, result);
}

void RecordPartialScan(const WebshellPlace& place, const char* check, const RequestFacts& facts,
                       const CheckContext& context) {
  const auto text = [&context](MessageId id) { return Message(context.config.language, id); };
  CheckResult note;
  note.check = check;
  note.item = text(place.item);
  AppendAll(&note.item, {text(MessageId::kOpenBracket), place.place, text(MessageId::kCloseBracket)});
  note.category = text(MessageId::kWebshellCategory);
  note.reason = note.detail = text(MessageId::kWebshellPartial);
  context.recorder.RecordNote(facts, context, note);
}

}  // namespace qiv
