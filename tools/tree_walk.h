// The files below some paths, in the order of their paths' bytes, without recursion.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "port/directory.h"

namespace qiv {

/// Whether the glob `pattern` describes the whole `text`: "*" is any bytes, "?" one byte. At most pattern times text
/// steps.
bool MatchesGlob(std::string_view pattern, std::string_view text);

struct TreeWalkOptions {
  bool follow_links = false;
  /// Globs of what is left out, folders with all they hold. One with "/" is held against the path as it is printed, one
  /// without against the name alone.
  std::vector<std::string> exclude;
};

/// One walk. When links are followed, each folder is entered once, however many lead to it. Not thread safe.
class CTreeWalk {
 public:
  /// A given path is followed even when it is a link; it may be a file or a folder.
  CTreeWalk(std::vector<std::string> paths, TreeWalkOptions options);

  struct Step {
    std::string path;
    std::string error;  ///< what is wrong with it; empty for a file to be looked at
  };
  /// The next file or error; false at the end. What vanishes during the walk is left out; pipes, devices and sockets
  /// below a folder too.
  bool Next(Step* step);

  std::uint64_t LinksPassedOver() const { return links_; }

 private:
  // A folder being walked, with what is left of it.
  struct Level {
    std::size_t path_length;              // of path_, with the separator
    std::vector<DirectoryEntry> entries;  // the next one last
  };

  bool NextGiven(Step* step);
  bool Visit(PathKind kind, Step* step);
  bool Enter(Step* step);
  bool IsExcluded(std::string_view name) const;

  std::vector<std::string> given_;  // the next one last
  TreeWalkOptions options_;
  std::string path_;  // of the entry at hand
  std::vector<Level> levels_;
  std::set<DirectoryIdentity> entered_;
  std::uint64_t links_ = 0;
};

}  // namespace qiv
