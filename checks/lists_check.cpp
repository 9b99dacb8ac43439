#include "checks/lists_check.h"

#include <initializer_list>
#include <string>
#include <string_view>

#include "checks/access_block.h"
#include "common/messages.h"
#include "config/website_config.h"

namespace qiv {
namespace {

/// Texts of a header's black list. Item texts double as the titles of locks.
struct HeaderTexts {
  MessageId item;
  MessageId empty_reason;
  MessageId reason;
  MessageId value_name;
};
constexpr HeaderTexts kUserAgentTexts{MessageId::kUaBlacklist, MessageId::kUaIsEmpty, MessageId::kUaIsListed,
                                      MessageId::kUserAgent};
constexpr HeaderTexts kRefererTexts{MessageId::kRefererBlacklist, MessageId::kRefererIsEmpty,
                                    MessageId::kRefererIsListed, MessageId::kReferer};

class CListsRun {
 public:
  CListsRun(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts),
        context_(context),
        result_(result),
        site_(context.config),
        lists_(site_.lists),
        prepared_(site_.prepared_lists),
        client_(ClientAddress(facts)),
        language_(site_.language) {}

  void Run() {
    result_.log = 0;
    result_.request.statistics = false;
    if (IsWhite()) {
      result_.status = kAllowed;
      return;
    }
    if (site_.attack.e404 && IsDenied()) {
      BlockAs(MessageId::kDenyList, MessageId::kDenyList, T(MessageId::kIpInDenyList), "invade");
      return;
    }
    CheckBlack();
  }

 private:
  bool IsWhite() const {
    if (site_.addresses.website_sys_common_area_ips.Contains(client_)) return true;
    const CheckState& state = context_.state;
    if (state.exchange.IsListed(ClientList::kAuth, client_, state.clock())) return true;
    if (lists_.status_url && prepared_.allow_urls.Matches(facts_.raw_url, facts_.path)) return true;
    if (lists_.status_ua && IsIn(prepared_.allow_uas, facts_.user_agent)) return true;
    if (lists_.status_rf && IsIn(prepared_.allow_rfs, facts_.referer)) return true;
    if (lists_.status_spider && site_.addresses.website_lists_allow_spider_ips.Contains(client_)) return true;
    if (!lists_.status_iparea) return false;
    return IsInArea(client_, site_.addresses.website_lists_allow_area_ips, prepared_.allow_areas, context_) ||
           prepared_.allow_ips.Contains(client_);
  }

  /// Clients that the firewall service keeps out; behind a proxy, the address that the proxy forwarded too.
  bool IsDenied() const {
    CheckState& state = context_.state;
    const std::int64_t now = state.clock();
    if (state.exchange.IsListed(ClientList::kDeny, client_, now)) return true;
    if (facts_.forwarded_ip.empty() || facts_.forwarded_ip == facts_.client_ip) return false;
    const auto forwarded = CIpAddress::Parse(facts_.forwarded_ip);
    return forwarded && state.exchange.IsListed(ClientList::kDeny, *forwarded, now);
  }

  void CheckBlack() {
    if (lists_.status_url && IsBlackUrl()) {
      Block(MessageId::kUrlBlacklist, T(MessageId::kUrlIsListed));
      LockIf(lists_.url_lock_use_firewall);
    } else if (lists_.status_ua && CheckHeader(prepared_.deny_uas, facts_.user_agent, kUserAgentTexts)) {
      LockIf(lists_.ua_lock_use_firewall);
    } else if (lists_.status_rf && CheckHeader(prepared_.deny_rfs, facts_.referer, kRefererTexts)) {
      LockIf(lists_.rfs_lock_use_firewall);
    } else if (lists_.status_malice && IsMalicious()) {
      BlockAs(MessageId::kListsCategory, MessageId::kMaliciousIpBlacklist, T(MessageId::kMaliciousIp), "malice");
    } else if (lists_.status_iparea && prepared_.deny_ips.Contains(client_)) {
      Block(MessageId::kIpBlacklist, T(MessageId::kIpIsListed));
    } else if (lists_.status_iparea &&
               IsInArea(client_, site_.addresses.website_lists_deny_area_ips, prepared_.deny_areas, context_)) {
      Block(MessageId::kAreaBlacklist, T(MessageId::kAreaIsListed));
    }
  }

  static bool IsIn(const CTextList& list, std::string_view value) {
    return value.empty() ? list.HoldsEmpty() : !list.FirstIn(value).empty();
  }

  bool IsBlackUrl() const {
    return !prepared_.deny_urls.Empty() &&
           prepared_.deny_urls.Matches(facts_.raw_url, facts_.path, RequestPaths(facts_));
  }

  bool IsMalicious() const {
    const CAddressLibraries* const libraries = context_.state.libraries;
    return libraries != nullptr && libraries->BadIps()->Contains(client_) && !prepared_.trusted_ips.Contains(client_);
  }

  /// True when the value is on the list, and the request then blocked.
  bool CheckHeader(const CTextList& list, std::string_view value, const HeaderTexts& texts) {
    if (value.empty()) {
      if (!list.HoldsEmpty()) return false;
      Block(texts.item, T(texts.empty_reason));
      return true;
    }
    const std::string_view item = list.FirstIn(value);
    if (item.empty()) return false;
    std::string reason;
    // The closing bracket has no opening one; readers of these texts know it so.
    for (const std::string_view piece :
         {T(texts.reason), T(MessageId::kColon), item, T(MessageId::kComma), T(texts.value_name), T(MessageId::kColon),
          value, T(MessageId::kCloseBracket)}) {
      reason += piece;
    }
    Block(texts.item, reason);
    return true;
  }

  void Block(MessageId item, std::string_view reason) { BlockAs(MessageId::kListsCategory, item, reason, "invade"); }

  void BlockAs(MessageId category, MessageId item, std::string_view reason, std::string_view statistics) {
    result_.status = kBlocked;
    result_.kind = kKindLists;
    result_.log = 1;
    result_.plain_block = 0;
    result_.category = T(category);
    result_.item = T(item);
    result_.reason = reason;
    // The lists run in every notification; a blocked request is counted in its first.
    const bool counted = statistics == "malice" ? context_.phase == kPhaseBegin : result_.request.statistics;
    if (counted) context_.recorder.RecordStatistics(statistics, facts_.client_ip, "-");
    result_.request.statistics = false;
  }

  void LockIf(std::int32_t lock_switch) {
    if (lock_switch == 0) return;
    result_.smart_block = 1;
    result_.smart_block_title = result_.item;
    result_.smart_block_text = T(MessageId::kFirewallBlock);
  }

  std::string_view T(MessageId id) const { return Message(language_, id); }

  const RequestFacts& facts_;
  const CheckContext& context_;
  CheckResult& result_;
  const WebsiteConfig& site_;
  const ListSettings& lists_;
  const PreparedLists& prepared_;
  const CIpAddress client_;
  const Language language_;
};

}  // namespace

void ListsCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  CListsRun(facts, context, result).Run();
}

}  // namespace qiv
