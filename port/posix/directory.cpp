#include "port/directory.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <string_view>

namespace qiv {
namespace {

PathKind KindOf(mode_t mode) {
  if (S_ISREG(mode)) return PathKind::kFile;
  if (S_ISDIR(mode)) return PathKind::kDirectory;
  return S_ISLNK(mode) ? PathKind::kLink : PathKind::kOther;
}

PathKind KindOf(DIR* directory, const dirent& entry) {
  switch (entry.d_type) {
    case DT_REG:
      return PathKind::kFile;
    case DT_DIR:
      return PathKind::kDirectory;
    case DT_LNK:
      return PathKind::kLink;
    case DT_UNKNOWN: {  // some file systems leave it to the caller to ask
      struct stat info;
      if (::fstatat(::dirfd(directory), entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return PathKind::kUnknown;
      return KindOf(info.st_mode);
    }
    default:
      return PathKind::kOther;
  }
}

}  // namespace

PathKind PathKindOf(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) == 0) return KindOf(info.st_mode);
  return errno == ENOENT || errno == ENOTDIR ? PathKind::kMissing : PathKind::kUnknown;
}

bool ListDirectory(const std::string& path, std::vector<DirectoryEntry>* entries, DirectoryIdentity* identity) {
  entries->clear();
  *identity = {};
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), &::closedir);
  struct stat info;
  if (!directory || ::fstat(::dirfd(directory.get()), &info) != 0) return false;
  while (true) {
    errno = 0;
    const dirent* const entry = ::readdir(directory.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") entries->push_back({std::string(name), KindOf(directory.get(), *entry)});
  }
  if (errno != 0) {
    entries->clear();
    return false;
  }
  *identity = {info.st_dev, info.st_ino};
  return true;
}

}  // namespace qiv
