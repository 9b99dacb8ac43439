#include "checks/request_shape_check.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "checks/access_block.h"
#include "checks/check_state.h"
#include "checks/shown_text.h"
#include "checks/url_shape.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/path_readings.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::uint64_t kBytesInKib = 1024;
constexpr std::int32_t kViaHeader = 8;  // the server's number for Via, which it makes no variable of

std::string Exceeds(std::uint64_t size, std::uint64_t limit) {
  return std::to_string(size) + " > " + std::to_string(limit);
}

void BlockOverflow(MessageId reason, const std::string& subject, const RequestFacts& facts, const CheckContext& context,
                   CheckResult& result) {
  BlockAccess({.kind = kKindShape,
               .category = MessageId::kShapeCategory,
               .item = MessageId::kOverflowItem,
               .reason = reason,
               .subject = subject,
               .statistics = "overflow"},
              facts, context, result);
}

/// Of a body without a stated length, what was read of it.
std::uint64_t BodyBytes(const RequestFacts& facts) {
  return std::max<std::uint64_t>(facts.content_length, facts.raw_body.size());
}

MessageId FaultReason(UrlFault fault) {
  switch (fault) {
    case UrlFault::kControlByte:
      return MessageId::kUrlControlByte;
    case UrlFault::kOverlong:
      return MessageId::kUrlOverlong;
    case UrlFault::kTraversal:
      return MessageId::kUrlTraversal;
    case UrlFault::kScriptParsing:
      return MessageId::kUrlScriptParsing;
    case UrlFault::kShortName:
      return MessageId::kUrlShortName;
    case UrlFault::kSensitiveFile:
      return MessageId::kUrlSensitiveFile;
    default:
      return MessageId::kUrlBadName;
  }
}

void BlockUrl(MessageId reason, std::string_view subject, const RequestFacts& facts, const CheckContext& context,
              CheckResult& result) {
  BlockAccess({.kind = kKindShape,
               .category = MessageId::kShapeCategory,
               .item = MessageId::kUrlItem,
               .reason = reason,
               .subject = subject,
               .statistics = "url"},
              facts, context, result);
}

bool HasForwardedSource(const RequestFacts& facts) {
  return !facts.forwarded_for_as_sent.empty() && CIpAddress::Parse(facts.forwarded_ip).has_value();
}

/// What the listings of the usual servers hold, in lower case: all of one row.
struct ListingForm {
  std::string_view title;
  std::string_view link;
};
constexpr ListingForm kListings[] = {
    {"<title>index of /", "<a href="},             // Apache, nginx, lighttpd
    {"<a href=\"/", "[to parent directory]</a>"},  // IIS
    {"<title>directory listing", "<a href="},      // Python, Tomcat and others
    {"<title>listing directory", "<a href="},      // serve-index
    {"<h1>index of /", "<a href=\"../\">"},        // nginx with another head
};

}  // namespace

void OverflowCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const AttackSettings& attack = context.config.attack;
  if (attack.overflow_url_maxlen != 0 && facts.raw_url.size() > attack.overflow_url_maxlen) {
    const std::string sizes = Exceeds(facts.raw_url.size(), attack.overflow_url_maxlen);
    return BlockOverflow(MessageId::kOverflowUrl, sizes, facts, context, result);
  }
  if (attack.overflow_httpheader_maxlen != 0 && facts.header_bytes > attack.overflow_httpheader_maxlen) {
    const std::string sizes = Exceeds(facts.header_bytes, attack.overflow_httpheader_maxlen);
    return BlockOverflow(MessageId::kOverflowHeaders, sizes, facts, context, result);
  }
  const std::uint64_t most = attack.overflow_post_maxsize * kBytesInKib;
  if (most != 0 && BodyBytes(facts) > most) {
    return BlockOverflow(MessageId::kOverflowBody, Exceeds(BodyBytes(facts), most), facts, context, result);
  }
  if (attack.overflow_httpheader_rule == 0) return;
  for (const HeaderEntry& header : facts.headers) {
    for (const auto& [name, limit] : context.config.access.overflow_httpheader_rules) {
      if (header.value.size() <= limit || !EqualNoCase(header.name, name)) continue;
      const std::string text = std::string(header.name) + " " + Exceeds(header.value.size(), limit);
      return BlockOverflow(MessageId::kOverflowHeader, text, facts, context, result);
    }
  }
}

void SpiderCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const AttackSettings& attack = context.config.attack;
  if (facts.user_agent.empty()) return;
  const PreparedAccess& access = context.config.access;
  const std::string agent = CCharSet::LowerBytes(facts.user_agent);
  AccessBlock block{.kind = kKindShape,
                    .category = MessageId::kShapeCategory,
                    .item = MessageId::kSpiderItem,
                    .reason = MessageId::kSpiderDenied,
                    .statistics = "spider"};
  block.subject = access.denied_spiders.FirstIn(agent);
  if (!block.subject.empty()) return BlockAccess(block, facts, context, result);

  block.subject = access.known_spiders.FirstIn(agent);
  if (block.subject.empty()) return;
  const CIpAddress client = ClientAddress(facts);
  const CIpRanges& ranges = context.config.addresses.website_attack_all_spiders_ips;
  // Without any range of a family nobody can tell who is genuine there.
  const bool known = client.IsIpv4() ? ranges.Ipv4Size() != 0 : ranges.Ipv6Size() != 0;
  if (!known || ranges.Contains(client)) return;
  if (attack.spider_strict_mode == 0) {
    context.recorder.RecordStatistics(block.statistics, facts.client_ip, "-");
    return;
  }
  block.reason = MessageId::kSpiderFake;
  BlockAccess(block, facts, context, result);
}

void ProxyCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const bool has_via = std::any_of(facts.headers.begin(), facts.headers.end(),
                                   [](const HeaderEntry& header) { return header.number == kViaHeader; });
  if (!facts.proxy_seen && !has_via) return;
  if (context.config.response.cdn != 0 && HasForwardedSource(facts)) return;
  BlockAccess({.kind = kKindShape,
               .category = MessageId::kShapeCategory,
               .item = MessageId::kProxyItem,
               .reason = MessageId::kProxyDenied,
               .statistics = "agent"},
              facts, context, result);
}

void UrlCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const BaseSettings& base = context.config.base;
  const std::string& forwarded = facts.forwarded_for_as_sent;
  if (base.xforwardedfor != 0 && !forwarded.empty() && !IsForwardedList(forwarded)) {
    return BlockUrl(MessageId::kUrlForgedForwarded, {}, facts, context, result);
  }
  if (base.url == 0) return;
  const UrlSwitches switches{.short_names = base.url_short_filename != 0,
                             .bad_names = base.url_bad_filename != 0,
                             .script_parsing = base.url_script_parserr != 0};
  const UrlJudgement judgement = JudgeUrlPath(PathOfUrl(facts.raw_url), switches);
  if (judgement.fault == UrlFault::kNone) return;
  BlockUrl(FaultReason(judgement.fault), CCharSet::ToLocal(judgement.name), facts, context, result);
}

void MethodCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const RequestSettings& request = context.config.request;
  if (context.config.access.types.Admits(facts.method)) return;
  BlockAccess({.kind = kKindShape,
               .category = MessageId::kShapeCategory,
               .item = MessageId::kMethodItem,
               .reason = MessageId::kMethodDenied,
               .subject = CCharSet::Prefix(facts.method, 32),
               .statistics = "type",
               .log = request.type_log != 0},
              facts, context, result);
}

void DirectoryListingCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  if (context.response.text.empty() || !context.response.page) return;
  if (context.response.part == ResponsePart::kLaterPiece) return;
  if (!PathOfUrl(facts.raw_url).ends_with('/')) return;
  const std::string body = CCharSet::LowerBytes(context.response.text);
  const bool listing = std::any_of(std::begin(kListings), std::end(kListings), [&body](const ListingForm& form) {
    return body.find(form.title) != std::string::npos && body.find(form.link) != std::string::npos;
  });
  if (listing) BlockUrl(MessageId::kUrlListing, {}, facts, context, result);
}

}  // namespace qiv
