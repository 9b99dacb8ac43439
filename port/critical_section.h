// A mutual-exclusion lock for short sections.
#pragma once

#include <memory>

#include "port/thread_annotations.h"

namespace qiv {

/// Not recursive: a thread that enters twice without leaving has a bug (deadlock on Linux). Never hold one across a
/// check, a body read or a call into the server.
class QIV_CAPABILITY("critical section") CCriticalSection {
 public:
  CCriticalSection();
  ~CCriticalSection();
  CCriticalSection(const CCriticalSection&) = delete;
  CCriticalSection& operator=(const CCriticalSection&) = delete;

  void Enter() QIV_ACQUIRE();
  void Leave() QIV_RELEASE();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Holds a critical section for the rest of the block.
class QIV_SCOPED_CAPABILITY CAutoLock {
 public:
  explicit CAutoLock(CCriticalSection& section) QIV_ACQUIRE(section) : section_(section) { section_.Enter(); }
  ~CAutoLock() QIV_RELEASE() { section_.Leave(); }
  CAutoLock(const CAutoLock&) = delete;
  CAutoLock& operator=(const CAutoLock&) = delete;

 private:
  CCriticalSection& section_;
};

}  // namespace qiv
