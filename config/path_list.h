// Lists of paths that a protection guards, and of those that it leaves alone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// A prepared list. Immutable after construction; thread safe. A look-up costs one comparison an item and reading.
///
/// An item that begins with "/" is a path from the site's root; another one is a name, or several with "/" between
/// them, in any folder. Either names a file, or a folder and everything below it. "*" stands for any run of bytes, also
/// of none and of several names. Letter case, percent-encoding and GBK or UTF-8 make no difference. Items with "?"
/// count without what follows it.
class CPathList {
 public:
  CPathList() = default;
  /// `setting`: items separated by "|", in GBK.
  explicit CPathList(std::string_view setting);

  bool Empty() const { return items_.empty(); }

  /// `readings`: PathReadings of a request. Whether one of them is named by an item: what a protection asks, so that no
  /// spelling gets round it.
  bool HoldsAny(const std::vector<std::string>& readings) const;
  /// Whether all of them are: what an exception asks, so that no spelling gets into it.
  bool HoldsAll(const std::vector<std::string>& readings) const;

 private:
  bool Holds(std::string_view path) const;

  std::vector<std::string> items_;  ///< in UTF-8 and lower case; "*" in front of what begins anywhere
};

/// Whether `text` is what `pattern` says, "*" in it standing for any run of bytes. Time at most the product of the
/// lengths.
bool MatchesWildcard(std::string_view text, std::string_view pattern);

}  // namespace qiv
