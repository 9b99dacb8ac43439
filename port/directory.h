// What a path is and what a folder holds, for programs that walk trees.
//
// Paths are as in file.h: UTF-8, and on Linux any bytes. All functions are thread safe and throw nothing but
// std::bad_alloc.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qiv {

enum class PathKind : std::uint8_t {
  kMissing,  ///< there is nothing of that name
  kUnknown,  ///< it cannot be examined
  kFile,     ///< a regular file
  kDirectory,
  kLink,   ///< a symbolic link or a junction, whatever it leads to
  kOther,  ///< a device, a pipe, a socket
};

/// What a path leads to in the end; never kLink.
PathKind PathKindOf(const std::string& path);

struct DirectoryEntry {
  std::string name;
  PathKind kind;
};

/// The same for every path that leads to the same folder, as long as it exists.
struct DirectoryIdentity {
  std::uint64_t device = 0;
  std::uint64_t number = 0;

  auto operator<=>(const DirectoryIdentity&) const = default;
};

/// Lists a folder: its entries without "." and ".." in no particular order, links not followed, and which folder it is.
/// False, with empty results, when it cannot be listed whole. On Windows a name that is no valid UTF-16 comes with
/// replacement characters, so that it cannot be opened.
bool ListDirectory(const std::string& path, std::vector<DirectoryEntry>* entries, DirectoryIdentity* identity);

}  // namespace qiv
