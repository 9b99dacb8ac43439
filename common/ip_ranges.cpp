// Range lists and the tables made from them.
#include <algorithm>

#include "common/ip_address.h"

namespace qiv {
namespace {

constexpr std::uint32_t kLastIpv4 = 0xFFFFFFFF;

// "10.1.*", "10.*.*.*", "*": leading parts, then nothing but "*".
std::optional<IpRange> ParseWildcard(std::string_view item) {
  std::string first;
  std::string last;
  int parts = 0;
  bool wild = false;
  while (true) {
    const std::size_t dot = item.find('.');
    const std::string_view part = item.substr(0, dot);
    if (wild && part != "*") return std::nullopt;
    wild = part == "*";
    if (++parts > 4) return std::nullopt;
    first.append(parts > 1 ? "." : "").append(wild ? "0" : part);
    last.append(parts > 1 ? "." : "").append(wild ? "255" : part);
    if (dot == item.npos) break;
    item.remove_prefix(dot + 1);
  }
  if (!wild) return std::nullopt;
  for (; parts < 4; ++parts) {
    first.append(".0");
    last.append(".255");
  }
  const auto low = CIpAddress::Parse(first);
  const auto high = CIpAddress::Parse(last);
  if (!low || !high) return std::nullopt;
  return IpRange{*low, *high};
}

std::optional<IpRange> ParseCidr(std::string_view address_text, std::string_view prefix_text) {
  const auto address = CIpAddress::Parse(address_text);
  if (!address || prefix_text.empty() || prefix_text.size() > 3) return std::nullopt;
  if (prefix_text.size() > 1 && prefix_text.front() == '0') return std::nullopt;
  unsigned prefix = 0;
  for (const char c : prefix_text) {
    if (c < '0' || c > '9') return std::nullopt;
    prefix = prefix * 10 + static_cast<unsigned>(c - '0');
  }
  // A mapped address written as IPv6 counts its prefix from the IPv6 beginning.
  if (address->IsIpv4() && address_text.find(':') != address_text.npos) {
    if (prefix < 96) return std::nullopt;
    prefix -= 96;
  }
  if (prefix > (address->IsIpv4() ? 32U : 128U)) return std::nullopt;
  const IpRange range{address->BlockBegin(prefix), address->BlockEnd(prefix)};
  // Blocks of IPv6 that begin or end among the mapped addresses hold no IPv6 client.
  if (range.first.IsIpv4() != range.last.IsIpv4()) return std::nullopt;
  return range;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool IsSeparator(char c) { return c == '|' || c == ',' || c == ';' || c == ' ' || (c >= '\t' && c <= '\r'); }

std::string WithoutBlanks(std::string_view item) {
  std::string text;
  for (const char c : item) {
    if (!IsBlank(c)) text.push_back(c);
  }
  return text;
}

std::size_t SkipBlanks(std::string_view list, std::size_t pos) {
  while (pos < list.size() && IsBlank(list[pos])) ++pos;
  return pos;
}

// End of the item that begins at `pos`. Blanks before or after a "-" do not end it.
std::size_t ItemEnd(std::string_view list, std::size_t pos) {
  while (pos < list.size()) {
    if (!IsSeparator(list[pos])) {
      ++pos;
      continue;
    }
    if (!IsBlank(list[pos])) return pos;
    const std::size_t next = SkipBlanks(list, pos);
    const bool joined = next < list.size() && !IsSeparator(list[next]) && (list[next] == '-' || list[pos - 1] == '-');
    if (!joined) return pos;
    pos = next;
  }
  return pos;
}

// Sorts by the first address and joins ranges that overlap or touch.
template <typename Range, typename Touches>
void Merge(std::vector<Range>* ranges, Touches&& touches) {
  if (ranges->empty()) return;
  std::sort(ranges->begin(), ranges->end(), [](const Range& a, const Range& b) { return a.first < b.first; });
  auto last = ranges->begin();
  for (auto range = last + 1; range != ranges->end(); ++range) {
    if (touches(last->last, range->first)) {
      last->last = std::max(last->last, range->last);
    } else {
      *++last = *range;
    }
  }
  ranges->erase(last + 1, ranges->end());
  ranges->shrink_to_fit();
}

template <typename Range, typename Address>
bool Holds(const std::vector<Range>& ranges, const Address& address) {
  const auto after = std::upper_bound(ranges.begin(), ranges.end(), address,
                                      [](const Address& a, const Range& range) { return a < range.first; });
  return after != ranges.begin() && address <= (after - 1)->last;
}

}  // namespace

std::optional<IpRange> ParseIpRange(std::string_view item) {
  constexpr std::size_t kMostBytes = 300;
  if (item.size() > kMostBytes) return std::nullopt;
  if (item.ends_with('*')) return ParseWildcard(item);
  const std::size_t slash = item.find('/');
  if (slash != item.npos) return ParseCidr(item.substr(0, slash), item.substr(slash + 1));
  const std::size_t dash = item.find('-');
  if (dash == item.npos) {
    const auto address = CIpAddress::Parse(item);
    return address ? std::optional(IpRange{*address, *address}) : std::nullopt;
  }
  const auto first = CIpAddress::Parse(item.substr(0, dash));
  const auto last = CIpAddress::Parse(item.substr(dash + 1));
  if (!first || !last || first->IsIpv4() != last->IsIpv4() || *last < *first) return std::nullopt;
  return IpRange{*first, *last};
}

std::size_t CIpRanges::Add(std::string_view list, std::vector<Malformed>* malformed) {
  constexpr std::size_t kShownBytes = 64;
  std::size_t failures = 0;
  for (std::size_t pos = 0; pos < list.size();) {
    if (IsSeparator(list[pos])) {
      ++pos;
      continue;
    }
    if (list[pos] == '#') {
      pos = std::min(list.find_first_of("\r\n", pos), list.size());
      continue;
    }
    const std::size_t end = ItemEnd(list, pos);
    const std::string_view item = list.substr(pos, end - pos);
    const bool has_blank = item.find_first_of(" \t") != item.npos;
    const auto range = has_blank ? ParseIpRange(WithoutBlanks(item)) : ParseIpRange(item);
    if (range) {
      Insert(*range);
    } else {
      ++failures;
      if (malformed != nullptr) malformed->push_back({pos, std::string(item.substr(0, kShownBytes))});
    }
    pos = end;
  }
  Normalize();
  return failures;
}

void CIpRanges::Add(const std::vector<IpRange>& ranges) {
  for (const IpRange& range : ranges) Insert(range);
  Normalize();
}

void CIpRanges::Insert(const IpRange& range) {
  if (range.first.IsIpv4()) {
    ipv4_.push_back({range.first.Ipv4(), range.last.Ipv4()});
  } else {
    ipv6_.push_back(range);
  }
}

void CIpRanges::Normalize() {
  Merge(&ipv4_, [](std::uint32_t last, std::uint32_t first) { return last == kLastIpv4 || first <= last + 1; });
  Merge(&ipv6_, [](const CIpAddress& last, const CIpAddress& first) {
    const auto next = last.Next();
    return !next || first <= *next;
  });
}

bool CIpRanges::Contains(const CIpAddress& address) const {
  return address.IsIpv4() ? Holds(ipv4_, address.Ipv4()) : Holds(ipv6_, address);
}

std::vector<IpRange> CIpRanges::Ranges() const {
  std::vector<IpRange> ranges;
  ranges.reserve(ipv4_.size() + ipv6_.size());
  for (const Ipv4Range& range : ipv4_) {
    ranges.push_back({CIpAddress::FromIpv4(range.first), CIpAddress::FromIpv4(range.last)});
  }
  ranges.insert(ranges.end(), ipv6_.begin(), ipv6_.end());
  return ranges;
}

}  // namespace qiv
