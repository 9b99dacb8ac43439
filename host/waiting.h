// Waiting for peers: how long it may take, and who is told of it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "host/socket.h"

namespace qiv::host {

/// The time that one transfer may take: an allowance, and for each byte its share at the least rate. Only time spent
/// waiting for the peer counts, so that a slow application costs its client nothing.
class CPace {
 public:
  /// `silence` is both the allowance and the longest single wait. A rate of 0 asks for none.
  CPace(int silence_milliseconds, unsigned least_bytes_per_second)
      : silence_(silence_milliseconds), rate_(least_bytes_per_second) {}

  void Start() { moved_ = waited_ = 0; }
  void Moved(std::size_t bytes) { moved_ += static_cast<std::int64_t>(bytes); }
  void Waited(std::int64_t microseconds) { waited_ += microseconds; }
  std::int64_t moved() const { return moved_; }

  /// Milliseconds that the next wait may take; 0 when the time is used up.
  int Limit() const {
    if (rate_ == 0) return silence_;
    const std::int64_t left = silence_ + moved_ / rate_ * 1000 + moved_ % rate_ * 1000 / rate_ - waited_ / 1000;
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, silence_));
  }

 private:
  int silence_;
  std::int64_t rate_;
  std::int64_t moved_ = 0;
  std::int64_t waited_ = 0;  ///< microseconds
};

/// A thread that waits for a peer in the middle of a request.
struct Waiter {
  SocketHandle socket = kNoSocket;  ///< the client that may be cut off when too many wait; kNoSocket: nobody
  std::int64_t moved = 0;           ///< bytes that this transfer moved so far
  std::int64_t since = 0;           ///< when the transfer began, MonotonicMicroseconds
  std::size_t place = 0;            ///< used by the room
};

/// Where such threads are known, so that others can do their work meanwhile. Thread safe.
class IWaitingRoom {
 public:
  virtual ~IWaitingRoom() = default;
  /// The waiter stays valid until Leave.
  virtual void Enter(Waiter& waiter) = 0;
  virtual void Leave(Waiter& waiter) = 0;
};

class CWaitingScope {
 public:
  CWaitingScope(IWaitingRoom& room, Waiter& waiter) : room_(room), waiter_(waiter) { room_.Enter(waiter_); }
  ~CWaitingScope() { room_.Leave(waiter_); }
  CWaitingScope(const CWaitingScope&) = delete;
  CWaitingScope& operator=(const CWaitingScope&) = delete;

 private:
  IWaitingRoom& room_;
  Waiter& waiter_;
};

}  // namespace qiv::host
