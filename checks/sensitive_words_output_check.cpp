#include "checks/sensitive_words_output_check.h"

#include <memory>
#include <string>
#include <utility>

#include "checks/response_charset.h"
#include "checks/sensitive_words_check.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::string_view kPlace = "Response";

/// As a text of the response's type holds it. Of bytes below 0x80 alone, which stand for themselves in each encoding
/// but the wide ones, where the escapes are ASCII before they are encoded.
std::string EscapedFor(const ResponseText& response, std::string_view utf8) {
  if (BeginsNoCase(response.type, "text/plain")) return std::string(utf8);
  if (FindNoCase(response.type, "json") == std::string_view::npos) return HtmlEscape(utf8);
  std::string escaped;
  for (const char c : utf8) {
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string ReplacementIn(const ResponseText& response, const PreparedWords& words, const ResponseEncodings& encodings,
                          TextEncoding encoding) {
  constexpr std::string_view kStars = "***";  // in a charset in which the site's own text cannot be written
  const bool writable = !encodings.only_ascii || CCharSet::IsAscii(words.new_word_utf8);
  return EncodeText(EscapedFor(response, writable ? std::string_view(words.new_word_utf8) : kStars), encoding);
}

}  // namespace

void SensitiveWordsOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const RequestSettings& request = context.config.request;
  const PreparedWords& words = context.config.words;
  const ResponseText& response = context.response;
  unsigned uses = WordUses(context.config, request.ill_block_webout != 0, request.ill_replace_webout != 0,
                           request.ill_record_webout != 0);
  // A later piece does not say its charset.
  if (response.text.empty() || response.part == ResponsePart::kLaterPiece || uses == 0) return;
  uses = WithoutWhiteUrls(uses, facts, context.config);
  if (!response.may_change) uses &= ~unsigned{kWordReplace};

  TextEdits edits;
  bool recorded = false;
  bool goes_on = true;
  const ResponseEncodings encodings = EncodingsOf(response);
  for (const TextEncoding encoding : encodings.encodings) {
    std::string replacement;
    if ((uses & kWordReplace) != 0) replacement = ReplacementIn(response, words, encodings, encoding);
    goes_on = goes_on && words.words.Find(response.text, encoding, uses, [&](const WordHit& hit) {
      if (encodings.only_ascii && !CCharSet::IsAscii(hit.word)) return true;
      const WordFinding finding{kPlace, {}, hit.word};
      if ((hit.uses & kWordRecord) != 0 && !std::exchange(recorded, true)) {
        NoteWord(MessageId::kWordsRecorded, finding, facts, context);
      }
      if ((hit.uses & kWordBlock) != 0) {
        BlockWord(finding, facts, context, result);
        result.plain_block = 0;
        result.request.attack = false;
        return false;
      }
      if ((hit.uses & kWordReplace) == 0) return true;
      if (edits.empty()) NoteWord(MessageId::kWordsReplaced, finding, facts, context);
      edits.push_back({hit.place, replacement});
      return true;
    });
  }
  if (!goes_on || edits.empty() || context.log_only) return;
  KeepApart(&edits);
  DecidedEdits decided;
  decided.response = std::move(edits);
  result.request.edits = std::make_shared<const DecidedEdits>(std::move(decided));
}

}  // namespace qiv
