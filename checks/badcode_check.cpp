#include "checks/badcode_check.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "base/hex.h"
#include "checks/binary_text.h"
#include "checks/request_values.h"
#include "checks/value_forms.h"
#include "common/char_set.h"
#include "common/secrets.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::int32_t kAgentHeader = 40;  // the server's number of User-Agent
constexpr std::size_t kLongestName = 100;
constexpr std::size_t kLongestFound = 200;
// What is read of bytes that are no text: what is an attack there, a serialised object, says so at the head.
constexpr std::size_t kBinaryHead = 512;

/// Whether none of its forms can hold anything: what it would be decoded to is read in passing.
bool IsPlain(const RequestValue& value) {
  const bool form = value.encoding == RequestValue::kForm || value.encoding == RequestValue::kQuery ||
                    value.encoding == RequestValue::kCookie;
  const bool escapes = form || value.encoding == RequestValue::kPercent;
  for (std::size_t at = 0; at < value.raw.size(); ++at) {
    const char c = value.raw[at];
    if (CAttackReadings::IsPlainByte(c) || (form && c == '+')) continue;
    const int byte = escapes ? EscapedByte(value.raw, at) : -1;
    if (byte < 0 || !CAttackReadings::IsPlainByte(static_cast<char>(byte))) return false;
    at += 2;
  }
  return true;
}

/// Whether it holds "%u", encoded once or more.
bool HoldsUnit(std::string_view text) {
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 1)) {
    while (text.compare(at + 1, 2, "25") == 0) at += 2;
    if (at + 1 < text.size() && LowerByte(text[at + 1]) == 'u') return true;
  }
  return false;
}

bool IsLoopback(const CIpAddress& address) {
  constexpr std::uint32_t kIpv4Loopback = 127;
  return address.Ipv4() >> 24 == kIpv4Loopback || address == CIpAddress::Parse("::1");
}

/// Whether the client is on the inside itself: only there a site is asked for by an inner address.
bool IsInnerClient(const RequestFacts& facts) {
  static const CIpRanges kInner = [] {
    CIpRanges ranges;
    ranges.Add("10.0.0.0/8,127.0.0.0/8,169.254.0.0/16,172.16.0.0/12,192.168.0.0/16,::1,fc00::/7,fe80::/10");
    return ranges;
  }();
  const auto client = CIpAddress::Parse(facts.client_ip);
  return client && kInner.Contains(*client);
}

/// The site's address as the request names it in Host, in small letters: "10.0.0.4:8080". Empty unless the connection
/// really ends there, and an inner client asks: what else a client writes into Host is its own choice.
std::string OwnAddress(const RequestFacts& facts) {
  if (!IsInnerClient(facts)) return {};
  std::string host = CCharSet::LowerAscii(facts.host);
  const std::size_t colon = host.find(':', host.find(']') == std::string::npos ? 0 : host.find(']'));
  const std::string_view name = std::string_view(host).substr(0, colon);
  const std::string_view usual = facts.site_url.starts_with("https:") ? "443" : "80";
  const std::string_view port = colon == std::string::npos ? usual : std::string_view(host).substr(colon + 1);
  if (facts.local_port == 0 || port != std::to_string(facts.local_port)) return {};
  const bool own =
      name == "localhost" ? IsLoopback(facts.local_address) : CIpAddress::Parse(name) == facts.local_address;
  return own ? host : std::string();
}

/// Whether addresses in the text lead to the site itself; `*without` is the text with an ordinary name in their place.
bool LeadsHome(std::string_view text, std::string_view own, std::string* without) {
  constexpr std::string_view kName = "site.example";
  without->clear();
  if (own.empty()) return false;
  const std::string lower = CCharSet::LowerAscii(text);
  const std::string_view folded = lower;
  std::size_t copied = 0;
  for (std::size_t at = folded.find(own); at != std::string_view::npos; at = folded.find(own, at + own.size())) {
    const std::string_view before = folded.substr(0, at);
    const std::string_view behind = folded.substr(at + own.size());
    // Slashes may be encoded once more. With anything else behind it, it is a part of another address.
    if (!before.ends_with("//") && !before.ends_with("%2f")) continue;
    if (!behind.empty() && std::string_view("/?#\"<> \r\n").find(behind[0]) == std::string_view::npos &&
        !behind.starts_with("%2f") && !behind.starts_with("%3f")) {
      continue;
    }
    AppendAll(without, {text.substr(copied, at - copied), kName});
    copied = at + own.size();
  }
  if (copied == 0) return false;
  *without += text.substr(copied);
  return true;
}

bool IsInnerAddress(const AttackHit& hit) {
  return hit.rule != nullptr && AttackFamilies()[hit.rule->family].name == "ssrf";
}

class CAttackWalk {
 public:
  CAttackWalk(const RequestFacts& facts, const CheckContext& context, unsigned groups)
      : facts_(facts), base_(context.config.base), groups_(groups), scan_(*context.attacks) {
    findings_.facts = &facts;
    findings_.rules = context.attacks;
    findings_.groups = groups;
  }

  AttackFindings Run() {
    const ValueVisitor visit = [this](const RequestValue& value) { return Judge(value); };
    const unsigned get = Wanted(base_.badcode_get);
    if (!Enter("GET", kInQuery, get) || !ForEachQueryValue(facts_, visit)) return Result();
    if (!Enter("Path", kInPath, get) || !ForEachPathValue(facts_, visit)) return Result();
    if (!Enter("POST", kInBody, Wanted(base_.badcode_post)) || !WalkBody(visit)) return Result();
    if (Enter("Header", kInHeader, Wanted(base_.badcode_header))) WalkHeaders();
    return Result();
  }

 private:
  unsigned Wanted(std::int32_t badcode_here) const { return badcode_here ? groups_ : groups_ & ~unsigned{kBadCode}; }

  /// False when nothing is left to look for anywhere.
  bool Enter(std::string_view name, AttackPlace place, unsigned groups) {
    place_name_ = name;
    place_ = place;
    here_ = groups & left_;
    return (groups_ & left_) != 0;
  }

  bool WalkBody(const ValueVisitor& visit) {
    if (here_ == 0 || facts_.text_body.empty()) return true;
    return ForEachReadBodyValue(facts_.content_type, facts_.text_body, visit);
  }

  void WalkHeaders() {
    for (const HeaderEntry& header : facts_.headers) {
      const AttackPlace whole = header.number == kAgentHeader ? kInAgent : kInHeader;
      const bool all = ForEachValueOf(header, [&](const RequestValue& value) {
        place_ = value.encoding == RequestValue::kCookie ? kInCookie : whole;
        return Judge(value);
      });
      if (!all) return;
    }
  }

  /// False when nothing is left to look for here.
  bool Judge(const RequestValue& value) {
    if (here_ == 0) return false;
    if (IsPlain(value)) return true;
    bool first = true;
    const bool all = ForEachForm(value, &room_, [&](const ValueForm& form) {
      // The engine resolves escapes itself; undecoded a value would only be read with fewer of them.
      const bool resolved = form.text.data() == value.raw.data() || form.text.data() == room_.twice.data();
      if (!std::exchange(first, false) && resolved) return true;
      return JudgeText(value, form.text);
    });
    // Decoded, a "%uXXXX" is lost when the local code page has no such character; other servers take it for a slash.
    return all && (!HoldsUnit(value.raw) || JudgeText(value, value.raw));
  }

  bool JudgeText(const RequestValue& value, std::string_view form) {
    const bool whole = form.size() <= kBinaryHead || !HoldsControlBytes(form);
    const std::string_view text = form.substr(0, whole ? std::string_view::npos : kBinaryHead);
    for (AttackHit hit; here_ != 0; Take(value, std::move(hit))) {
      hit = scan_.Find(text, place_, here_);
      // Pages name their own address: where to go after signing in, which page a form came from.
      if (IsInnerAddress(hit) && LeadsHome(text, OwnAddress(facts_), &without_own_)) {
        hit = scan_.Find(without_own_, place_, here_);
      }
      if (hit.rule == nullptr) return true;
    }
    return false;
  }

  void Take(const RequestValue& value, AttackHit hit) {
    const bool badcode = AttackFamilies()[hit.rule->family].group == kBadCode;
    // A request that includes files is blocked for that, whatever else it holds.
    left_ &= badcode ? ~unsigned{kBadCode} : 0U;
    here_ &= left_;
    AttackFinding& finding = badcode ? findings_.badcode : findings_.file;
    finding.hit = std::move(hit);
    finding.place = place_name_;
    std::string room;
    finding.name = CCharSet::ToLocal(std::string(RequestValue{{}, value.name, value.encoding}.Decoded(&room)));
  }

  AttackFindings Result() { return std::move(findings_); }

  const RequestFacts& facts_;
  const BaseSettings& base_;
  const unsigned groups_;
  CAttackScan scan_;
  AttackFindings findings_;
  ValueFormRoom room_;
  std::string without_own_;
  std::string_view place_name_;
  AttackPlace place_ = kInQuery;
  unsigned left_ = ~0U;  // groups that nothing was found of
  unsigned here_ = 0;    // those looked for in this place
};

}  // namespace

unsigned FileGroups(const WebsiteConfig& site) {
  const RequestSettings& request = site.request;
  if (request.file == 0) return 0;
  return (request.file_local ? unsigned{kLocalFiles} : 0U) | (request.file_remote ? unsigned{kRemoteFiles} : 0U);
}

unsigned BadcodeGroups(const WebsiteConfig& site) {
  const BaseSettings& base = site.base;
  const bool anywhere = base.badcode_get || base.badcode_post || base.badcode_header;
  return base.badcode && anywhere ? unsigned{kBadCode} : 0U;
}

AttackFindings FindAttacks(const RequestFacts& facts, const CheckContext& context, unsigned groups) {
  return CAttackWalk(facts, context, groups).Run();
}

void BlockAttack(const AttackTexts& texts, const AttackFinding& finding, const RequestFacts& facts,
                 const CheckContext& context, CheckResult& result) {
  const auto text = [&context](MessageId id) { return Message(context.config.language, id); };
  const std::string_view open = text(MessageId::kOpenBracket);
  const std::string_view close = text(MessageId::kCloseBracket);
  std::string type;
  AppendAll(&type, {close, text(MessageId::kComma), text(MessageId::kType), text(MessageId::kColon),
                    finding.hit.rule->remark});
  result.category = text(texts.category);
  result.item = text(texts.item);
  AppendAll(&result.item, {open, finding.place, close});
  result.reason = text(texts.reason);
  AppendAll(&result.reason, {open, finding.place});
  result.detail = result.reason;
  result.reason += type;

  if (!finding.name.empty()) AppendAll(&result.detail, {"[", CCharSet::Prefix(finding.name, kLongestName), "]"});
  const std::string found =
      IsSecretName(finding.name) ? std::string(kHiddenSecret) : CCharSet::ToLocal(finding.hit.found);
  AppendAll(&result.detail, {type, text(MessageId::kComma), text(MessageId::kKeywords), text(MessageId::kColon),
                             CCharSet::Prefix(found, kLongestFound)});
  result.rule = finding.hit.rule->identifier;
  BlockPlainly(texts.kind, result.request.statistics ? texts.statistics : "", facts, context, result);
}

void BadcodeCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const unsigned groups = BadcodeGroups(context.config);
  if (groups == 0) return;
  static constexpr AttackTexts kTexts{MessageId::kBadcodeCategory, MessageId::kBadcodeItem, MessageId::kBadcodeReason,
                                      kKindBadcode, "badcode"};
  const AttackFindings* const known = result.request.attacks.get();
  const bool is_known =
      known && known->facts == &facts && known->rules == context.attacks && (known->groups & groups) == groups;
  const AttackFindings findings = is_known ? *known : FindAttacks(facts, context, groups);
  if (findings.badcode.hit.rule) BlockAttack(kTexts, findings.badcode, facts, context, result);
}

}  // namespace qiv
