#include "checks/sensitive_words_check.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "checks/request_values.h"
#include "checks/value_edit.h"
#include "checks/value_forms.h"
#include "checks/value_judge.h"
#include "common/char_set.h"
#include "common/charset_label.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::size_t kLongestName = 100;
constexpr std::string_view kBodyPlace = "POST";

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

/// What server, proxies and clients tell each other: a word in it stands in no text.
bool IsOfProtocol(const HeaderEntry& header) {
  constexpr std::int32_t kTexts[] = {25, 31, 36, 40};  // Cookie, From, Referer, User-Agent
  constexpr std::string_view kNames[] = {"proxy-",  "sec-",   "origin",      "x-forwarded-", "x-real-ip",
                                         "x-http-", "x-arr-", "x-original-", "x-csrf",       "x-xsrf",
                                         "http2-",  "soap",   "client-ip",   "upgrade-",     "x-requested-with"};
  const auto begins = [&header](std::string_view name) { return BeginsNoCase(header.name, name); };
  return header.number == kUnknownHeader
             ? std::any_of(std::begin(kNames), std::end(kNames), begins)
             : std::find(std::begin(kTexts), std::end(kTexts), header.number) == std::end(kTexts);
}

/// Whether an application reads the body as text.
bool IsTextBody(const RequestFacts& facts) {
  if (BodyFormOf(facts.content_type, facts.raw_body) != BodyForm::kRaw) return true;
  return facts.method != "PUT" && (Trim(facts.content_type).empty() || BeginsNoCase(facts.content_type, "text/"));
}

/// Whether the value holds characters above 0x7F that are escaped as such.
bool HoldsEscapedCharacters(const RequestValue& value, std::string_view decoded) {
  if (value.encoding == RequestValue::kJson && value.raw.find("\\u") != value.raw.npos) return true;
  return decoded.find("&#") != decoded.npos || FindNoCase(value.raw, "%u") != value.raw.npos ||
         (value.encoding == RequestValue::kXml && value.raw.find("&#") != value.raw.npos);
}

class CWordWalk {
 public:
  CWordWalk(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts),
        context_(context),
        site_(context.config),
        words_(context.config.words.words),
        allowed_(WithoutWhiteUrls(words_.Uses(), facts, site_)),
        result_(result),
        notes_(facts, context) {}

  void Run() {
    Walk();
    notes_.Write(IsBlocked());
    if (IsBlocked() || context_.log_only || !edited_) return;
    result_.request.edits = std::make_shared<const DecidedEdits>(std::move(edits_));
  }

 private:
  /// Walks over the values of a text that may have been changed.
  using Values = std::function<void(std::string_view text, const ValueVisitor& visit)>;

  bool IsBlocked() const { return result_.status == kBlocked; }

  void Walk() {
    const RequestSettings& request = site_.request;
    if (Enter("GET", request.ill_block_get != 0, request.ill_replace_get != 0, request.ill_record_get != 0)) {
      WalkQuery();
    }
    if (!IsBlocked() && Enter(kBodyPlace, request.ill_block_post, request.ill_replace_post, request.ill_record_post)) {
      WalkBody();
    }
    if (!IsBlocked() && Enter("Header", request.ill_block_header != 0, request.ill_replace_header != 0,
                              request.ill_record_header != 0)) {
      WalkHeaders();
    }
  }

  bool Enter(std::string_view place, bool block, bool replace, bool record) {
    place_ = place;
    recorded_ = replaced_ = left_out_ = false;
    BeginText();
    uses_ = WordUses(site_, block, replace, record) & allowed_;
    if (context_.exempt_blocks) uses_ &= ~unsigned{kWordBlock};
    return uses_ != 0;
  }

  void BeginText() {
    evidence_ = {};
    replaces_ = {};
  }

  void WalkQuery() {
    constexpr std::size_t kLongestUrl =
        16383;  // that a server takes: its lengths are bytes of two-byte units in 16 bits
    const std::string_view url = facts_.raw_url;
    const std::size_t mark = url.find('?');
    if (mark != url.npos) {
      const std::string_view query = url.substr(mark + 1);
      ForEachQueryValue(query, judge_);
      edits_.query = Edited(query, kLongestUrl - std::min(mark + 1, kLongestUrl),
                            [](std::string_view text, const ValueVisitor& visit) { ForEachQueryValue(text, visit); });
    }
    if (site_.extended.path && !IsBlocked()) ForEachPathValue(facts_, judge_);
  }

  void WalkBody() {
    // What replacements may add to a body: more than anybody writes of such words.
    constexpr std::size_t kMostGrowth = 8 * 1024 * 1024;
    if (facts_.raw_body.empty()) return;
    ForEachReadBodyValue(facts_.content_type, facts_.raw_body, judge_);
    if (facts_.unpacked_body || !IsTextBody(facts_)) return;
    edits_.body = Edited(facts_.raw_body, facts_.raw_body.size() + kMostGrowth,
                         [this](std::string_view text, const ValueVisitor& visit) {
                           ForEachBodyValue(facts_.content_type, text, visit);
                         });
  }

  void WalkHeaders() {
    constexpr std::size_t kMostHeader = 65535;  // the server counts in 16 bits
    for (std::size_t i = 0; i < facts_.headers.size() && !IsBlocked(); ++i) {
      const HeaderEntry& header = facts_.headers[i];
      BeginText();
      ForEachValueOf(header, judge_);
      if (IsOfProtocol(header)) continue;
      auto edited = Edited(header.value, kMostHeader, [&header](std::string_view text, const ValueVisitor& visit) {
        ForEachValueOf(header.number, header.name, text, visit);
      });
      if (edited) edits_.headers.emplace_back(i, std::move(*edited));
    }
  }

  /// False once the request is blocked.
  bool Judge(const RequestValue& value) {
    bool first = true;
    ForEachForm(value, &room_, [&](const ValueForm& form) {
      if (std::exchange(first, false)) {
        JudgeFirst(value, form.text);
        return !IsBlocked() && (uses_ & (kWordBlock | kWordRecord)) != 0;
      }
      if (!JudgeText(value, form.text)) return false;
      return form.text.find("&#") == form.text.npos || JudgeText(value, DecodeHtmlEntities(form.text));
    });
    return !IsBlocked();
  }

  /// The value as it is read most often, which is the one that is edited.
  void JudgeFirst(const RequestValue& value, std::string_view text) {
    const unsigned uses = value.is_value ? uses_ : uses_ & ~unsigned{kWordReplace};
    const bool escaped = HoldsEscapedCharacters(value, text);
    EncodingEvidence evidence;
    if (escaped) text = reading_.Read(value, TextEncoding::kUtf8);
    evidence.Add(text);
    if (!escaped) evidence_ += evidence;
    if (!Find(value, text, TextEncoding::kUtf8, uses) || !evidence.MayBeLocal()) return;
    if (escaped) text = reading_.Read(value, TextEncoding::kLocal);
    Find(value, text, TextEncoding::kLocal, uses);
  }

  /// Another form of it, for blocks and records.
  bool JudgeText(const RequestValue& value, std::string_view text) {
    const unsigned uses = uses_ & ~unsigned{kWordReplace};
    EncodingEvidence evidence;
    evidence.Add(text);
    return Find(value, text, TextEncoding::kUtf8, uses) &&
           (!evidence.MayBeLocal() || Find(value, text, TextEncoding::kLocal, uses));
  }

  /// False once the request is blocked.
  bool Find(const RequestValue& value, std::string_view text, TextEncoding encoding, unsigned uses) {
    return words_.Find(text, encoding, uses, [&](const WordHit& hit) {
      if ((hit.uses & kWordRecord) != 0 && !std::exchange(recorded_, true)) {
        notes_.Add(MessageId::kWordsRecorded, FindingOf(value, hit));
      }
      if ((hit.uses & kWordBlock) != 0) {
        BlockWord(FindingOf(value, hit), facts_, context_, result_);
        return false;
      }
      if ((hit.uses & kWordReplace) != 0) replaces_[encoding == TextEncoding::kLocal] = true;
      return true;
    });
  }

  /// The text with its words replaced; nothing when none was. First those in UTF-8, then those in GBK.
  std::optional<std::string> Edited(std::string_view text, std::size_t most, const Values& values) {
    std::optional<std::string> edited;
    if (IsBlocked() || !(replaces_[0] || replaces_[1])) return edited;
    const TextEncoding charset = CharsetOfPlace();
    for (const TextEncoding encoding : {TextEncoding::kUtf8, TextEncoding::kLocal}) {
      if (!replaces_[encoding == TextEncoding::kLocal]) continue;
      const std::string_view before = edited ? std::string_view(*edited) : text;
      CTextWriter writer(before, std::max(most, before.size()));
      values(before, [&](const RequestValue& value) {
        EditValue(value, encoding, charset, &writer);
        return true;
      });
      if (!writer.HasChanged()) continue;
      edited = writer.Take();
    }
    edited_ = edited_ || edited.has_value();
    return edited;
  }

  void EditValue(const RequestValue& value, TextEncoding encoding, TextEncoding charset, CTextWriter* writer) {
    if (!value.is_value) return;
    const std::string_view text = reading_.Read(value, encoding);
    if (IsBinary(value, text)) return;
    if (encoding == TextEncoding::kLocal) {
      EncodingEvidence evidence;
      evidence.Add(text);
      if (!evidence.MayBeLocal()) return;
    }
    std::optional<std::string_view> replacement;
    const std::size_t begin = writer->OffsetOf(value.raw);
    CBase64Runs runs(text);
    std::size_t next = 0;  // behind the last hit
    words_.Find(text, encoding, kWordReplace, [&](const WordHit& hit) {
      if (hit.place.offset < next) return true;
      next = hit.place.offset + hit.place.length;
      if (runs.Hold(hit.place)) return true;
      const TextPlace sent = reading_.Sent(hit.place);
      if (!replacement) replacement = ReplacementIn(value, site_.words.new_word, charset);
      writer->Replace({begin + sent.offset, sent.length}, *replacement);
      if (!std::exchange(replaced_, true)) notes_.Add(MessageId::kWordsReplaced, FindingOf(value, hit));
      if (writer->HasLeftOut() && !std::exchange(left_out_, true)) {
        notes_.Add(MessageId::kWordsLeftOut, FindingOf(value, hit));
      }
      return true;
    });
  }

  /// In which the application reads the place: as its type says, else as its bytes look.
  TextEncoding CharsetOfPlace() const {
    const CharsetKind named =
        place_ == kBodyPlace ? KindOfCharset(CharsetName(facts_.content_type)) : CharsetKind::kNone;
    if (named == CharsetKind::kUtf8) return TextEncoding::kUtf8;
    const bool unknown = evidence_.high == 0;
    const bool local = unknown ? facts_.gbk_page : evidence_.IsMostlyLocal();
    return named == CharsetKind::kLocal || local ? TextEncoding::kLocal : TextEncoding::kUtf8;
  }

  WordFinding FindingOf(const RequestValue& value, const WordHit& hit) {
    name_ = value.LocalName();
    return {place_, name_, hit.word};
  }

  const RequestFacts& facts_;
  const CheckContext& context_;
  const WebsiteConfig& site_;
  const CSensitiveWords& words_;
  const unsigned allowed_;  // uses that no white URL takes away
  CheckResult& result_;
  CWordNotes notes_;
  const ValueVisitor judge_ = [this](const RequestValue& value) { return Judge(value); };
  DecidedEdits edits_;
  bool edited_ = false;
  ValueFormRoom room_;
  CValueReading reading_;
  // Of the place
  std::string_view place_;
  std::string name_;
  unsigned uses_ = 0;
  bool recorded_ = false;  // one event a place
  bool replaced_ = false;
  bool left_out_ = false;
  // Of the text: the place, or one of its headers
  EncodingEvidence evidence_;
  std::array<bool, 2> replaces_{};  // words that are replaced stand there, in UTF-8, in GBK
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
  BlockPlainly(kKindWords, CountedAs("feifa", context, result), facts, context, result);
  result.log = context.config.request.ill_block_log != 0 ? 1 : 0;
}

void CWordNotes::Add(MessageId reason, const WordFinding& finding) {
  Note note{reason, TextsOf(reason, finding, context_.config.language)};
  note.texts.check = context_.phase != kPhaseBegin ? "words_output" : "words";
  HideSecrets(&note.texts);
  notes_.push_back(std::move(note));
}

void CWordNotes::Write(bool blocked) {
  for (const auto& [reason, texts] : notes_) {
    const bool recorded = reason == MessageId::kWordsRecorded;
    const bool replaced = reason == MessageId::kWordsReplaced;
    if (blocked && !recorded) continue;
    if (!replaced || context_.config.request.ill_replace_log != 0)
      context_.recorder.RecordNote(facts_, context_, texts);
    if (!recorded && !replaced) continue;
    context_.recorder.RecordStatistics(replaced ? "feifa_replace" : "feifa_record", facts_.client_ip, "-");
  }
  notes_.clear();
}

void SensitiveWordsCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  if (context.config.words.words.Uses() != 0) CWordWalk(facts, context, result).Run();
}

}  // namespace qiv
