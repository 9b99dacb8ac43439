#include "host/file_handle.h"

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "port/code_page.h"
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace qiv::host {

#if defined(_WIN32)
namespace {

std::int64_t UnixTime(const FILETIME& time) {
  const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;  // 100 ns since 1601
  return static_cast<std::int64_t>(ticks / 10000000) - 11644473600;
}

}  // namespace

const iis::HANDLE kNoFile = INVALID_HANDLE_VALUE;

iis::HANDLE OpenForReading(const std::string& path, FileFacts* facts) {
  const std::u16string wide = Utf8ToUtf16(path);
  const HANDLE file = CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return kNoFile;
  BY_HANDLE_FILE_INFORMATION info;
  if (GetFileType(file) != FILE_TYPE_DISK || !GetFileInformationByHandle(file, &info) ||
      (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    CloseHandle(file);
    return kNoFile;
  }
  facts->size = (std::uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow;
  facts->modified = UnixTime(info.ftLastWriteTime);
  facts->identity = (std::uint64_t{info.ftLastWriteTime.dwHighDateTime} << 32) | info.ftLastWriteTime.dwLowDateTime;
  return file;
}

void CloseFile(iis::HANDLE file) { CloseHandle(file); }

iis::HANDLE DuplicateFile(iis::HANDLE file) {
  HANDLE copy = nullptr;
  const HANDLE process = GetCurrentProcess();
  return DuplicateHandle(process, file, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS) ? copy : kNoFile;
}

std::int64_t ReadAt(iis::HANDLE file, std::uint64_t offset, char* buffer, std::size_t size) {
  OVERLAPPED position{};
  position.Offset = static_cast<DWORD>(offset);
  position.OffsetHigh = static_cast<DWORD>(offset >> 32);
  DWORD got = 0;
  const DWORD wanted = size > (1u << 30) ? (1u << 30) : static_cast<DWORD>(size);
  if (ReadFile(file, buffer, wanted, &got, &position)) return got;
  return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
}

std::uint64_t SizeOfFile(iis::HANDLE file) {
  LARGE_INTEGER size;
  return GetFileSizeEx(file, &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

bool IsFolder(const std::string& path) {
  const std::u16string wide = Utf8ToUtf16(path);
  const DWORD attributes = GetFileAttributesW(reinterpret_cast<const wchar_t*>(wide.c_str()));
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return true;
  SetLastError(ERROR_DIRECTORY);
  return false;
}

#else
namespace {

int Descriptor(iis::HANDLE file) { return static_cast<int>(reinterpret_cast<std::intptr_t>(file)); }

}  // namespace

const iis::HANDLE kNoFile = reinterpret_cast<iis::HANDLE>(std::intptr_t{-1});

iis::HANDLE OpenForReading(const std::string& path, FileFacts* facts) {
  // O_NONBLOCK: opening a pipe must not wait for its writer.
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return kNoFile;
  struct stat info;
  if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(file);
    return kNoFile;
  }
  facts->size = static_cast<std::uint64_t>(info.st_size);
  facts->modified = info.st_mtim.tv_sec;
  facts->identity =
      static_cast<std::uint64_t>(info.st_mtim.tv_sec) * 1000000000u + static_cast<std::uint64_t>(info.st_mtim.tv_nsec);
  return reinterpret_cast<iis::HANDLE>(std::intptr_t{file});
}

void CloseFile(iis::HANDLE file) { close(Descriptor(file)); }

iis::HANDLE DuplicateFile(iis::HANDLE file) {
  const int copy = fcntl(Descriptor(file), F_DUPFD_CLOEXEC, 0);
  return reinterpret_cast<iis::HANDLE>(std::intptr_t{copy});
}

std::int64_t ReadAt(iis::HANDLE file, std::uint64_t offset, char* buffer, std::size_t size) {
  for (;;) {
    const ssize_t got = pread(Descriptor(file), buffer, size, static_cast<off_t>(offset));
    if (got >= 0 || errno != EINTR) return got;
  }
}

std::uint64_t SizeOfFile(iis::HANDLE file) {
  struct stat info;
  return fstat(Descriptor(file), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

bool IsFolder(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return false;
  if (S_ISDIR(info.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}
#endif

}  // namespace qiv::host
