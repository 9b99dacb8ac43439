// The lists and limits of the access protections in the form in which requests ask them: who may come when, from where,
// how often, and how large a request may be.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/area_library.h"
#include "common/ip_address.h"
#include "config/list_settings.h"
#include "config/path_list.h"

namespace qiv {

struct WebsiteConfig;

/// "HH:MM-HH:MM" after optional weekdays "1-5 " or "1,3,5 " (1 Monday ... 7 Sunday). The end does not belong to it,
/// save "24:00"; a span whose end is not later than its begin crosses midnight and belongs to the day on which it
/// begins.
struct TimeSpan {
  std::bitset<7> days;  ///< bit 0: Monday
  int begin = 0;        ///< minutes since midnight, 0-1439
  int end = 0;          ///< minutes since midnight, 0-1440

  /// `weekday`: 0 Sunday ... 6, as in CalendarTime; `minute` since midnight.
  bool Holds(int weekday, int minute) const;
};
std::optional<TimeSpan> ParseTimeSpan(std::string_view text);

/// A limit in bytes for the header of that name, in lower case.
using HeaderLimit = std::pair<std::string, std::uint32_t>;
/// "Name:limit"; nothing for any other text.
std::optional<HeaderLimit> ParseHeaderLimit(std::string_view text);

/// A set of file name extensions, in lower case. Immutable; thread safe.
class CExtensions {
 public:
  CExtensions() = default;
  /// As the record holds them: separated by "," or "|", a dot in front does not matter.
  explicit CExtensions(std::string_view wrapped);
  bool Empty() const { return items_.empty(); }
  bool Holds(std::string_view extension) const;

 private:
  std::vector<std::string> items_;  ///< sorted
};

/// What the method filter admits.
struct MethodFilter {
  std::vector<std::string> names;  ///< in lower case
  bool rpc = false;                ///< RPC_IN_DATA, RPC_OUT_DATA, RDG_IN_DATA, RDG_OUT_DATA
  bool other = false;              ///< whatever is not one of the methods that have a name in the list's documentation

  /// `method` as sent.
  bool Admits(std::string_view method) const;
};

struct PreparedAccess {
  CPathList static_urls;
  CPathList admin_urls;
  CPathList admin_white_urls;
  CIpRanges admin_ips;
  CAreaNames admin_areas;
  CPathList timelimit_limit_urls;
  std::vector<TimeSpan> timelimit_auth_times;
  CExtensions link_file_types;
  std::vector<std::string> link_white_referers;  ///< in lower case, without schemes
  bool link_empty_referer = false;               ///< the list holds "{$empty}"
  CPathList link_white_urls;
  CExtensions type_file_types;
  CPathList type_white_urls;
  CExtensions cc_file_type;
  CPathList cc_allow_urls;
  CIpRanges cc_allow_ips;
  CAreaNames cc_allow_areas;
  CExtensions e404_free_type;
  std::vector<HeaderLimit> overflow_httpheader_rules;
  MethodFilter types;
  CTextList denied_spiders;  ///< pieces of user agents, in lower case
  CTextList known_spiders;   ///< likewise; their addresses are known
};

/// Items of a list that are no time spans, header limits and so on: the key ("website_protect.timelimit_auth_times")
/// and each of them.
struct MalformedItems {
  std::string key;
  std::vector<std::string> items;
};

/// A URL behind its "scheme://"; one without a scheme, or with something before it, whole.
std::string_view WithoutScheme(std::string_view url);

/// Items that cannot be read are left out and named in *malformed.
PreparedAccess PrepareAccess(const WebsiteConfig& config, std::vector<MalformedItems>* malformed);

}  // namespace qiv
