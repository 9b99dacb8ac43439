// A lock that can be waited under.
#pragma once

#include <condition_variable>
#include <mutex>

#include "port/thread_annotations.h"

namespace qiv::host {

/// std::mutex for clang's analysis; unlike a critical section it lies in its owner, without memory of its own.
class QIV_CAPABILITY("mutex") CMutex {
 public:
  void Lock() QIV_ACQUIRE() { mutex_.lock(); }
  void Unlock() QIV_RELEASE() { mutex_.unlock(); }

  /// Gives the lock up until `signal` comes. It may also come without a reason.
  void WaitFor(std::condition_variable& signal) QIV_REQUIRES(this) {
    std::unique_lock<std::mutex> held(mutex_, std::adopt_lock);
    signal.wait(held);
    held.release();
  }

 private:
  std::mutex mutex_;
};

/// Holds a mutex for the rest of the block.
class QIV_SCOPED_CAPABILITY CMutexHold {
 public:
  explicit CMutexHold(CMutex& mutex) QIV_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~CMutexHold() QIV_RELEASE() { mutex_.Unlock(); }
  CMutexHold(const CMutexHold&) = delete;
  CMutexHold& operator=(const CMutexHold&) = delete;

 private:
  CMutex& mutex_;
};

}  // namespace qiv::host
