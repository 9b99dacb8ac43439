#include "checks/access_check.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "checks/access_block.h"
#include "checks/check_state.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"
#include "port/clock.h"

namespace qiv {
namespace {

void Block(MessageId item, MessageId reason, std::string_view statistics, std::int32_t log, const RequestFacts& facts,
           const CheckContext& context, CheckResult& result) {
  BlockAccess({.kind = kKindAccess,
               .category = MessageId::kAccessCategory,
               .item = item,
               .reason = reason,
               .statistics = statistics,
               .log = log != 0},
              facts, context, result);
}

/// Host of "host:port" or of an absolute URL, in lower case; empty when it is neither.
std::string HostOf(std::string_view text) {
  if (const std::size_t scheme = text.find("://"); scheme != std::string_view::npos) {
    text = text.substr(scheme + 3);
    text = text.substr(0, text.find_first_of("/?#\\"));
    if (const std::size_t user = text.rfind('@'); user != std::string_view::npos) text = text.substr(user + 1);
  }
  if (text.starts_with('[')) {
    text = text.substr(0, text.find(']') + 1);
  } else {
    text = text.substr(0, text.find(':'));
  }
  while (text.ends_with('.')) text.remove_suffix(1);
  return CCharSet::LowerBytes(text);
}

/// An item with a slash is the beginning of a referer behind its scheme; another one is a host, which stands for the
/// hosts below it too.
bool IsWhiteReferer(const std::vector<std::string>& items, std::string_view referer, std::string_view host) {
  const std::string_view plain = WithoutScheme(referer);
  return std::any_of(items.begin(), items.end(), [&](std::string_view item) {
    if (item.find('/') != std::string_view::npos) return plain.starts_with(item);
    if (host.size() == item.size()) return host == item;
    return host.size() > item.size() && host.ends_with(item) &&
           (item.starts_with('.') || host[host.size() - item.size() - 1] == '.');
  });
}

std::size_t FoldersOf(std::string_view path) {
  const auto slashes = static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
  return slashes > 0 ? slashes - 1 : 0;
}

}  // namespace

void StaticDirectoryCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const ProtectSettings& protect = context.config.protect;
  const std::vector<std::string>& paths = RequestPaths(facts);
  if (!context.config.access.static_urls.HoldsAny(paths)) return;
  const bool runs = std::any_of(paths.begin(), paths.end(), [](const std::string& path) {
    const std::vector<std::string_view> extensions = PathExtensions(path);
    return std::any_of(extensions.begin(), extensions.end(), IsServerScript);
  });
  if (!runs) return;
  Block(MessageId::kStaticItem, MessageId::kStaticDenied, "static", protect.static_log, facts, context, result);
}

void AdminCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const ProtectSettings& protect = context.config.protect;
  const PreparedAccess& access = context.config.access;
  const std::vector<std::string>& paths = RequestPaths(facts);
  if (!access.admin_urls.HoldsAny(paths) || access.admin_white_urls.HoldsAll(paths)) return;
  const CIpAddress client = ClientAddress(facts);
  if (access.admin_ips.Contains(client)) return;
  if (IsInArea(client, context.config.addresses.website_protect_admin_dir_ips, access.admin_areas, context)) return;
  Block(MessageId::kAdminItem, MessageId::kAdminDenied, "admin", protect.admin_log, facts, context, result);
}

void TimeLimitCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const ProtectSettings& protect = context.config.protect;
  const PreparedAccess& access = context.config.access;
  if (!access.timelimit_limit_urls.HoldsAny(RequestPaths(facts))) return;
  const CalendarTime now = LocalTime(context.state.clock());
  const int minute = now.hour * 60 + now.minute;
  const std::vector<TimeSpan>& spans = access.timelimit_auth_times;
  if (std::any_of(spans.begin(), spans.end(), [&](const TimeSpan& s) { return s.Holds(now.weekday, minute); })) return;
  Block(MessageId::kTimeLimitItem, MessageId::kTimeLimitDenied, "timelimit", protect.timelimit_log, facts, context,
        result);
}

void HotlinkCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const ProtectSettings& protect = context.config.protect;
  const PreparedAccess& access = context.config.access;
  const std::vector<std::string>& paths = RequestPaths(facts);
  const bool is_protected = std::any_of(paths.begin(), paths.end(), [&access](const std::string& path) {
    return access.link_file_types.Holds(LastExtension(path));
  });
  if (!is_protected || access.link_white_urls.HoldsAll(paths)) return;
  const std::string referer = CCharSet::LowerBytes(Trim(facts.referer));
  if (referer.empty() && access.link_empty_referer) return;
  const std::string host = HostOf(referer);
  if (!host.empty() && host == HostOf(facts.host)) return;
  if (!referer.empty() && IsWhiteReferer(access.link_white_referers, referer, host)) return;
  Block(MessageId::kHotlinkItem, MessageId::kHotlinkDenied, "link", protect.link_log, facts, context, result);
}

void FileTypeCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const ProtectSettings& protect = context.config.protect;
  const PreparedAccess& access = context.config.access;
  const std::vector<std::string>& paths = RequestPaths(facts);
  const bool denied = std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
    if (FoldersOf(path) < protect.type_root_deep) return false;
    const std::string_view last = LastExtension(path);
    if (protect.type_allow_mode != 0) return !last.empty() && !access.type_file_types.Holds(last);
    const std::vector<std::string_view> all = PathExtensions(path);
    return std::any_of(all.begin(), all.end(), [&](std::string_view e) { return access.type_file_types.Holds(e); });
  });
  if (!denied || access.type_white_urls.HoldsAll(paths)) return;
  Block(MessageId::kFileTypeItem, MessageId::kFileTypeDenied, "filetype", protect.type_log, facts, context, result);
}

}  // namespace qiv
