#include "config/access_settings.h"

#include <algorithm>

#include "base/ascii.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/value_lists.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr int kMinutesInHour = 60;
constexpr int kMinutesInDay = 24 * kMinutesInHour;

// The methods that the list knows by name; "|OTHER|" stands for the rest.
constexpr std::string_view kNamedMethods[] = {"delete", "get", "head", "options", "patch",
                                              "post",   "put", "rpc",  "trace"};
constexpr std::string_view kRpcMethods[] = {"rdg_in_data", "rdg_out_data", "rpc_in_data", "rpc_out_data"};

template <typename List>
bool Holds(const List& list, std::string_view word) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

/// Two digits at most each, as in "8:05"; minutes since midnight, or -1.
int MinuteOfDay(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return -1;
  const std::string_view hour = text.substr(0, colon);
  const std::string_view minute = text.substr(colon + 1);
  const auto number = [](std::string_view digits) {
    const bool plain = !digits.empty() && digits.size() <= 2 && std::all_of(digits.begin(), digits.end(), IsDigit);
    return plain ? static_cast<int>(DigitsToNumber(digits)) : -1;
  };
  const int h = number(hour);
  const int m = minute.size() == 2 ? number(minute) : -1;
  if (h < 0 || m < 0 || m >= kMinutesInHour || h * kMinutesInHour + m > kMinutesInDay) return -1;
  return h * kMinutesInHour + m;
}

bool IsDayDigit(char c) { return c >= '1' && c <= '7'; }

std::optional<std::bitset<7>> ParseDays(std::string_view text) {
  std::bitset<7> days;
  for (const std::string_view part : Split(text, ",")) {
    const bool one = part.size() == 1 && IsDayDigit(part[0]);
    const bool run = part.size() == 3 && IsDayDigit(part[0]) && part[1] == '-' && IsDayDigit(part[2]);
    if (!one && !run) return std::nullopt;
    // "6-1" goes over the week's end.
    for (int day = part.front() - '1', last = part.back() - '1';; day = (day + 1) % 7) {
      days.set(static_cast<std::size_t>(day));
      if (day == last) break;
    }
  }
  return days;
}

/// The readable items of a list; the others are named.
template <typename Item>
std::vector<Item> Items(std::string_view list, std::string_view key, std::optional<Item> (*parse)(std::string_view),
                        std::vector<MalformedItems>* malformed) {
  std::vector<Item> items;
  MalformedItems bad{std::string(key), {}};
  for (const std::string_view text : Split(list, '|')) {
    if (Trim(text).empty()) continue;
    if (std::optional<Item> item = parse(Trim(text))) {
      items.push_back(std::move(*item));
    } else {
      bad.items.emplace_back(Trim(text));
    }
  }
  if (!bad.items.empty()) malformed->push_back(std::move(bad));
  return items;
}

/// `names`: wrapped, as the record holds them.
CTextList SpiderKeys(const std::vector<std::string>& keys, std::string_view names) {
  std::string list;
  for (const std::string& key : keys) AppendAll(&list, {key, "|"});
  for (const std::string_view name : Split(names, ",")) AppendAll(&list, {name, "|"});
  return CTextList(CCharSet::LowerAscii(list));
}

/// Hosts, and beginnings of referers, without their schemes.
std::vector<std::string> Referers(std::string_view list) {
  std::vector<std::string> items = BarItems(CCharSet::LowerAscii(list));
  for (std::string& item : items) item.erase(0, item.size() - WithoutScheme(item).size());
  std::erase(items, std::string());
  return items;
}

MethodFilter Methods(std::string_view wrapped) {
  MethodFilter filter;
  filter.rpc = wrapped.find("|RPC|") != std::string_view::npos;
  filter.other = wrapped.find("|OTHER|") != std::string_view::npos;
  for (std::string_view name : Split(wrapped, ",")) {
    name = TrimBytes(name, " |");
    if (name.empty() || name == "RPC" || name == "OTHER") continue;
    filter.rpc = filter.rpc || name == "rpc";
    filter.names.emplace_back(name);
  }
  return filter;
}

}  // namespace

std::string_view WithoutScheme(std::string_view url) {
  std::size_t end = 0;
  while (end < url.size() && IsLetter(url[end])) ++end;
  return end > 0 && url.substr(end).starts_with("://") ? url.substr(end + 3) : url;
}

bool TimeSpan::Holds(int weekday, int minute) const {
  const auto today = static_cast<std::size_t>((weekday + 6) % 7);
  const std::size_t yesterday = (today + 6) % 7;
  if (begin < end) return days[today] && minute >= begin && minute < end;
  return (days[today] && minute >= begin) || (days[yesterday] && minute < end);
}

std::optional<TimeSpan> ParseTimeSpan(std::string_view text) {
  TimeSpan span;
  span.days.set();
  text = Trim(text);
  if (const std::size_t blank = text.find(' '); blank != std::string_view::npos && text.find(':') > blank) {
    const auto days = ParseDays(text.substr(0, blank));
    if (!days) return std::nullopt;
    span.days = *days;
    text = Trim(text.substr(blank));
  }
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  span.begin = MinuteOfDay(Trim(text.substr(0, dash)));
  span.end = MinuteOfDay(Trim(text.substr(dash + 1)));
  if (span.begin < 0 || span.end < 0 || span.begin == kMinutesInDay) return std::nullopt;
  return span;
}

std::optional<HeaderLimit> ParseHeaderLimit(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view name = Trim(text.substr(0, colon));
  const std::string_view digits = Trim(text.substr(colon + 1));
  const bool plain = std::all_of(name.begin(), name.end(), [](char c) { return IsWordByte(c) || c == '-'; });
  const std::uint32_t limit = DigitsToNumber(digits);
  if (name.empty() || !plain || limit == 0) return std::nullopt;
  return HeaderLimit(CCharSet::LowerBytes(name), limit);
}

CExtensions::CExtensions(std::string_view wrapped) {
  for (const std::string_view part : Split(wrapped, ",")) {
    for (const std::string_view item : Split(part, "|")) {
      const std::string_view plain = TrimBytes(item, " .*");
      if (!plain.empty()) items_.push_back(CCharSet::LowerBytes(plain));
    }
  }
  std::sort(items_.begin(), items_.end());
}

bool CExtensions::Holds(std::string_view extension) const {
  return std::binary_search(items_.begin(), items_.end(), extension);
}

bool MethodFilter::Admits(std::string_view method) const {
  const std::string lower = CCharSet::LowerBytes(method);
  if (Holds(names, lower)) return true;
  if (Holds(kRpcMethods, lower)) return rpc;
  return other && !Holds(kNamedMethods, lower);
}

PreparedAccess PrepareAccess(const WebsiteConfig& config, std::vector<MalformedItems>* malformed) {
  const ProtectSettings& protect = config.protect;
  const AttackSettings& attack = config.attack;
  PreparedAccess access;
  access.static_urls = CPathList(protect.static_urls);
  access.admin_urls = CPathList(protect.admin_urls);
  access.admin_white_urls = CPathList(protect.admin_white_urls);
  access.admin_ips = RangesOf(protect.admin_ips);
  access.admin_areas = CAreaNames(protect.admin_areas);
  access.timelimit_limit_urls = CPathList(protect.timelimit_limit_urls);
  access.timelimit_auth_times =
      Items(protect.timelimit_auth_times, "website_protect.timelimit_auth_times", &ParseTimeSpan, malformed);
  access.link_file_types = CExtensions(protect.link_file_types);
  access.link_white_referers = Referers(protect.link_white_referers);
  access.link_empty_referer = std::erase(access.link_white_referers, "{$empty}") != 0 || protect.link_empty_refer != 0;
  access.link_white_urls = CPathList(protect.link_white_urls);
  access.type_file_types = CExtensions(protect.type_file_types);
  access.type_white_urls = CPathList(protect.type_white_urls);
  access.cc_file_type = CExtensions(attack.cc_file_type);
  access.cc_allow_urls = CPathList(attack.cc_allow_urls);
  access.cc_allow_ips = RangesOf(attack.cc_allow_ips);
  access.cc_allow_areas = CAreaNames(attack.cc_allow_areas);
  access.e404_free_type = CExtensions(attack.e404_free_type);
  access.overflow_httpheader_rules =
      Items(attack.overflow_httpheader_rules, "website_attack.overflow_httpheader_rules", &ParseHeaderLimit, malformed);
  access.types = Methods(config.request.types);
  access.denied_spiders = SpiderKeys(config.addresses.website_attack_spiders_deny_keys, attack.spider_deny_spiders);
  access.known_spiders = SpiderKeys(config.addresses.website_attack_spiders_all_keys, {});
  return access;
}

}  // namespace qiv
