#include "port/file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>

namespace qiv {
namespace {

class CDescriptor {
 public:
  explicit CDescriptor(int fd) : fd_(fd) {}
  ~CDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;

  int Get() const { return fd_; }
  // False when the system reports a late write error.
  bool Close() {
    const int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }

 private:
  int fd_;
};

int OpenRetrying(const std::string& path, int flags, mode_t mode) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = ::write(fd, data.data(), data.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Unique among the threads and processes that replace the same file.
std::string TemporaryName(const std::string& path) {
  static std::atomic<std::uint32_t> counter{0};
  return path + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp";
}

}  // namespace

std::uint64_t FileModificationTime(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return 0;
  return static_cast<std::uint64_t>(info.st_mtim.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(info.st_mtim.tv_nsec);
}

std::optional<std::uint64_t> FileSize(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(info.st_size);
}

ReadFileResult ReadWholeFile(const std::string& path, std::uint64_t limit, std::string* content) {
  content->clear();
  // Without O_NONBLOCK, opening a pipe of that name would wait for a writer.
  const CDescriptor file(OpenRetrying(path, O_RDONLY | O_NONBLOCK, 0));
  struct stat info;
  if (file.Get() < 0 || ::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return ReadFileResult::kUnreadable;
  if (static_cast<std::uint64_t>(info.st_size) > limit) return ReadFileResult::kTooLarge;
  // One byte more than the size tells a file that grew meanwhile from one that did not.
  std::size_t used = 0;
  content->resize(static_cast<std::size_t>(info.st_size) + 1);
  while (true) {
    if (used == content->size()) content->resize(used + used / 2 + 4096);
    const ssize_t got = ::read(file.Get(), content->data() + used, content->size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      content->clear();
      return ReadFileResult::kUnreadable;
    }
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
    if (used > limit) {
      content->clear();
      return ReadFileResult::kTooLarge;
    }
  }
  content->resize(used);
  return ReadFileResult::kOk;
}

namespace {

/// Fills *content from `offset` on, and cuts it to what there was.
ReadFileResult ReadAt(int descriptor, std::uint64_t offset, std::string* content) {
  std::size_t used = 0;
  while (used < content->size()) {
    const ssize_t got =
        ::pread(descriptor, content->data() + used, content->size() - used, static_cast<off_t>(offset + used));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      content->clear();
      return ReadFileResult::kUnreadable;
    }
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  content->resize(used);
  return ReadFileResult::kOk;
}

}  // namespace

ReadFileResult ReadFilePart(const std::string& path, std::uint64_t offset, std::size_t limit, std::string* content) {
  content->clear();
  const CDescriptor file(OpenRetrying(path, O_RDONLY | O_NONBLOCK, 0));
  struct stat info;
  if (file.Get() < 0 || ::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return ReadFileResult::kUnreadable;
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (size <= offset) return ReadFileResult::kOk;
  content->resize(static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, limit)));
  return ReadAt(file.Get(), offset, content);
}

FileRange NextData(const std::string& path, std::uint64_t offset) {
  const FileRange unknown{offset, std::numeric_limits<std::uint64_t>::max()};
  const CDescriptor file(OpenRetrying(path, O_RDONLY | O_NONBLOCK, 0));
  if (file.Get() < 0) return unknown;
  const off_t begin = ::lseek(file.Get(), static_cast<off_t>(offset), SEEK_DATA);
  if (begin < 0) return errno == ENXIO ? FileRange{offset, offset} : unknown;
  const off_t end = ::lseek(file.Get(), begin, SEEK_HOLE);
  return end < 0 ? unknown : FileRange{static_cast<std::uint64_t>(begin), static_cast<std::uint64_t>(end)};
}

ReadFileResult ReadHandlePart(void* file, std::uint64_t offset, std::size_t limit, std::string* content) {
  content->clear();
  const int descriptor = static_cast<int>(reinterpret_cast<std::intptr_t>(file));
  struct stat info;
  if (descriptor < 0 || ::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) return ReadFileResult::kUnreadable;
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (size <= offset) return ReadFileResult::kOk;
  content->resize(static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, limit)));
  return ReadAt(descriptor, offset, content);
}

namespace {

constexpr mode_t kNewFileMode = 0640;
constexpr int kLooksAtEnd = 8;  // each finds another line being written

bool WriteOnce(int descriptor, std::string_view data) {
  ssize_t written;
  do {
    written = ::write(descriptor, data.data(), data.size());
  } while (written < 0 && errno == EINTR);
  return written == static_cast<ssize_t>(data.size());
}

/// Whether the file ends within a line. Of a line that is just being written the size may show a part already, so the
/// writer is let finish: a change of times waits for it. A file that then has not grown ends there.
bool EndsTorn(int descriptor) {
  struct stat info;
  if (::fstat(descriptor, &info) != 0) return false;
  for (int look = 0; look < kLooksAtEnd; ++look) {
    const off_t size = info.st_size;
    char last = '\n';
    if (size == 0 || ::pread(descriptor, &last, 1, size - 1) != 1 || last == '\n') return false;
    constexpr timespec kNow{0, UTIME_NOW};
    const timespec times[] = {kNow, kNow};
    ::futimens(descriptor, times);
    if (::fstat(descriptor, &info) != 0 || info.st_size == size) return true;
  }
  return false;
}

/// Whom a new file at `path` is to belong to, and its mode: as the file that it replaces, else as its folder.
struct Ownership {
  explicit Ownership(const std::string& path) {
    struct stat info;
    replaces = ::stat(path.c_str(), &info) == 0;
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    known = replaces || ::stat(folder.c_str(), &info) == 0;
    if (!known) return;
    if (replaces) mode = info.st_mode & 0666;
    owner = info.st_uid;
    group = info.st_gid;
  }

  /// What the system does not permit stays as it is.
  void Give(int descriptor) const {
    struct stat own;
    if (!known || ::fstat(descriptor, &own) != 0) return;
    bool done = own.st_uid == owner && own.st_gid == group;
    if (!done) done = ::fchown(descriptor, owner, group) == 0;
    // Who is not the administrator can still give it to a group of his.
    if (!done && own.st_gid != group) done = ::fchown(descriptor, static_cast<uid_t>(-1), group) == 0;
    if (replaces) ::fchmod(descriptor, mode);  // last: a change of owner takes rights away
  }

  bool known = false;
  bool replaces = false;
  mode_t mode = kNewFileMode;
  uid_t owner = 0;
  gid_t group = 0;
};

}  // namespace

bool AppendToFile(const std::string& path, std::string_view data) {
  CDescriptor file(OpenRetrying(path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK, kNewFileMode));
  return file.Get() >= 0 && WriteOnce(file.Get(), data) && file.Close();
}

bool AppendLine(const std::string& path, std::string_view line) {
  CDescriptor file(OpenRetrying(path, O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK, kNewFileMode));
  if (file.Get() < 0) return errno == EACCES && AppendToFile(path, line);  // it may be written but not read
  const bool written =
      EndsTorn(file.Get()) ? WriteOnce(file.Get(), "\n" + std::string(line)) : WriteOnce(file.Get(), line);
  return written && file.Close();
}

bool ReplaceFile(const std::string& path, std::string_view content) {
  const std::string temporary = TemporaryName(path);
  CDescriptor file(OpenRetrying(temporary, O_WRONLY | O_CREAT | O_EXCL, kNewFileMode));
  if (file.Get() < 0) return false;
  Ownership(path).Give(file.Get());
  // Synchronised before the rename: else a power cut could leave the new name with no content.
  const bool written = WriteAll(file.Get(), content) && ::fsync(file.Get()) == 0;
  if (file.Close() && written && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
  ::unlink(temporary.c_str());
  return false;
}

bool MakeDirectory(const std::string& path) {
  struct stat info;
  return ::mkdir(path.c_str(), 0755) == 0 || (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
}

bool CreateLike(const std::string& path, const std::string& model) {
  struct stat of_model {};
  if (::stat(model.c_str(), &of_model) != 0) return false;
  const CDescriptor file(OpenRetrying(path, O_WRONLY | O_CREAT | O_EXCL, kNewFileMode));
  if (file.Get() < 0) return false;
  // Without the right to give it away it is its creator's.
  if (::fchown(file.Get(), of_model.st_uid, of_model.st_gid) != 0) errno = 0;
  return ::fchmod(file.Get(), of_model.st_mode & 07777U) == 0;
}

bool RenameFile(const std::string& from, const std::string& to) { return ::rename(from.c_str(), to.c_str()) == 0; }

bool RemoveFile(const std::string& path) { return ::unlink(path.c_str()) == 0; }

CFileLock::CFileLock(const std::string& path) : handle_(kNone) {
  const Ownership ownership(path);
  handle_ = OpenRetrying(path, O_RDWR | O_CREAT, kNewFileMode);
  if (handle_ == kNone && errno == EACCES) handle_ = OpenRetrying(path, O_RDONLY, 0);
  if (handle_ == kNone) return;
  if (!ownership.replaces) ownership.Give(static_cast<int>(handle_));
  if (::flock(static_cast<int>(handle_), LOCK_EX | LOCK_NB) == 0) return;
  ::close(static_cast<int>(handle_));
  handle_ = kNone;
}

CFileLock::~CFileLock() {
  if (handle_ == kNone) return;
  // Said aloud, because a child that is just being started holds a copy of the descriptor until it runs its program.
  ::flock(static_cast<int>(handle_), LOCK_UN);
  ::close(static_cast<int>(handle_));
}

}  // namespace qiv
