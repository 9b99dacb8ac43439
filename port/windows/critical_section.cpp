#include "port/critical_section.h"

#include <windows.h>

namespace qiv {

// A slim lock needs no clean-up and cannot fail, unlike a CRITICAL_SECTION.
struct CCriticalSection::Impl {
  SRWLOCK lock = SRWLOCK_INIT;
};

CCriticalSection::CCriticalSection() : impl_(std::make_unique<Impl>()) {}
CCriticalSection::~CCriticalSection() = default;

void CCriticalSection::Enter() { AcquireSRWLockExclusive(&impl_->lock); }
void CCriticalSection::Leave() { ReleaseSRWLockExclusive(&impl_->lock); }

}  // namespace qiv
