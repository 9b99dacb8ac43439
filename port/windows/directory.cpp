#include "port/directory.h"

#include <windows.h>

#include <string_view>

#include "port/code_page.h"
#include "port/windows/wide_path.h"

namespace qiv {
namespace {

PathKind KindOf(const WIN32_FIND_DATAW& entry) {
  const bool is_link = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                       (entry.dwReserved0 == IO_REPARSE_TAG_SYMLINK || entry.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT);
  if (is_link) return PathKind::kLink;
  if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return PathKind::kDirectory;
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0 ? PathKind::kOther : PathKind::kFile;
}

bool IsMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_NAME;
}

// Opens what the path leads to, to ask about it only.
HANDLE OpenToExamine(const std::string& path) {
  return CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES,
                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                     FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

}  // namespace

PathKind PathKindOf(const std::string& path) {
  const HANDLE handle = OpenToExamine(path);
  if (handle == INVALID_HANDLE_VALUE) return IsMissing(GetLastError()) ? PathKind::kMissing : PathKind::kUnknown;
  BY_HANDLE_FILE_INFORMATION info;
  PathKind kind = PathKind::kOther;
  if (GetFileType(handle) == FILE_TYPE_DISK) {
    kind = PathKind::kUnknown;
    if (GetFileInformationByHandle(handle, &info)) {
      const bool is_directory = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      kind = is_directory ? PathKind::kDirectory : PathKind::kFile;
    }
  }
  CloseHandle(handle);
  return kind;
}

bool ListDirectory(const std::string& path, std::vector<DirectoryEntry>* entries, DirectoryIdentity* identity) {
  entries->clear();
  *identity = {};
  const HANDLE folder = OpenToExamine(path);
  if (folder == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION info;
  const bool known = GetFileInformationByHandle(folder, &info);
  CloseHandle(folder);
  if (!known || (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return false;
  WIN32_FIND_DATAW entry;
  const HANDLE search = FindFirstFileExW(WidePath(path + "/*").c_str(), FindExInfoBasic, &entry, FindExSearchNameMatch,
                                         nullptr, FIND_FIRST_EX_LARGE_FETCH);
  if (search == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
  do {
    std::string name = Utf16ToUtf8(reinterpret_cast<const char16_t*>(entry.cFileName));
    if (name != "." && name != "..") entries->push_back({std::move(name), KindOf(entry)});
  } while (FindNextFileW(search, &entry));
  const bool whole = GetLastError() == ERROR_NO_MORE_FILES;
  FindClose(search);
  if (!whole) {
    entries->clear();
    return false;
  }
  *identity = {info.dwVolumeSerialNumber, static_cast<std::uint64_t>(info.nFileIndexHigh) << 32 | info.nFileIndexLow};
  return true;
}

}  // namespace qiv
