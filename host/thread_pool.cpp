#include <utility>

// Asio needs std::exchange before its own headers.
#include "host/thread_pool.h"

#include <algorithm>
#include <system_error>

#include "port/clock.h"

namespace qiv::host {
namespace {

constexpr int kSpareThreads = 8;                 ///< more than needed before one ends: waits come and go
constexpr std::int64_t kCrowdedAge = 5'000'000;  ///< microseconds in which a client can show how fast it is
constexpr double kCrowdedRate = 4096;            ///< bytes a second that a crowded pool asks for
constexpr double kAnyRate = 1e18;

}  // namespace

void CThreadPool::Start() {
  const CAutoLock hold(lock_);
  total_ = working_;
  for (int i = 0; i < working_; ++i) threads_.emplace_back([this] { io_.run(); });
}

void CThreadPool::Join() {
  std::vector<std::thread> threads;
  {
    const CAutoLock hold(lock_);
    threads.swap(threads_);
  }
  for (std::thread& thread : threads) thread.join();
}

void CThreadPool::BeginRequest() {
  if (++busy_ >= total_) AddThread();
}

void CThreadPool::Enter(Waiter& waiter) {
  {
    const CAutoLock hold(lock_);
    waiter.place = waiters_.size();
    waiters_.push_back(&waiter);
    if (++waiting_ > 2 * crowd_) CutSlowest(0, kAnyRate);
  }
  if (busy_ >= total_) AddThread();
}

void CThreadPool::Leave(Waiter& waiter) {
  const CAutoLock hold(lock_);
  --waiting_;
  waiters_.back()->place = waiter.place;
  waiters_[waiter.place] = waiters_.back();
  waiters_.pop_back();
}

bool CThreadPool::CutSlowest(std::int64_t least_age, double below) {
  const std::int64_t now = MonotonicMicroseconds();
  Waiter* slowest = nullptr;
  for (Waiter* waiter : waiters_) {
    const std::int64_t age = std::max<std::int64_t>(now - waiter->since, 1);
    const double rate = static_cast<double>(waiter->moved) * 1e6 / static_cast<double>(age);
    if (waiter->socket == kNoSocket || age < least_age || rate >= below) continue;
    below = rate;
    slowest = waiter;
  }
  if (slowest == nullptr) return false;
  ShutdownBoth(slowest->socket);
  slowest->socket = kNoSocket;  // it leaves as soon as it wakes
  return true;
}

void CThreadPool::ThinOut(int count) {
  const CAutoLock hold(lock_);
  while (count > 0 && CutSlowest(kCrowdedAge, kCrowdedRate)) --count;
}

/// Starts a thread when all are taken, some of them by waiting.
void CThreadPool::AddThread() {
  const CAutoLock hold(lock_);
  if (busy_ < total_ || busy_ - waiting_ >= working_ || total_ >= working_ + 2 * crowd_) return;
  for (const std::thread::id id : finished_) {
    const auto ended =
        std::find_if(threads_.begin(), threads_.end(), [&](auto& thread) { return thread.get_id() == id; });
    ended->join();
    threads_.erase(ended);
  }
  finished_.clear();
  try {
    threads_.emplace_back([this] {
      while (io_.run_one() > 0 && !IsSurplus()) {
      }
    });
    ++total_;
  } catch (const std::system_error&) {
    // No more threads to be had: those that are there do what they can.
  }
}

bool CThreadPool::IsSurplus() {
  const CAutoLock hold(lock_);
  if (total_ - waiting_ <= working_ + kSpareThreads) return false;
  --total_;
  finished_.push_back(std::this_thread::get_id());
  return true;
}

}  // namespace qiv::host
