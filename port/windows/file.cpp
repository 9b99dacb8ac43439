#include "port/file.h"

#include <windows.h>
#include <winioctl.h>

#include <atomic>
#include <cstring>
#include <limits>

#include "port/windows/wide_path.h"

#undef ReplaceFile  // a macro of windows.h

namespace qiv {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kMaxPiece = 1U << 30;  // ReadFile and WriteFile count in 32 bits

class CHandle {
 public:
  explicit CHandle(HANDLE handle) : handle_(handle) {}
  ~CHandle() { Close(); }
  CHandle(const CHandle&) = delete;
  CHandle& operator=(const CHandle&) = delete;

  bool Valid() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }
  void Close() {
    if (Valid()) CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  HANDLE handle_;
};

// A scanner or indexer may hold a file for a moment without sharing it, and a file that is being read cannot be
// replaced; such a refusal passes. Few attempts where a request may be waiting.
constexpr int kAttempts = 5;
constexpr DWORD kPauseMilliseconds = 2;
// Readers refuse the exchange of a file while they read it: a writer, who is in no hurry, waits for a gap between them.
constexpr int kReplaceAttempts = 250;

HANDLE Open(const std::string& path, DWORD access, DWORD creation) {
  const std::wstring wide = WidePath(path);
  for (int attempt = 1;; ++attempt) {
    const HANDLE file = CreateFileW(wide.c_str(), access, kShareAll, nullptr, creation, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE || attempt == kAttempts || GetLastError() != ERROR_SHARING_VIOLATION) return file;
    Sleep(kPauseMilliseconds);
  }
}

std::uint64_t Join(DWORD high, DWORD low) { return static_cast<std::uint64_t>(high) << 32 | low; }

bool WriteAll(HANDLE file, std::string_view data) {
  while (!data.empty()) {
    DWORD written = 0;
    const DWORD piece = data.size() > kMaxPiece ? kMaxPiece : static_cast<DWORD>(data.size());
    if (!WriteFile(file, data.data(), piece, &written, nullptr) || written == 0) return false;
    data.remove_prefix(written);
  }
  return true;
}

// Unique among the threads and processes that replace the same file.
std::string TemporaryName(const std::string& path) {
  static std::atomic<std::uint32_t> counter{0};
  return path + "." + std::to_string(GetCurrentProcessId()) + "." + std::to_string(counter++) + ".tmp";
}

bool MoveReplacing(const std::wstring& from, const std::wstring& to, DWORD flags, int attempts) {
  for (int attempt = 1;; ++attempt) {
    if (MoveFileExW(from.c_str(), to.c_str(), flags | MOVEFILE_REPLACE_EXISTING)) return true;
    const DWORD error = GetLastError();
    if (attempt == attempts || (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED)) return false;
    Sleep(kPauseMilliseconds);
  }
}

}  // namespace

std::uint64_t FileModificationTime(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA info;
  if (!GetFileAttributesExW(WidePath(path).c_str(), GetFileExInfoStandard, &info)) return 0;
  return Join(info.ftLastWriteTime.dwHighDateTime, info.ftLastWriteTime.dwLowDateTime);
}

std::optional<std::uint64_t> FileSize(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA info;
  if (!GetFileAttributesExW(WidePath(path).c_str(), GetFileExInfoStandard, &info) ||
      (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return std::nullopt;
  }
  return Join(info.nFileSizeHigh, info.nFileSizeLow);
}

ReadFileResult ReadWholeFile(const std::string& path, std::uint64_t limit, std::string* content) {
  content->clear();
  const CHandle file(Open(path, GENERIC_READ, OPEN_EXISTING));
  LARGE_INTEGER size;
  if (!file.Valid() || GetFileType(file.Get()) != FILE_TYPE_DISK || !GetFileSizeEx(file.Get(), &size)) {
    return ReadFileResult::kUnreadable;
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > limit) return ReadFileResult::kTooLarge;
  // One byte more than the size tells a file that grew meanwhile from one that did not.
  std::size_t used = 0;
  content->resize(static_cast<std::size_t>(size.QuadPart) + 1);
  while (true) {
    if (used == content->size()) content->resize(used + used / 2 + 4096);
    const std::size_t room = content->size() - used;
    DWORD got = 0;
    if (!ReadFile(file.Get(), content->data() + used, room > kMaxPiece ? kMaxPiece : static_cast<DWORD>(room), &got,
                  nullptr)) {
      content->clear();
      return ReadFileResult::kUnreadable;
    }
    if (got == 0) break;
    used += got;
    if (used > limit) {
      content->clear();
      return ReadFileResult::kTooLarge;
    }
  }
  content->resize(used);
  return ReadFileResult::kOk;
}

ReadFileResult ReadFilePart(const std::string& path, std::uint64_t offset, std::size_t limit, std::string* content) {
  content->clear();
  const CHandle file(Open(path, GENERIC_READ, OPEN_EXISTING));
  LARGE_INTEGER size;
  if (!file.Valid() || GetFileType(file.Get()) != FILE_TYPE_DISK || !GetFileSizeEx(file.Get(), &size)) {
    return ReadFileResult::kUnreadable;
  }
  const auto end = static_cast<std::uint64_t>(size.QuadPart);
  if (end <= offset) return ReadFileResult::kOk;
  LARGE_INTEGER position;
  position.QuadPart = static_cast<LONGLONG>(offset);
  if (!SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN)) return ReadFileResult::kUnreadable;
  content->resize(end - offset < limit ? static_cast<std::size_t>(end - offset) : limit);
  std::size_t used = 0;
  while (used < content->size()) {
    const std::size_t room = content->size() - used;
    DWORD got = 0;
    if (!ReadFile(file.Get(), content->data() + used, room > kMaxPiece ? kMaxPiece : static_cast<DWORD>(room), &got,
                  nullptr)) {
      content->clear();
      return ReadFileResult::kUnreadable;
    }
    if (got == 0) break;
    used += got;
  }
  content->resize(used);
  return ReadFileResult::kOk;
}

FileRange NextData(const std::string& path, std::uint64_t offset) {
  const FileRange unknown{offset, std::numeric_limits<std::uint64_t>::max()};
  const CHandle file(Open(path, GENERIC_READ, OPEN_EXISTING));
  LARGE_INTEGER size;
  if (!file.Valid() || !GetFileSizeEx(file.Get(), &size)) return unknown;
  if (static_cast<std::uint64_t>(size.QuadPart) <= offset) return {offset, offset};
  FILE_ALLOCATED_RANGE_BUFFER asked{};
  asked.FileOffset.QuadPart = static_cast<LONGLONG>(offset);
  asked.Length.QuadPart = size.QuadPart - static_cast<LONGLONG>(offset);
  FILE_ALLOCATED_RANGE_BUFFER first{};
  DWORD got = 0;
  // There may be more stretches than the one that there is room for.
  if (!DeviceIoControl(file.Get(), FSCTL_QUERY_ALLOCATED_RANGES, &asked, sizeof asked, &first, sizeof first, &got,
                       nullptr) &&
      GetLastError() != ERROR_MORE_DATA) {
    return unknown;
  }
  if (got < sizeof first) return {offset, offset};
  const auto begin = static_cast<std::uint64_t>(first.FileOffset.QuadPart);
  return {begin > offset ? begin : offset, begin + static_cast<std::uint64_t>(first.Length.QuadPart)};
}

ReadFileResult ReadHandlePart(void* file, std::uint64_t offset, std::size_t limit, std::string* content) {
  // Unbuffered files are read in whole pages, into memory that begins at one.
  constexpr std::uint64_t kPage = 4096;
  content->clear();
  LARGE_INTEGER size;
  if (GetFileType(file) != FILE_TYPE_DISK || !GetFileSizeEx(file, &size)) return ReadFileResult::kUnreadable;
  const auto end = static_cast<std::uint64_t>(size.QuadPart);
  if (end <= offset || limit == 0) return ReadFileResult::kOk;
  const std::uint64_t wanted = end - offset < limit ? end - offset : limit;
  const std::uint64_t begin = offset / kPage * kPage;
  const std::uint64_t span = (offset + wanted - begin + kPage - 1) / kPage * kPage;
  if (span > kMaxPiece) return ReadFileResult::kTooLarge;
  content->resize(static_cast<std::size_t>(wanted));  // first, as it may throw
  std::size_t used = 0;
  const CHandle ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  void* const pages = VirtualAlloc(nullptr, static_cast<SIZE_T>(span), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  ReadFileResult result = ReadFileResult::kUnreadable;
  if (ready.Get() != nullptr && pages != nullptr) {
    OVERLAPPED position{};
    position.Offset = static_cast<DWORD>(begin);
    position.OffsetHigh = static_cast<DWORD>(begin >> 32);
    // With the lowest bit set, a completion port that the file may belong to hears nothing of this.
    position.hEvent = reinterpret_cast<HANDLE>(reinterpret_cast<ULONG_PTR>(ready.Get()) | 1);
    DWORD got = 0;
    const bool started =
        ReadFile(file, pages, static_cast<DWORD>(span), nullptr, &position) || GetLastError() == ERROR_IO_PENDING;
    const bool finished = started && GetOverlappedResult(file, &position, &got, TRUE);
    if (finished || GetLastError() == ERROR_HANDLE_EOF) {
      const std::uint64_t skipped = offset - begin;
      if (got > skipped) used = static_cast<std::size_t>(got - skipped < wanted ? got - skipped : wanted);
      if (used != 0) std::memcpy(content->data(), static_cast<const char*>(pages) + skipped, used);
      result = ReadFileResult::kOk;
    }
  }
  if (pages != nullptr) VirtualFree(pages, 0, MEM_RELEASE);
  content->resize(used);
  return result;
}

namespace {

// Wine takes two steps for an append; the lock keeps at least the threads of one process apart there.
SRWLOCK append_lock = SRWLOCK_INIT;
constexpr int kLooksAtEnd = 3;

bool WriteOnce(HANDLE file, std::string_view data) {
  if (data.size() > kMaxPiece) return false;
  DWORD written = 0;
  AcquireSRWLockExclusive(&append_lock);
  const bool succeeded = WriteFile(file, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
  ReleaseSRWLockExclusive(&append_lock);
  return succeeded && written == data.size();
}

/// Whether the file ends within a line. Of a line that is just being written the size may show a part: one that still
/// grows is looked at again.
bool EndsTorn(HANDLE file) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file, &size)) return false;
  for (int look = 0; look < kLooksAtEnd; ++look) {
    const LONGLONG seen = size.QuadPart;
    if (seen == 0) return false;
    OVERLAPPED position{};
    position.Offset = static_cast<DWORD>((seen - 1) & 0xFFFFFFFF);
    position.OffsetHigh = static_cast<DWORD>((seen - 1) >> 32);
    char last = '\n';
    DWORD got = 0;
    if (!ReadFile(file, &last, 1, &got, &position) || got != 1 || last == '\n') return false;
    SwitchToThread();
    if (!GetFileSizeEx(file, &size) || size.QuadPart == seen) break;
  }
  return true;
}

}  // namespace

bool AppendToFile(const std::string& path, std::string_view data) {
  // Append access alone: the system itself moves each write to the end, as one step.
  const CHandle file(Open(path, FILE_APPEND_DATA | SYNCHRONIZE, OPEN_ALWAYS));
  return file.Valid() && WriteOnce(file.Get(), data);
}

bool AppendLine(const std::string& path, std::string_view line) {
  const CHandle file(Open(path, FILE_APPEND_DATA | FILE_READ_DATA | SYNCHRONIZE, OPEN_ALWAYS));
  if (!file.Valid()) return GetLastError() == ERROR_ACCESS_DENIED && AppendToFile(path, line);
  return EndsTorn(file.Get()) ? WriteOnce(file.Get(), "\n" + std::string(line)) : WriteOnce(file.Get(), line);
}

bool ReplaceFile(const std::string& path, std::string_view content) {
  const std::string temporary = TemporaryName(path);
  CHandle file(Open(temporary, GENERIC_WRITE, CREATE_NEW));
  if (!file.Valid()) return false;
  const bool written = WriteAll(file.Get(), content) && FlushFileBuffers(file.Get());
  file.Close();
  const std::wstring source = WidePath(temporary);
  if (written && MoveReplacing(source, WidePath(path), MOVEFILE_WRITE_THROUGH, kReplaceAttempts)) return true;
  DeleteFileW(source.c_str());
  return false;
}

bool MakeDirectory(const std::string& path) {
  const std::wstring wide = WidePath(path);
  if (CreateDirectoryW(wide.c_str(), nullptr)) return true;
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool CreateLike(const std::string& path, const std::string& model) {
  const std::wstring wide_model = WidePath(model);
  DWORD length = 0;
  GetFileSecurityW(wide_model.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &length);
  std::string rights(length, '\0');
  SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), rights.data(), FALSE};
  const bool known = length != 0 && GetFileSecurityW(wide_model.c_str(), DACL_SECURITY_INFORMATION, rights.data(),
                                                     length, &length) != FALSE;
  const CHandle file(CreateFileW(WidePath(path).c_str(), GENERIC_WRITE, kShareAll, known ? &attributes : nullptr,
                                 CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  return file.Valid();
}

bool RenameFile(const std::string& from, const std::string& to) {
  return MoveReplacing(WidePath(from), WidePath(to), 0, kAttempts);
}

bool RemoveFile(const std::string& path) {
  // A removed file keeps its name until its last user closes it, so it goes away under another one.
  const std::wstring doomed = WidePath(TemporaryName(path));
  const std::wstring wide = WidePath(path);
  return MoveFileExW(wide.c_str(), doomed.c_str(), 0) ? DeleteFileW(doomed.c_str()) : DeleteFileW(wide.c_str());
}

// An open without any sharing is refused while another one lasts. It asks for no more than those have who may append to
// a log and move it away: a lock file that a crash of the system left behind has the rights of the folder's logs.
CFileLock::CFileLock(const std::string& path)
    : handle_(
          reinterpret_cast<std::intptr_t>(CreateFileW(WidePath(path).c_str(), FILE_APPEND_DATA | DELETE | SYNCHRONIZE,
                                                      0, nullptr, OPEN_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr))) {}

CFileLock::~CFileLock() {
  if (handle_ != kNone) CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace qiv
