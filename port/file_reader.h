// A file that stays open while it is read, and stays the same file when its name goes to another: for logs that are
// renamed while somebody follows them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "port/file.h"

namespace qiv {

/// Which file it is, whatever its name: equal exactly for two readers of one file, as long as one of them is open.
struct FileIdentity {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;

  bool operator==(const FileIdentity&) const = default;
};

/// Others may write to, rename and remove the file meanwhile: on Windows it is opened with every sharing mode. Not for
/// several threads at once; throws nothing but std::bad_alloc.
class CFileReader {
 public:
  /// UTF-8. A path that is no regular file, or cannot be opened, gives a reader that is not open.
  explicit CFileReader(const std::string& path);
  ~CFileReader();
  CFileReader(const CFileReader&) = delete;
  CFileReader& operator=(const CFileReader&) = delete;

  bool IsOpen() const { return handle_ != kNone; }
  const FileIdentity& Identity() const { return identity_; }

  /// At most `limit` bytes from `offset` on; kOk with an empty *content when the file ends at or before it.
  ReadFileResult ReadPart(std::uint64_t offset, std::size_t limit, std::string* content) const;
  /// Bytes at this moment; 0 when it cannot be told.
  std::uint64_t Size() const;

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t handle_ = kNone;  // a file descriptor or a HANDLE
  FileIdentity identity_;
};

}  // namespace qiv
