// Builds IP area library files (common/area_library.h reads them).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/ip_address.h"

namespace qiv {

/// The ranges of one address family.
class CAreaBuilder {
 public:
  explicit CAreaBuilder(bool ipv4) : ipv4_(ipv4) {}

  enum class AddResult { kOk, kOtherFamily, kTooManyAreas, kTextTooLong };
  /// Texts in UTF-8. Ranges may come in any order. Where ranges overlap, the one that begins later holds, and of two
  /// with one beginning the shorter, and of two equal ones the one added last: so a small range within a large one
  /// keeps its area.
  AddResult Add(const IpRange& range, std::string_view code, std::string_view name);

  std::size_t RangeCount() const { return ranges_.size(); }
  std::size_t AreaCount() const { return areas_.size(); }

  struct File {
    std::string content;       ///< empty: there were more changes of area than a file holds
    std::size_t starts = 0;    ///< entries of the table
    std::size_t overlaps = 0;  ///< ranges that begin within another one and are not a part of it
  };
  /// The file. To be called once.
  File Build();

 private:
  struct Range {
    IpRange range;
    std::uint16_t area;  ///< from 1
  };
  struct Start {
    CIpAddress address;
    std::uint16_t area;  ///< 0: none
  };
  std::vector<Start> Sweep(std::size_t* overlaps);
  std::string AreaTable(std::string* text) const;

  const bool ipv4_;
  std::map<std::pair<std::string, std::string>, std::uint16_t> numbers_;  ///< code and name -> area
  std::vector<std::pair<std::string, std::string>> areas_;
  std::vector<Range> ranges_;
};

}  // namespace qiv
