// The three places in turn (query, body, headers), in each place SQL injection first, then XSS; the first hit decides.
//
// Texts are handed to the engines lower-cased, without a copy where they are lower-case already: the engines and the
// loaded rules compare bytes.
#include "checks/injection_check.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "checks/event_recorder.h"
#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/injection/match_excerpt.h"
#include "engines/injection/sql_injection_detector.h"
#include "engines/injection/xss_detector.h"

namespace qiv {
namespace {

enum class Place { kGet, kPost, kHeader };

/// Where a hit's texts and switches differ.
struct PlaceTraits {
  Place place;
  std::string_view name;         // in texts, the same in both languages
  const char* keyword_category;  // statistics category of a keyword-rule hit
  std::int32_t InjectionSettings::*strict;
};
constexpr PlaceTraits kGet{Place::kGet, "GET", "sql_get", &InjectionSettings::get_mode};
constexpr PlaceTraits kPost{Place::kPost, "POST", "sql_post", &InjectionSettings::post_mode};
constexpr PlaceTraits kHeader{Place::kHeader, "Header", "sql_header", &InjectionSettings::header_mode};

/// A text in lower case: the original where it is lower-case already, else a copy.
class CLowered {
 public:
  explicit CLowered(std::string_view text) : view_(text) {
    if (std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) {
      copy_ = CCharSet::LowerBytes(text);
      view_ = copy_;
    }
  }
  CLowered(const CLowered&) = delete;
  CLowered& operator=(const CLowered&) = delete;
  std::string_view View() const { return view_; }

 private:
  std::string copy_;
  std::string_view view_;
};

struct Hit {
  InjectionRule match;                  // the match record
  bool semantic = false;                // from the SQL detector, not from a keyword rule
  std::string_view xss_type;            // empty: an SQL hit
  const HeaderEntry* header = nullptr;  // the header the detector hit in
};

class CInjectionRun {
 public:
  CInjectionRun(RequestFacts& facts, CheckResult& result)
      : facts_(facts), result_(result), site_(*facts.config), sql_(facts.config->sql), language_(site_.language) {}

  void Run() {
    result_.log = 0;
    if (sql_.allow && !site_.injection_exemptions.Empty() &&
        site_.injection_exemptions.Matches(facts_.raw_url, facts_.path)) {
      result_.status = kUndecided;
      return;
    }
    if (CheckGet() || CheckPost()) return;
    if (!CheckHeaders()) result_.status = kUndecided;
  }

 private:
  bool CheckGet() {
    const bool xss = sql_.xss && sql_.xss_get;
    if ((!sql_.get && !xss) || facts_.query.empty()) return false;
    return CheckText(kGet, facts_.query, sql_.get, sql_.get_super_mode, xss, site_.get_rules);
  }

  bool CheckPost() {
    const bool xss = sql_.xss && sql_.xss_post;
    if ((!sql_.post && !xss) || facts_.body.Empty()) return false;
    return CheckText(kPost, facts_.body, sql_.post, sql_.post_super_mode, xss, site_.post_rules);
  }

  bool CheckText(const PlaceTraits& place, std::string_view original, bool sql, bool super_mode, bool xss,
                 const CKeywordRules& rules) {
    const CLowered text(original);
    Hit hit;
    if (sql && ((super_mode && Detect(text.View(), true, hit)) || MatchRules(text.View(), rules, hit))) {
      Block(place, hit, text.View());
      return true;
    }
    if (xss && DetectXss(text.View(), true, hit)) {
      Block(place, hit, text.View());
      return true;
    }
    return false;
  }

  bool CheckHeaders() {
    const bool xss = sql_.xss && sql_.xss_header;
    if ((!sql_.header && !xss) || facts_.all_headers.empty()) return false;
    Hit hit;
    if (sql_.header && ((sql_.header_super_mode && DetectInHeaders(hit)) ||
                        MatchRules(CLowered(facts_.all_headers).View(), site_.header_rules, hit))) {
      Block(kHeader, hit, {});
      return true;
    }
    if (xss && DetectXssInHeaders(hit)) {
      Block(kHeader, hit, {});
      return true;
    }
    return false;
  }

  bool Detect(std::string_view text, bool per_parameter, Hit& hit) const {
    hit.semantic = SqlInjectionDetector::Check(text, &sql_, *facts_.library, &hit.match, per_parameter);
    return hit.semantic;
  }

  bool MatchRules(std::string_view text, const CKeywordRules& rules, Hit& hit) const {
    if (text.empty() || rules.Empty()) return false;
    const InjectionRule* rule = rules.FindFirst(text);
    if (rule) hit.match = *rule;
    return rule != nullptr;
  }

  bool DetectXss(std::string_view text, bool per_parameter, Hit& hit) const {
    std::string fragment;
    hit.xss_type = XssDetector::CheckText(text, sql_, *facts_.library, &fragment, per_parameter);
    if (!hit.xss_type.empty()) hit.match.shown = std::move(fragment);
    return !hit.xss_type.empty();
  }

  bool DetectInHeaders(Hit& hit) const {
    for (const HeaderEntry& header : facts_.headers) {
      if (!Detect(CLowered(header.value).View(), false, hit)) continue;
      hit.header = &header;
      return true;
    }
    return false;
  }

  bool DetectXssInHeaders(Hit& hit) const {
    for (const HeaderEntry& header : facts_.headers) {
      if (!DetectXss(CLowered(header.value).View(), false, hit)) continue;
      hit.header = &header;
      return true;
    }
    return false;
  }

  /// What every hit does. `text` is where it was found; empty for headers.
  void Block(const PlaceTraits& place, const Hit& hit, std::string_view text) {
    const bool xss = !hit.xss_type.empty();
    xss ? WriteXssTexts(place, hit) : WriteSqlTexts(place, hit);
    AppendRemark(place, hit.match.remark);
    if (place.place == Place::kPost) {
      const std::string excerpt = xss ? MatchExcerpt(text, hit.match.shown) : MatchExcerpt(text, hit.match.words);
      if (!excerpt.empty())
        AppendAll(&result_.detail, {T(MessageId::kComma), T(MessageId::kConnective), T(MessageId::kColon), excerpt});
    }
    if (place.place == Place::kHeader) AppendHeaderLocator(hit);
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
    result_.rule = hit.match.identifier;
    // A hit in the query is always counted; one in body or headers only when the lists left the request countable.
    if (place.place == Place::kGet || facts_.statistics) {
      EventRecorder().RecordStatistics(xss            ? "xss"
                                       : hit.semantic ? "sql_act"
                                                      : place.keyword_category,
                                       facts_.client_ip,
                                       hit.match.identifier.empty() ? std::string_view("-") : hit.match.identifier);
    }
    facts_.attack = true;
    result_.category = T(MessageId::kInjectionCategory);
    result_.status = kBlocked;
  }

  void WriteSqlTexts(const PlaceTraits& place, const Hit& hit) {
    result_.item.clear();
    AppendAll(&result_.item,
              {T(MessageId::kSqlItem), T(MessageId::kOpenBracket), place.name, T(MessageId::kCloseBracket)});
    result_.reason = T(MessageId::kSqlReason);
    if (hit.semantic) {
      AppendAll(&result_.reason,
                {T(MessageId::kOpenBracket), T(MessageId::kCloudMatching), T(MessageId::kCloseBracket)});
    }
    AppendAll(&result_.reason, {T(MessageId::kComma), T(MessageId::kKeywords), T(MessageId::kColon), hit.match.shown});
    result_.detail = result_.reason;
  }

  void WriteXssTexts(const PlaceTraits& place, const Hit& hit) {
    result_.item = T(MessageId::kXssItem);
    result_.reason = T(MessageId::kXssReason);
    AppendAll(&result_.reason, {T(MessageId::kOpenBracket), place.name, T(MessageId::kCloseBracket),
                                T(MessageId::kComma), T(MessageId::kType), T(MessageId::kColon), hit.xss_type});
    result_.detail = result_.reason;
    AppendAll(&result_.detail, {T(MessageId::kComma), T(MessageId::kKeywords), T(MessageId::kColon), hit.match.shown});
  }

  void AppendRemark(const PlaceTraits& place, std::string_view remark) {
    if (remark.empty()) return;
    AppendAll(&result_.detail, {T(MessageId::kOpenBracket)});
    if (place.place == Place::kHeader) AppendAll(&result_.detail, {T(MessageId::kRemark), T(MessageId::kColon)});
    AppendAll(&result_.detail, {remark, T(MessageId::kCloseBracket)});
  }

  /// Names the header that holds the rule's first word, else the one the detector hit in, else "(Merge)".
  void AppendHeaderLocator(const Hit& hit) {
    const HeaderEntry* header = nullptr;
    if (!hit.match.words.empty() && !hit.match.words.front().empty()) {
      const std::string& word = hit.match.words.front();
      const auto holds_word = [&](const HeaderEntry& entry) {
        return CLowered(entry.value).View().find(word) != std::string_view::npos;
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
      value = CCharSet::ToLocal(header->value);
    }
    AppendAll(&result_.detail, {T(MessageId::kOpenBracket), "Header[", name, "]=", value, T(MessageId::kCloseBracket)});
  }

  std::string_view T(MessageId id) const { return Message(language_, id); }

  RequestFacts& facts_;
  CheckResult& result_;
  const WebsiteConfig& site_;
  const InjectionSettings& sql_;
  const Language language_;
};

}  // namespace

void InjectionCheck(RequestFacts& facts, CheckResult& result) { CInjectionRun(facts, result).Run(); }

}  // namespace qiv
