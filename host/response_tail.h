// What a response still owes its client when the request is over.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>

#include "host/socket.h"
#include "iis/http_types.h"

namespace qiv::host {

inline constexpr std::size_t kWriteAtOnce = 256 * 1024;  ///< to one client, then others get their turn

/// Bytes and ranges of files that go out without a thread. Used by one thread at a time; the memory that all tails hold
/// together is limited.
class CResponseTail {
 public:
  CResponseTail() = default;
  ~CResponseTail() { Clear(); }
  CResponseTail(const CResponseTail&) = delete;
  CResponseTail& operator=(const CResponseTail&) = delete;

  bool empty() const { return parts_.empty(); }
  /// Copies. False when there is no room for it.
  bool Append(const char* data, std::size_t size);
  /// Opens the file once more. False when that fails.
  bool AppendFile(iis::HANDLE file, std::uint64_t offset, std::uint64_t size);
  void Clear();

  /// Writes what fits, at most kWriteAtOnce and a piece. kDone when nothing is left, kClosed when a file became
  /// shorter.
  IoStatus Write(SocketHandle socket, std::size_t* moved);

 private:
  struct Part {
    std::string bytes;
    std::size_t at = 0;                  ///< bytes up to here are sent
    std::uint64_t offset = 0, left = 0;  ///< of the file, behind the bytes
    iis::HANDLE file = nullptr;          ///< nullptr: bytes alone
  };
  void PopFront();

  static std::atomic<std::size_t> held_by_all;
  std::deque<Part> parts_;
  std::size_t held_ = 0;
};

}  // namespace qiv::host
