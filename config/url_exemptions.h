// URL lists: items that name a URL piece, or a page and parameter names.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// A prepared URL list. Immutable after construction; thread safe.
class CUrlExemptions {
 public:
  CUrlExemptions() = default;
  /// `setting`: items separated by "|" (a GBK trail byte 0x7C does not separate). An item with "%" is percent-decoded.
  /// An item with GBK double-byte text matches in its UTF-8 form too.
  explicit CUrlExemptions(std::string_view setting);

  bool Empty() const { return entries_.empty(); }

  /// Whether an entry exempts the request: the raw URL contains the whole item; or, for an item "page?name&name", the
  /// path ends with the page (any page when it is empty) and a piece of the raw URL's query contains one of the names.
  bool Matches(std::string_view raw_url, std::string_view path) const;

 private:
  struct Entry {
    std::string whole;
    std::string page;
    std::vector<std::string> parameters;
    bool parameter_mode = false;
  };
  static Entry MakeEntry(std::string item);
  std::vector<Entry> entries_;
};

}  // namespace qiv
