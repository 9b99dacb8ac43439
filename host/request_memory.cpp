#include "host/request_memory.h"

#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define QIV_HOST_SEPARATE_PIECES 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QIV_HOST_SEPARATE_PIECES 1
#endif
#endif

namespace qiv::host {

CRequestMemory::~CRequestMemory() { Release(); }

void* CRequestMemory::Allocate(std::size_t size) {
#if defined(QIV_HOST_SEPARATE_PIECES)
  const bool separate = true;
#else
  const bool separate = size > kBlockSize / 4;
#endif
  if (separate) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block != nullptr) blocks_.push_back(block);
    return block;
  }
  const std::size_t rounded = (size + 15) & ~std::size_t{15};
  if (rounded > left_) {
    if (shared_ == nullptr) {
      shared_ = std::make_unique<char[]>(kBlockSize);
      free_ = shared_.get();
    } else {
      void* block = std::malloc(kBlockSize);
      if (block == nullptr) return nullptr;
      blocks_.push_back(block);
      free_ = static_cast<char*>(block);
    }
    left_ = kBlockSize;
  }
  void* piece = free_;
  free_ += rounded;
  left_ -= rounded;
  return piece;
}

char* CRequestMemory::CopyText(std::string_view text) {
  char* copy = static_cast<char*>(Allocate(text.size() + 1));
  if (copy == nullptr) throw std::bad_alloc();
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = 0;
  return copy;
}

iis::WCHAR* CRequestMemory::CopyText(std::u16string_view text) {
  auto* copy = static_cast<iis::WCHAR*>(Allocate((text.size() + 1) * sizeof(iis::WCHAR)));
  if (copy == nullptr) throw std::bad_alloc();
  if (!text.empty()) std::memcpy(copy, text.data(), text.size() * sizeof(iis::WCHAR));
  copy[text.size()] = 0;
  return copy;
}

void CRequestMemory::Release() {
  for (void* block : blocks_) std::free(block);
  blocks_.clear();
  free_ = shared_.get();
  left_ = shared_ == nullptr ? 0 : kBlockSize;
}

}  // namespace qiv::host
