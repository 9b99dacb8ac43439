// Open files as the interface's HANDLE.
#pragma once

#include <cstdint>
#include <string>

#include "iis/http_types.h"

namespace qiv::host {

/// An invalid handle: what OpenForReading gives on failure.
extern const iis::HANDLE kNoFile;

struct FileFacts {
  std::uint64_t size = 0;
  std::int64_t modified = 0;   ///< seconds since 1970, UTC
  std::uint64_t identity = 0;  ///< differs when the file was written again
};

/// Opens a regular file for reading at offsets. `path` is UTF-8. kNoFile for anything else (folders, devices).
iis::HANDLE OpenForReading(const std::string& path, FileFacts* facts);
void CloseFile(iis::HANDLE file);
/// A second handle of the same open file; kNoFile when there is none to be had.
iis::HANDLE DuplicateFile(iis::HANDLE file);

/// Reads at an offset; gives the bytes read, 0 at the end, below 0 on an error. Thread safe.
std::int64_t ReadAt(iis::HANDLE file, std::uint64_t offset, char* buffer, std::size_t size);

std::uint64_t SizeOfFile(iis::HANDLE file);

/// Whether the path names a folder.
bool IsFolder(const std::string& path);

}  // namespace qiv::host
