// The three places in turn (query, body, headers), in each place SQL injection first, then XSS; the first hit decides.
//
// Texts are handed to the engines lower-cased byte by byte (judged_text.h), without a copy where they are lower-case
// already: the engines and the loaded rules compare bytes. The engines answer with ids and places; what is shown of a
// place is cut from the text as it was sent (shown_text.h), which is made on a hit only.
#include "checks/injection_check.h"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "checks/body_charset.h"
#include "checks/injection_texts.h"
#include "checks/request_values.h"
#include "checks/shown_text.h"
#include "checks/value_judge.h"
#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/injection/sql_injection_detector.h"
#include "engines/injection/word_list.h"
#include "engines/injection/xss_detector.h"

namespace qiv {
namespace {

enum class Place { kGet, kPath, kPost, kHeader };

/// Where a hit's texts and switches differ.
struct PlaceTraits {
  Place place;
  std::string_view name;         // in texts, the same in both languages
  const char* keyword_category;  // statistics category of a keyword-rule hit
  std::int32_t InjectionSettings::*strict;
};
constexpr PlaceTraits kGet{Place::kGet, "GET", "sql_get", &InjectionSettings::get_mode};
constexpr PlaceTraits kPath{Place::kPath, "Path", "sql_get", &InjectionSettings::get_mode};
constexpr PlaceTraits kPost{Place::kPost, "POST", "sql_post", &InjectionSettings::post_mode};
constexpr PlaceTraits kHeader{Place::kHeader, "Header", "sql_header", &InjectionSettings::header_mode};

constexpr const char* kCharsetIdentifier = "13007";  // behind those of what is found by form

/// A text in lower case: the original where it is lower-case already, else a copy.
class CLowered {
 public:
  explicit CLowered(std::string_view text) : view_(text), text_(text) {
    if (std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) {
      copy_ = CCharSet::LowerBytes(text);
      view_ = copy_;
    }
  }
  CLowered(const CLowered&) = delete;
  CLowered& operator=(const CLowered&) = delete;
  JudgedText Judged() const { return {view_, text_}; }

 private:
  std::string copy_;
  std::string_view view_;
  std::string_view text_;
};

/// What an engine found.
struct Hit {
  SqlFinding sql;                          // of the SQL detector
  const InjectionRule* keyword = nullptr;  // or of the keyword rules
  XssType xss = XssType::kNone;            // or of the XSS detector
  TextPlace fragment;                      // where the latter found it
  const HeaderEntry* header = nullptr;     // the header that a detector hit in
  std::string value;                       // the value that was judged by itself, as "name=value"
  std::size_t name_length = 0;

  bool IsSemantic() const { return sql.id != SqlFindingId::kNone; }
  bool IsXss() const { return xss != XssType::kNone; }
};

/// The same in words.
struct HitTexts {
  InjectionRule match;   // the match record
  std::string excerpt;   // of a body
  std::string xss_type;  // name of the kind of attack
};

class CInjectionRun {
 public:
  CInjectionRun(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts),
        context_(context),
        result_(result),
        site_(context.config),
        sql_(context.config.sql),
        language_(site_.language),
        charset_(CharsetOfBody(facts.content_type, facts.raw_body, &charset_name_)) {}

  void Run() {
    result_.log = 0;
    if (sql_.allow && !site_.injection_exemptions.Empty() &&
        site_.injection_exemptions.Matches(facts_.raw_url, facts_.path)) {
      result_.status = kUndecided;
      return;
    }
    if (CheckGet() || CheckPath() || CheckCharset() || CheckPost()) return;
    if (!CheckHeaders()) result_.status = kUndecided;
  }

 private:
  bool CheckGet() {
    const bool xss = sql_.xss && sql_.xss_get;
    if ((!sql_.get && !xss) || facts_.query.empty()) return false;
    return CheckText(kGet, facts_.query, {sql_.get != 0, sql_.get_super_mode != 0, xss}, site_.get_rules,
                     [this](const ValueVisitor& visit) { return ForEachQueryValue(facts_, visit); });
  }

  /// A charset in which nothing can be judged. The type's charset is that of the query as well, to some servers.
  bool CheckCharset() {
    const bool body = !facts_.raw_body.empty();
    if (!(body ? sql_.post : sql_.get) || (!body && facts_.query.empty())) return false;
    if (charset_ == BodyCharset::kAscii || (charset_ == BodyCharset::kWide && body)) return false;
    InjectionRule rule;
    rule.shown = "charset=";
    rule.shown += charset_name_;
    rule.identifier = kCharsetIdentifier;
    Hit hit;
    hit.keyword = &rule;
    Block(body ? kPost : kGet, hit, {rule, {}, {}});
    return true;
  }

  /// The segments, as if they were values of one query. Paths of words and numbers need no look.
  bool CheckPath() {
    const bool xss = sql_.xss && sql_.xss_get;
    if (!site_.extended.path || (!sql_.get && !xss)) return false;
    if (std::all_of(facts_.path.begin(), facts_.path.end(), [](char c) { return IsWordByte(c) || IsPathMark(c); })) {
      return false;
    }
    std::string values;
    ForEachPathValue(facts_, [&values](const RequestValue& segment) {
      AppendAll(&values, {NormalizeText(std::string(segment.raw)), "&"});
      return true;
    });
    return CheckText(kPath, values, {sql_.get != 0, sql_.get_super_mode != 0, xss}, site_.get_rules,
                     [this](const ValueVisitor& visit) { return ForEachPathValue(facts_, visit); });
  }

  static bool IsPathMark(char c) { return c == '/' || c == '.' || c == '-'; }

  bool CheckPost() {
    const bool xss = sql_.xss && sql_.xss_post;
    if ((!sql_.post && !xss) || facts_.body.empty()) return false;
    const ValueSwitches switches{sql_.post != 0, sql_.post_super_mode != 0, xss, true};
    return CheckText(
               kPost, facts_.body, switches, site_.post_rules,
               [this](const ValueVisitor& visit) {
                 return ForEachBodyValue(facts_.content_type, facts_.text_body, visit, BodyValues::kTelling);
               },
               BodyFormOf(facts_.content_type, facts_.text_body) != BodyForm::kXml) ||
           (charset_ == BodyCharset::kWide && CheckWideBody(switches));
  }

  /// What the body is to a page that believes its charset, or the mark it begins with. Other pages read it as it is.
  bool CheckWideBody(ValueSwitches switches) {
    const std::string wide = WideToUtf8(facts_.text_body);
    const std::string whole = DecodeBody(wide);
    switches.xss_forms = false;
    Hit hit;
    return JudgeValues(JudgeFor(switches, site_.post_rules), hit,
                       [&](const ValueVisitor& visit) {
                         return visit({{}, whole, RequestValue::kConverted}) &&
                                ForEachBodyValue(facts_.content_type, wide, visit);
                       }) &&
           BlockValue(kPost, hit);
  }

  using Walk = std::function<bool(const ValueVisitor&)>;

  CValueJudge JudgeFor(ValueSwitches switches, const CKeywordRules& rules) const {
    switches.detector = switches.detector && switches.sql;
    switches.xss_forms = switches.xss_forms && switches.xss;
    return {sql_, context_.library, rules, switches};
  }

  /// Each value of a place by itself.
  static bool JudgeValues(CValueJudge judge, Hit& hit, const Walk& for_each) {
    if (for_each([&judge](const RequestValue& value) { return !judge.Judge(value); })) return false;
    const ValueHit& found = judge.Hit();
    hit.sql = found.sql;
    hit.keyword = found.keyword;
    hit.xss = found.xss;
    hit.fragment = found.fragment;
    hit.value = found.text;
    hit.name_length = found.name_length;
    return true;
  }

  bool BlockValue(const PlaceTraits& place, const Hit& hit) {
    const CShownText shown = CShownText::Value(hit.value, hit.name_length);
    HitTexts texts = TextsOf(hit, hit.value, shown);
    if (place.place == Place::kPost) {
      const TextPlace value = {hit.name_length + 1, hit.value.size()};
      texts.excerpt = shown.ExcerptAt(hit.IsXss() ? hit.fragment : hit.IsSemantic() ? hit.sql.word : value);
    }
    Block(place, hit, texts);
    return true;
  }

  /// Where it is not made of parameters, the detector sees the values alone: the "&" and ";" of XML's references would
  /// begin a parameter and a statement.
  bool CheckText(const PlaceTraits& place, std::string_view original, const ValueSwitches& switches,
                 const CKeywordRules& rules, const Walk& for_each, bool parameters = true) {
    const CLowered lowered(original);
    const JudgedText text = lowered.Judged();
    Hit hit;
    if (!(switches.sql &&
          ((switches.detector && parameters && Detect(text, true, hit)) || MatchRules(text, rules, hit)))) {
      if (JudgeValues(JudgeFor(switches, rules), hit, for_each)) return BlockValue(place, hit);
      if (!switches.xss || !(switches.xss_forms ? DetectTags(text, hit) : DetectXss(text, true, hit))) return false;
    }
    const CShownText shown = ShownOf(place.place, original);
    HitTexts texts = TextsOf(hit, text, shown);
    if (place.place == Place::kPost) {
      const TextPlace found = hit.IsXss() ? hit.fragment : ExcerptPlace(texts.match, hit.sql.word, text);
      texts.excerpt = shown.ExcerptAt(found);
    }
    Block(place, hit, texts);
    return true;
  }

  CShownText ShownOf(Place place, std::string_view judged) const {
    if (place == Place::kPath) return CShownText::Plain(judged);
    return place == Place::kGet ? CShownText::Query(facts_) : CShownText::Body(facts_);
  }

  bool CheckHeaders() {
    const bool xss = sql_.xss && sql_.xss_header;
    if ((!sql_.header && !xss) || facts_.headers.empty()) return false;
    Hit hit;
    if (!(sql_.header && ((sql_.header_super_mode && DetectInHeaders(hit)) ||
                          MatchRules(CLowered(facts_.all_headers).Judged(), site_.header_rules, hit)))) {
      if (JudgeHeaderValues(xss, hit)) return BlockValue(kHeader, hit);
      if (!xss || !DetectXssInHeaders(hit)) return false;
    }
    const CShownText shown = hit.header ? CShownText::Header(*hit.header) : CShownText();
    Block(kHeader, hit, TextsOf(hit, {}, shown));
    return true;
  }

  bool JudgeHeaderValues(bool xss, Hit& hit) const {
    return JudgeValues(JudgeFor({sql_.header != 0, sql_.header_super_mode != 0, xss}, site_.header_rules), hit,
                       [&](const ValueVisitor& visit) {
                         for (const HeaderEntry& header : facts_.headers) {
                           hit.header = &header;
                           if (!ForEachValueOf(header, visit)) return false;
                         }
                         hit.header = nullptr;
                         return true;
                       });
  }

  bool Detect(const JudgedText& text, bool per_parameter, Hit& hit) const {
    return SqlInjectionDetector::Check(text, &sql_, context_.library, &hit.sql, per_parameter);
  }

  bool MatchRules(const JudgedText& text, const CKeywordRules& rules, Hit& hit) const {
    if (text.lowered.empty() || rules.Empty()) return false;
    hit.keyword = rules.FindFirst(text);
    return hit.keyword != nullptr;
  }

  bool DetectXss(const JudgedText& text, bool per_parameter, Hit& hit) const {
    hit.xss = XssDetector::CheckText(text, sql_, context_.library, &hit.fragment, per_parameter);
    return hit.IsXss();
  }

  bool DetectTags(const JudgedText& text, Hit& hit) const {
    hit.xss = XssDetector::TagCheck(text, sql_, context_.library, &hit.fragment, true);
    return hit.IsXss();
  }

  bool DetectInHeaders(Hit& hit) const {
    for (const HeaderEntry& header : facts_.headers) {
      if (!Detect(CLowered(header.value).Judged(), false, hit)) continue;
      hit.header = &header;
      return true;
    }
    return false;
  }

  bool DetectXssInHeaders(Hit& hit) const {
    for (const HeaderEntry& header : facts_.headers) {
      if (!DetectXss(CLowered(header.value).Judged(), false, hit)) continue;
      hit.header = &header;
      return true;
    }
    return false;
  }

  HitTexts TextsOf(const Hit& hit, const JudgedText& text, const CShownText& shown) const {
    HitTexts texts;
    if (hit.IsXss()) {
      texts.xss_type = XssTypeName(hit.xss, language_);
      texts.match.shown = XssFragment(hit.xss, hit.fragment, shown);
    } else {
      texts.match = hit.keyword ? *hit.keyword : MatchRecord(hit.sql, text, shown, language_);
    }
    return texts;
  }

  /// What every hit does.
  void Block(const PlaceTraits& place, const Hit& hit, const HitTexts& texts) {
    const InjectionRule& match = texts.match;
    hit.IsXss() ? WriteXssTexts(place, texts) : WriteSqlTexts(place, match, hit.IsSemantic());
    AppendRemark(place, match.remark);
    if (!texts.excerpt.empty()) {
      AppendAll(&result_.detail,
                {T(MessageId::kComma), T(MessageId::kConnective), T(MessageId::kColon), texts.excerpt});
    }
    if (place.place == Place::kHeader) AppendHeaderLocator(hit, match);
    if (sql_.*place.strict) {
      result_.smart_block = 1;
      result_.smart_block_title = T(MessageId::kSmartBlocking);
      result_.smart_block_text = T(MessageId::kStrictBlocking);
    } else {
      result_.plain_block = 1;
    }
    result_.log = 1;
    result_.notify = 1;
    result_.kind = kKindInjection;
    result_.rule = match.identifier;
    // A hit in the query is always counted; one in body or headers only when the lists left the request countable.
    if (place.place == Place::kGet || place.place == Place::kPath || result_.request.statistics) {
      const char* const detected = hit.IsXss() ? "xss" : "sql_act";
      context_.recorder.RecordStatistics(hit.keyword ? place.keyword_category : detected, facts_.client_ip,
                                         match.identifier.empty() ? std::string_view("-") : match.identifier);
    }
    result_.request.attack = true;
    result_.category = T(MessageId::kInjectionCategory);
    result_.status = kBlocked;
  }

  void WriteSqlTexts(const PlaceTraits& place, const InjectionRule& match, bool semantic) {
    result_.item.clear();
    AppendAll(&result_.item,
              {T(MessageId::kSqlItem), T(MessageId::kOpenBracket), place.name, T(MessageId::kCloseBracket)});
    result_.reason = T(MessageId::kSqlReason);
    if (semantic) {
      AppendAll(&result_.reason,
                {T(MessageId::kOpenBracket), T(MessageId::kCloudMatching), T(MessageId::kCloseBracket)});
    }
    AppendAll(&result_.reason, {T(MessageId::kComma), T(MessageId::kKeywords), T(MessageId::kColon), match.shown});
    result_.detail = result_.reason;
  }

  void WriteXssTexts(const PlaceTraits& place, const HitTexts& texts) {
    result_.item = T(MessageId::kXssItem);
    result_.reason = T(MessageId::kXssReason);
    AppendAll(&result_.reason, {T(MessageId::kOpenBracket), place.name, T(MessageId::kCloseBracket),
                                T(MessageId::kComma), T(MessageId::kType), T(MessageId::kColon), texts.xss_type});
    result_.detail = result_.reason;
    AppendAll(&result_.detail,
              {T(MessageId::kComma), T(MessageId::kKeywords), T(MessageId::kColon), texts.match.shown});
  }

  void AppendRemark(const PlaceTraits& place, std::string_view remark) {
    if (remark.empty()) return;
    AppendAll(&result_.detail, {T(MessageId::kOpenBracket)});
    if (place.place == Place::kHeader) AppendAll(&result_.detail, {T(MessageId::kRemark), T(MessageId::kColon)});
    AppendAll(&result_.detail, {remark, T(MessageId::kCloseBracket)});
  }

  /// Names the header that holds the rule's first word, else the one the detector hit in, else "(Merge)".
  void AppendHeaderLocator(const Hit& hit, const InjectionRule& match) {
    const HeaderEntry* header = nullptr;
    if (!match.words.empty() && !match.words.front().empty()) {
      const auto holds_word = [&match](const HeaderEntry& entry) {
        return FindWord(CLowered(entry.value).Judged(), match.words.front()) != std::string_view::npos;
      };
      const auto found = std::find_if(facts_.headers.begin(), facts_.headers.end(), holds_word);
      if (found != facts_.headers.end()) header = &*found;
    }
    if (!header) header = hit.header;

    std::string name;
    std::string value;
    if (!header) {
      AppendAll(&name, {T(MessageId::kOpenBracket), T(MessageId::kMerge), T(MessageId::kCloseBracket)});
    } else {
      name = header->name.empty() ? std::to_string(header - facts_.headers.data()) : std::string(header->name);
      value = CShownText::Header(*header).At({0, header->value.size()});
    }
    AppendAll(&result_.detail, {T(MessageId::kOpenBracket), "Header[", name, "]=", value, T(MessageId::kCloseBracket)});
  }

  std::string_view T(MessageId id) const { return Message(language_, id); }

  const RequestFacts& facts_;
  const CheckContext& context_;
  CheckResult& result_;
  const WebsiteConfig& site_;
  const InjectionSettings& sql_;
  const Language language_;
  std::string_view charset_name_;  // that told it; before it
  const BodyCharset charset_;
};

}  // namespace

void InjectionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  CInjectionRun(facts, context, result).Run();
}

}  // namespace qiv
