// Whole-file reading, appending that several processes can share, and modification times.
//
// Paths are UTF-8 on every system; "/" and (on Windows) "\" both separate. All functions are thread safe and throw
// nothing but std::bad_alloc.
//
// Files are created for their owner and group alone (mode 0640; Windows: as the folder says), for settings, lists and
// logs can quote passwords.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qiv {

/// Time of the last modification at the file system's full resolution, as an opaque number that differs when the file
/// was written again; 0 when the file cannot be examined.
std::uint64_t FileModificationTime(const std::string& path);

/// Size in bytes; nothing when the file cannot be examined or is no regular file.
std::optional<std::uint64_t> FileSize(const std::string& path);

enum class ReadFileResult { kOk, kUnreadable, kTooLarge };

/// Reads a regular file whole. kTooLarge, without reading it, when it is longer than `limit` bytes. The file may be
/// written or replaced by another process meanwhile: on Windows it is opened with every sharing mode.
ReadFileResult ReadWholeFile(const std::string& path, std::uint64_t limit, std::string* content);

/// Reads at most `limit` bytes from `offset` on, opened in the same way. kOk with an empty *content when the file ends
/// at or before `offset`.
ReadFileResult ReadFilePart(const std::string& path, std::uint64_t offset, std::size_t limit, std::string* content);

/// A stretch of a file, from the byte at `begin` up to the one before `end`.
struct FileRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

/// The first stretch at or after `offset` that may hold anything but zero bytes: the rest of a sparse file takes no
/// room on the disk and reads as zeros. Empty (begin == end) when there is none before the end of the file. From
/// `offset` without an end where the system cannot tell or the file cannot be opened: whoever reads there finds out.
FileRange NextData(const std::string& path, std::uint64_t offset);

/// Reads at most `limit` bytes from `offset` on through an open file of somebody else (a HANDLE; elsewhere a descriptor
/// held in a pointer), by absolute offsets. The file may be opened for overlapped or unbuffered reading.
/// kOk with less, or nothing, when the file ends before.
ReadFileResult ReadHandlePart(void* file, std::uint64_t offset, std::size_t limit, std::string* content);

/// Appends `data` with ONE system call, creating the file when missing, so that records of several threads and
/// processes never mix (Windows: append access without write access; Linux: O_APPEND). False when it was not written
/// whole.
bool AppendToFile(const std::string& path, std::string_view data);

/// The same for a line with its end. After a line of which only a part was written (a full disk, a lost machine; also
/// another process's) it begins on a line of its own. Readers pass over empty lines: where the file system shows the
/// size of a write that is still under way, one can come between.
bool AppendLine(const std::string& path, std::string_view line);

/// Writes a temporary file beside `path` and renames it over, so that a reader sees the old content or the new, never a
/// part. False, with nothing changed, on failure. A file that was there keeps its mode and, where the system permits,
/// its owner and group; a new one gets those of its folder, so that what an administrator writes the server can read.
bool ReplaceFile(const std::string& path, std::string_view content);

/// Creates one directory; true when it exists afterwards.
bool MakeDirectory(const std::string& path);

/// Creates an empty file that those may use who may use `model`. False when it is there already, or cannot be created.
bool CreateLike(const std::string& path, const std::string& model);

/// Renames, replacing `to`. False when it failed.
bool RenameFile(const std::string& from, const std::string& to);

/// Removes a file; its name is free at once, even while another process has it open (Windows: if it shares deletion).
/// False when it failed.
bool RemoveFile(const std::string& path);

/// A lock among processes and threads that goes with its holder, however that ends. It stands on a file of its own,
/// created when missing and possibly left behind empty. Never waits: ask Held() whether it was free.
class CFileLock {
 public:
  explicit CFileLock(const std::string& path);
  ~CFileLock();
  CFileLock(const CFileLock&) = delete;
  CFileLock& operator=(const CFileLock&) = delete;

  bool Held() const { return handle_ != kNone; }

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t handle_;  // a file descriptor or a HANDLE
};

}  // namespace qiv
