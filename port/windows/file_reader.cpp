#include "port/file_reader.h"

#include <windows.h>

#include "port/windows/wide_path.h"

namespace qiv {
namespace {

std::uint64_t Join(DWORD high, DWORD low) { return static_cast<std::uint64_t>(high) << 32 | low; }

HANDLE HandleOf(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

}  // namespace

CFileReader::CFileReader(const std::string& path) {
  const HANDLE file =
      CreateFileW(WidePath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  BY_HANDLE_FILE_INFORMATION info;
  if (GetFileType(file) != FILE_TYPE_DISK || !GetFileInformationByHandle(file, &info)) {
    CloseHandle(file);
    return;
  }
  handle_ = reinterpret_cast<std::intptr_t>(file);
  identity_ = {info.dwVolumeSerialNumber, Join(info.nFileIndexHigh, info.nFileIndexLow)};
}

CFileReader::~CFileReader() {
  if (IsOpen()) CloseHandle(HandleOf(handle_));
}

ReadFileResult CFileReader::ReadPart(std::uint64_t offset, std::size_t limit, std::string* content) const {
  return ReadHandlePart(HandleOf(handle_), offset, limit, content);
}

std::uint64_t CFileReader::Size() const {
  LARGE_INTEGER size;
  return IsOpen() && GetFileSizeEx(HandleOf(handle_), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

}  // namespace qiv
