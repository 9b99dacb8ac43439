// URL black lists: what CUrlExemptions finds in the URL as sent, and other spellings of the same path.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "config/url_exemptions.h"

namespace qiv {

/// A prepared black list of URLs. Immutable after construction; thread safe. The cost of a look-up does not grow with
/// the list.
///
/// An item also matches the path as a server may come to read it: percent-decoded, once and until nothing is left to
/// decode; backslashes as slashes, runs of slashes as one; dot segments resolved; with and without ";parameters" and
/// with and without the dots and blanks that file systems drop from the end of a name; without regard to the case of
/// ASCII letters; in GBK and in UTF-8. Of an item "page?name" the page is held against that path and the names against
/// the decoded query. An item that itself holds what is resolved ("//", "/../", "\", ";") stands for the spelling and
/// matches as sent only.
class CUrlBlackList {
 public:
  CUrlBlackList() = default;
  /// `setting` as for CUrlExemptions.
  explicit CUrlBlackList(std::string_view setting);

  bool Empty() const { return literal_.Empty(); }

  /// `path` as for CUrlExemptions; `readings`: PathReadings of the URL's path.
  bool Matches(std::string_view raw_url, std::string_view path, const std::vector<std::string>& readings) const;

 private:
  bool MatchesQuery(std::string_view query, const std::vector<std::string>& paths) const;

  CUrlExemptions literal_;
  // All in UTF-8 and lower case.
  CMultiPattern pieces_;
  CMultiPattern names_;
  std::vector<std::uint32_t> page_of_name_;  ///< index into pages_
  std::vector<std::string> pages_;
};

}  // namespace qiv
