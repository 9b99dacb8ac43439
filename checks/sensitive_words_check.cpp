#include "checks/sensitive_words_check.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "checks/request_values.h"
#include "checks/value_edit.h"
#include "checks/value_forms.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::size_t kLongestName = 100;

CheckResult TextsOf(MessageId reason, const WordFinding& finding, Language language) {
  const std::string_view open = Message(language, MessageId::kOpenBracket);
  const std::string_view close = Message(language, MessageId::kCloseBracket);
  CheckResult texts;
  texts.category = Message(language, MessageId::kWordsCategory);
  texts.item = Message(language, MessageId::kWordsItem);
  AppendAll(&texts.item, {open, finding.place, close});
  texts.reason = Message(language, reason);
  AppendAll(&texts.reason, {open, finding.place});
  texts.detail = texts.reason;
  texts.reason += close;
  if (!finding.name.empty()) AppendAll(&texts.detail, {"[", CCharSet::Prefix(finding.name, kLongestName), "]"});
  AppendAll(&texts.detail, {close, Message(language, MessageId::kComma), Message(language, MessageId::kKeywords),
                            Message(language, MessageId::kColon), finding.word});
  return texts;
}

/// Looks for words in the encodings that the text may be in.
bool FindWords(const CSensitiveWords& words, std::string_view text, unsigned uses,
               const std::function<bool(const WordHit&, TextEncoding)>& visit) {
  const EncodingGuess guess = GuessEncoding(text);
  const auto find = [&](bool wanted, TextEncoding encoding) {
    return !wanted || words.Find(text, encoding, uses, [&](const WordHit& hit) { return visit(hit, encoding); });
  };
  return find(guess.utf8, TextEncoding::kUtf8) && find(guess.local, TextEncoding::kLocal);
}

class CWordWalk {
 public:
  CWordWalk(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts), context_(context), site_(context.config), words_(context.config.words), result_(result) {}

  void Run() {
    const RequestSettings& request = site_.request;
    if (Enter("GET", request.ill_block_get != 0, request.ill_replace_get != 0, request.ill_record_get != 0)) {
      ForEachQueryValue(facts_, judge_);
      if (replaces_) ForEachQueryValue(facts_, Editor(facts_.raw_url, &edits_.url));
      if (site_.extended.path && !IsBlocked()) ForEachPathValue(facts_, judge_);
      if (IsBlocked()) return;
    }
    if (Enter("POST", request.ill_block_post, request.ill_replace_post, request.ill_record_post)) {
      WalkBody();
      if (IsBlocked()) return;
    }
    if (Enter("Header", request.ill_block_header != 0, request.ill_replace_header != 0,
              request.ill_record_header != 0)) {
      WalkHeaders();
      if (IsBlocked()) return;
    }
    if (edits_.url.empty() && edits_.body.empty() && edits_.headers.empty()) return;
    result_.request.edits = std::make_shared<const DecidedEdits>(std::move(edits_));
  }

 private:
  bool IsBlocked() const { return result_.status == kBlocked; }

  bool Enter(std::string_view place, bool block, bool replace, bool record) {
    place_ = place;
    replaces_ = recorded_ = noted_ = false;
    uses_ = WithoutWhiteUrls(WordUses(site_, block, replace, record), facts_, site_);
    return uses_ != 0;
  }

  void WalkBody() {
    if (facts_.raw_body.empty()) return;
    ForEachReadBodyValue(facts_.content_type, facts_.raw_body, judge_);
    if (!replaces_ || IsBlocked() || facts_.unpacked_body) return;
    ForEachBodyValue(facts_.content_type, facts_.raw_body, Editor(facts_.raw_body, &edits_.body));
  }

  void WalkHeaders() {
    for (std::size_t i = 0; i < facts_.headers.size() && !IsBlocked(); ++i) {
      const HeaderEntry& header = facts_.headers[i];
      replaces_ = false;
      ForEachValueOf(header, judge_);
      if (!replaces_ || IsBlocked()) continue;
      TextEdits edits;
      ForEachValueOf(header, Editor(header.value, &edits));
      if (!edits.empty()) edits_.headers.emplace_back(i, std::move(edits));
    }
  }

  /// False once the request is blocked.
  bool Judge(const RequestValue& value) {
    return ForEachForm(value, &room_, [&](const ValueForm& form) {
      if (!JudgeText(value, form.text)) return false;
      return form.text.find("&#") == std::string_view::npos || JudgeText(value, DecodeHtmlEntities(form.text));
    });
  }

  bool JudgeText(const RequestValue& value, std::string_view text) {
    return FindWords(words_.words, text, uses_, [&](const WordHit& hit, TextEncoding) {
      if ((hit.uses & kWordRecord) != 0 && !std::exchange(recorded_, true)) {
        NoteWord(MessageId::kWordsRecorded, FindingOf(value, hit), facts_, context_);
      }
      if ((hit.uses & kWordBlock) != 0) {
        BlockWord(FindingOf(value, hit), facts_, context_, result_);
        return false;
      }
      replaces_ = replaces_ || (hit.uses & kWordReplace) != 0;
      return true;
    });
  }

  /// Replaces what stands in the values. Where checks only log, it is noted alone.
  ValueVisitor Editor(std::string_view text, TextEdits* edits) {
    return [this, text, edits](const RequestValue& value) {
      TextEdits of_value;
      const auto find = [&](std::string_view decoded, TextEdits* found) {
        FindWords(words_.words, decoded, kWordReplace, [&](const WordHit& hit, TextEncoding encoding) {
          if (!std::exchange(noted_, true)) {
            NoteWord(MessageId::kWordsReplaced, FindingOf(value, hit), facts_, context_);
          }
          found->push_back({hit.place, words_.Replacement(encoding)});
          return true;
        });
        KeepApart(found);
      };
      EditValue(value, text, find, context_.log_only ? &of_value : edits);
      return true;
    };
  }

  WordFinding FindingOf(const RequestValue& value, const WordHit& hit) {
    std::string room;
    name_ = CCharSet::ToLocal(std::string(RequestValue{{}, value.name, value.encoding}.Decoded(&room)));
    return {place_, name_, hit.word};
  }

  const RequestFacts& facts_;
  const CheckContext& context_;
  const WebsiteConfig& site_;
  const PreparedWords& words_;
  CheckResult& result_;
  const ValueVisitor judge_ = [this](const RequestValue& value) { return Judge(value); };
  DecidedEdits edits_;
  ValueFormRoom room_;
  std::string_view place_;
  std::string name_;
  unsigned uses_ = 0;
  bool replaces_ = false;  // a word that is replaced stands in this place
  bool recorded_ = false;  // one event a place
  bool noted_ = false;
};

}  // namespace

unsigned WordUses(const WebsiteConfig& site, bool block, bool replace, bool record) {
  const unsigned here = (block ? unsigned{kWordBlock} : 0U) | (replace ? unsigned{kWordReplace} : 0U) |
                        (record ? unsigned{kWordRecord} : 0U);
  return here & site.words.words.Uses();
}

unsigned WithoutWhiteUrls(unsigned uses, const RequestFacts& facts, const WebsiteConfig& site) {
  const auto is_white = [&facts](const CUrlExemptions& urls) {
    return !urls.Empty() && urls.Matches(facts.raw_url, facts.path);
  };
  if ((uses & kWordBlock) != 0 && is_white(site.words.block_white_urls)) uses &= ~unsigned{kWordBlock};
  if ((uses & kWordReplace) != 0 && is_white(site.words.replace_white_urls)) uses &= ~unsigned{kWordReplace};
  return uses;
}

void BlockWord(const WordFinding& finding, const RequestFacts& facts, const CheckContext& context,
               CheckResult& result) {
  const CheckResult texts = TextsOf(MessageId::kWordsDenied, finding, context.config.language);
  result.category = texts.category;
  result.item = texts.item;
  result.reason = texts.reason;
  result.detail = texts.detail;
  // The lists leave only the first phase countable.
  const bool counted = result.request.statistics || context.phase == kPhasePostExecute;
  BlockPlainly(kKindWords, counted ? "feifa" : "", facts, context, result);
  result.log = context.config.request.ill_block_log != 0 ? 1 : 0;
}

void NoteWord(MessageId reason, const WordFinding& finding, const RequestFacts& facts, const CheckContext& context) {
  CheckResult note = TextsOf(reason, finding, context.config.language);
  note.check = context.phase == kPhasePostExecute ? "words_output" : "words";
  HideSecrets(&note);
  const bool replaced = reason == MessageId::kWordsReplaced;
  if (!replaced || context.config.request.ill_replace_log != 0) context.recorder.RecordNote(facts, context, note);
  context.recorder.RecordStatistics(replaced ? "feifa_replace" : "feifa_record", facts.client_ip, "-");
}

void SensitiveWordsCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  if (context.config.words.words.Uses() != 0) CWordWalk(facts, context, result).Run();
}

}  // namespace qiv
