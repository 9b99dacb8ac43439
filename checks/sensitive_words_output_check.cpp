#include "checks/sensitive_words_output_check.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "checks/request_values.h"
#include "checks/response_charset.h"
#include "checks/sensitive_words_check.h"
#include "checks/value_edit.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::string_view kPlace = "Response";

bool IsJson(const ResponseText& response) { return FindNoCase(response.type, "json") != std::string_view::npos; }

/// How characters of the response's type are escaped, if any are.
RequestValue::Encoding EscapesOf(const ResponseText& response) {
  if (BeginsNoCase(response.type, "text/plain")) return RequestValue::kPlain;
  const bool json = IsJson(response);
  const bool escaped = response.text.find(json ? "\\u" : "&#") != response.text.npos;
  return !escaped ? RequestValue::kPlain : json ? RequestValue::kJson : RequestValue::kXml;
}

/// As a text of the response's type holds it.
std::string EscapedFor(const ResponseText& response, const CReplacement& replacement) {
  if (BeginsNoCase(response.type, "text/plain")) return replacement.Utf8();
  return IsJson(response) ? replacement.Json() : HtmlEscape(replacement.Utf8());
}

std::string ReplacementIn(const ResponseText& response, const CReplacement& replacement,
                          const ResponseEncodings& encodings, TextEncoding encoding) {
  constexpr std::string_view kStars = "***";  // in a charset in which the site's own text cannot be written
  const std::string escaped = EscapedFor(response, replacement);
  const bool writable = !encodings.only_ascii || CCharSet::IsAscii(escaped);
  return EncodeText(writable ? std::string_view(escaped) : kStars, encoding);
}

class CAnswerWalk {
 public:
  CAnswerWalk(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts),
        context_(context),
        response_(context.response),
        result_(result),
        encodings_(EncodingsOf(response_)),
        notes_(facts, context) {}

  void Run(unsigned uses) {
    uses_ = response_.may_change ? uses : uses & ~unsigned{kWordReplace};
    if (context_.exempt_blocks) uses_ &= ~unsigned{kWordBlock};
    for (const TextEncoding encoding : encodings_.encodings) {
      if (!Find(encoding)) break;
    }
    const bool blocked = result_.status == kBlocked;
    notes_.Write(blocked);
    if (blocked || edits_.empty() || context_.log_only) return;
    KeepApart(&edits_);
    DecidedEdits decided;
    decided.response = std::move(edits_);
    result_.request.edits = std::make_shared<const DecidedEdits>(std::move(decided));
  }

 private:
  /// False once the response is blocked.
  bool Find(TextEncoding encoding) {
    std::string_view text = response_.text;
    const bool wide = encoding >= TextEncoding::kWideLittle;
    const RequestValue::Encoding escapes = wide ? RequestValue::kPlain : EscapesOf(response_);
    const bool reads = escapes != RequestValue::kPlain;
    if (reads) text = reading_.Read({{}, text, escapes}, encoding);
    if ((uses_ & kWordReplace) != 0) {
      edits_.texts.push_back(ReplacementIn(response_, context_.config.words.new_word, encodings_, encoding));
    }
    std::size_t next = 0;  // behind the last piece that is replaced
    return context_.config.words.words.Find(text, encoding, uses_, [&](const WordHit& hit) {
      if (encodings_.only_ascii && !CCharSet::IsAscii(hit.word)) return true;
      if (!Take(hit)) return false;
      if ((hit.uses & kWordReplace) == 0 || hit.place.offset < next) return true;
      next = hit.place.offset + hit.place.length;
      Replace(reads ? reading_.Sent(hit.place) : hit.place, hit);
      return true;
    });
  }

  /// Records and blocks. False once the response is blocked.
  bool Take(const WordHit& hit) {
    const WordFinding finding{kPlace, {}, hit.word};
    if ((hit.uses & kWordRecord) != 0 && !std::exchange(recorded_, true)) {
      notes_.Add(MessageId::kWordsRecorded, finding);
    }
    if ((hit.uses & kWordBlock) == 0) return true;
    BlockWord(finding, facts_, context_, result_);
    result_.plain_block = 0;
    result_.request.attack = false;
    return false;
  }

  void Replace(const TextPlace& place, const WordHit& hit) {
    // What replacements may add to a page: as much again as is read of one.
    constexpr std::size_t kMostGrowth = kMostEditedBytes;
    const WordFinding finding{kPlace, {}, hit.word};
    if (edits_.empty()) notes_.Add(MessageId::kWordsReplaced, finding);
    const std::size_t size = edits_.texts.back().size();
    growth_ += size - std::min(size, place.length);
    const bool fits = growth_ <= kMostGrowth;
    if (!fits && !std::exchange(left_out_, true)) notes_.Add(MessageId::kWordsLeftOut, finding);
    edits_.Add(place, fits ? edits_.texts.size() - 1 : kLeftOut);
  }

  const RequestFacts& facts_;
  const CheckContext& context_;
  const ResponseText& response_;
  CheckResult& result_;
  const ResponseEncodings& encodings_;
  CWordNotes notes_;
  CValueReading reading_;
  static constexpr std::size_t kLeftOut = 0;
  TextEdits edits_{{}, {std::string()}};
  unsigned uses_ = 0;
  std::size_t growth_ = 0;
  bool recorded_ = false;
  bool left_out_ = false;
};

}  // namespace

unsigned OutputWordUses(const RequestFacts& facts, const WebsiteConfig& site) {
  const RequestSettings& request = site.request;
  const unsigned uses =
      WordUses(site, request.ill_block_webout != 0, request.ill_replace_webout != 0, request.ill_record_webout != 0);
  return WithoutWhiteUrls(uses, facts, site);
}

void SensitiveWordsOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  // A later piece does not say its charset.
  const ResponseText& response = context.response;
  if (response.text.empty() || response.part == ResponsePart::kLaterPiece) return;
  const unsigned uses = OutputWordUses(facts, context.config);
  if (uses != 0) CAnswerWalk(facts, context, result).Run(uses);
}

}  // namespace qiv
