// Stream sockets with time limits, over the system's own calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace qiv::host {

/// A socket of the system; all of them are in non-blocking mode, waiting is done here.
using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

enum class IoStatus { kDone, kWouldBlock, kClosed, kFailed };

struct IoResult {
  IoStatus status = IoStatus::kFailed;
  std::size_t bytes = 0;
};

/// Reads what is there. kClosed when the peer ended its half.
IoResult ReadNow(SocketHandle socket, char* buffer, std::size_t size);
/// Writes what fits.
IoResult WriteNow(SocketHandle socket, const char* data, std::size_t size);

/// Waits for one of the conditions asked for. Gives false when the time is over.
struct Readiness {
  bool readable = false;
  bool writable = false;
};
bool WaitFor(SocketHandle socket, bool read, bool write, int milliseconds, Readiness* ready);

/// Whether the peer closed its half or the connection is broken. Data that waits to be read hides it.
bool PeerIsGone(SocketHandle socket);

bool IsIpv6(SocketHandle socket);

/// Ends both directions; whoever waits on the socket wakes up. The handle stays valid.
void ShutdownBoth(SocketHandle socket);
void ShutdownWrite(SocketHandle socket);
/// Makes the coming close drop what is unsent and tell the peer by a reset.
void PrepareReset(SocketHandle socket);

/// Lets the system hold little of what a socket is yet to send, whatever its buffers grow to: a client that does not
/// read costs no more than that, in memory and in the time it takes to fill.
void LimitUnsent(SocketHandle socket);

/// Lets this process have as many sockets as the system gives without asking anybody.
void RaiseSocketLimit();

/// A socket of our own, closed with the object.
class COwnedSocket {
 public:
  COwnedSocket() = default;
  explicit COwnedSocket(SocketHandle handle) : handle_(handle) {}
  ~COwnedSocket() { Close(); }
  COwnedSocket(COwnedSocket&& other) noexcept : handle_(other.handle_) { other.handle_ = kNoSocket; }
  COwnedSocket& operator=(COwnedSocket&& other) noexcept {
    if (this != &other) {
      Close();
      handle_ = other.handle_;
      other.handle_ = kNoSocket;
    }
    return *this;
  }
  COwnedSocket(const COwnedSocket&) = delete;
  COwnedSocket& operator=(const COwnedSocket&) = delete;

  SocketHandle handle() const { return handle_; }
  /// Gives the socket away.
  SocketHandle Release() { return std::exchange(handle_, kNoSocket); }
  bool is_open() const { return handle_ != kNoSocket; }
  void Close();

 private:
  SocketHandle handle_ = kNoSocket;
};

/// Connects to the first address of `host` that answers. Not open when none does within the time; `timed_out` tells
/// why.
COwnedSocket ConnectTo(const std::string& host, const std::string& port, int milliseconds, bool* timed_out);

}  // namespace qiv::host
