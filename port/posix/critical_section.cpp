#include "port/critical_section.h"

#include <mutex>

namespace qiv {

struct CCriticalSection::Impl {
  std::mutex mutex;
};

CCriticalSection::CCriticalSection() : impl_(std::make_unique<Impl>()) {}
CCriticalSection::~CCriticalSection() = default;

void CCriticalSection::Enter() { impl_->mutex.lock(); }
void CCriticalSection::Leave() { impl_->mutex.unlock(); }

}  // namespace qiv
