// The threads that run requests.
#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <thread>
#include <vector>

#include "host/waiting.h"
#include "port/critical_section.h"

namespace qiv::host {

/// Threads over one io_context. A module reads bodies and flushes responses synchronously, so a slow peer keeps its
/// thread; but the pool then starts another in its place: `working` threads are always there for requests that get on.
/// Of the waiting ones there are at most twice `waiting`; from `waiting` on the pool is crowded, and whoever would make
/// it full cuts off the slowest client. Thread safe.
class CThreadPool final : public IWaitingRoom {
 public:
  CThreadPool(boost::asio::io_context& io, unsigned working, unsigned waiting)
      : io_(io), working_(static_cast<int>(working)), crowd_(static_cast<int>(waiting)) {}

  void Start();
  /// After the io_context ran out of work.
  void Join();

  /// A request's work on a thread of the pool.
  class CBusyScope {
   public:
    explicit CBusyScope(CThreadPool& pool) : pool_(pool) { pool_.BeginRequest(); }
    ~CBusyScope() { --pool_.busy_; }
    CBusyScope(const CBusyScope&) = delete;
    CBusyScope& operator=(const CBusyScope&) = delete;

   private:
    CThreadPool& pool_;
  };

  void Enter(Waiter& waiter) override;
  void Leave(Waiter& waiter) override;

  /// Nobody should begin what is known to wait.
  bool IsCrowded() const { return waiting_ >= crowd_; }

  /// Ends the slowest waiting clients of those that have had some seconds and are slower than a crowded pool bears.
  void ThinOut(int count);

 private:
  void BeginRequest();
  void AddThread() QIV_EXCLUDES(lock_);
  bool IsSurplus() QIV_EXCLUDES(lock_);
  bool CutSlowest(std::int64_t least_age, double below) QIV_REQUIRES(lock_);

  boost::asio::io_context& io_;
  const int working_;
  const int crowd_;
  std::atomic<int> total_{0};
  std::atomic<int> busy_{0};
  std::atomic<int> waiting_{0};

  CCriticalSection lock_;
  std::vector<Waiter*> waiters_ QIV_GUARDED_BY(lock_);
  std::vector<std::thread> threads_ QIV_GUARDED_BY(lock_);
  std::vector<std::thread::id> finished_ QIV_GUARDED_BY(lock_);
};

}  // namespace qiv::host
