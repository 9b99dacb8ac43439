#include "port/file_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qiv {

CFileReader::CFileReader(const std::string& path) {
  int descriptor;
  do {
    // Without O_NONBLOCK, opening a pipe of that name would wait for a writer.
    descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return;
  struct stat info;
  if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
    ::close(descriptor);
    return;
  }
  handle_ = descriptor;
  identity_ = {static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino)};
}

CFileReader::~CFileReader() {
  if (IsOpen()) ::close(static_cast<int>(handle_));
}

ReadFileResult CFileReader::ReadPart(std::uint64_t offset, std::size_t limit, std::string* content) const {
  return ReadHandlePart(reinterpret_cast<void*>(handle_), offset, limit, content);
}

std::uint64_t CFileReader::Size() const {
  struct stat info;
  return IsOpen() && ::fstat(static_cast<int>(handle_), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

}  // namespace qiv
