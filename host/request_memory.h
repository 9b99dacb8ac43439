// Memory that lives as long as one request.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "iis/http_types.h"

namespace qiv::host {

/// Hands out memory that is freed together by Release. Blocks of a few KiB are shared by small pieces; with the address
/// sanitizer every piece is a block of its own, so that a module's overrun or stale pointer is seen at once.
/// Not thread safe: a request is worked on by one thread at a time.
class CRequestMemory {
 public:
  CRequestMemory() = default;
  ~CRequestMemory();
  CRequestMemory(const CRequestMemory&) = delete;
  CRequestMemory& operator=(const CRequestMemory&) = delete;

  /// Aligned to 16 bytes; null when there is no memory. A size of 0 gives a valid pointer to nothing.
  void* Allocate(std::size_t size);

  /// A copy with a terminator behind it. Throws std::bad_alloc.
  char* CopyText(std::string_view text);
  iis::WCHAR* CopyText(std::u16string_view text);

  /// Frees everything; the first shared block is kept for the next request.
  void Release();

 private:
  static constexpr std::size_t kBlockSize = 8192;
  std::vector<void*> blocks_;
  std::unique_ptr<char[]> shared_;  ///< first shared block, kept over Release
  char* free_ = nullptr;
  std::size_t left_ = 0;
};

}  // namespace qiv::host
