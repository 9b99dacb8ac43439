// URL lists: items that name a URL piece, or a page and parameter names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"

namespace qiv {

/// A prepared URL list. Immutable after construction; thread safe. A look-up is one or two passes over the URL, however
/// long the list.
class CUrlExemptions {
 public:
  CUrlExemptions() = default;
  /// `setting`: items separated by "|" (a GBK trail byte 0x7C does not separate). An item with "%" is percent-decoded.
  /// An item with double-byte text matches in its GBK and in its UTF-8 form. Empty items and names count for nothing.
  explicit CUrlExemptions(std::string_view setting);

  bool Empty() const { return item_count_ == 0; }

  /// Whether an entry exempts the request: the raw URL contains the whole item; or, for an item "page?name&name", the
  /// path ends with the page (any page when it is empty) and a piece of the raw URL's query contains one of the names.
  bool Matches(std::string_view raw_url, std::string_view path) const;

 private:
  // Lists in construction.
  struct Parts {
    std::vector<std::string> items;
    std::vector<std::string> names;
  };
  void Add(std::string item, Parts* parts);

  std::size_t item_count_ = 0;
  CMultiPattern items_;
  // The parameter names of all items; a name holds no "&", so it occurs in the query exactly when it occurs in a piece.
  CMultiPattern names_;
  std::vector<std::uint32_t> page_of_name_;  ///< index into pages_
  std::vector<std::string> pages_;
};

}  // namespace qiv
