// The head of a response as it goes over the wire, and how its body is delimited.
#pragma once

#include <cstdint>
#include <string>

#include "host/wire.h"

namespace qiv::host {

/// Bytes of body in a piece's chunks. Chunks of kinds that cannot be sent count nothing.
std::uint64_t BodyBytes(const OutgoingPiece& piece);

/// One response. Decides between a length, chunked coding and closing the connection, and keeps count, so that what
/// goes out always agrees with what the head announced.
class CResponseFramer {
 public:
  CResponseFramer(bool head_request, int client_minor_version, bool client_keeps_alive)
      : head_request_(head_request), minor_version_(client_minor_version), keep_alive_(client_keeps_alive) {}

  /// Appends status line and headers of the first piece. `body_bytes` is BodyBytes of that piece.
  void AppendHead(const OutgoingPiece& piece, std::uint64_t body_bytes, std::string* out);

  /// How many of the next `size` body bytes may go out.
  std::uint64_t Admit(std::uint64_t size);

  /// Called after the last piece. A body shorter than announced costs the connection.
  void End();

  bool chunked() const { return mode_ == Mode::kChunked; }
  bool keep_alive() const { return keep_alive_; }
  void DropConnection() { keep_alive_ = false; }
  /// The announced length was not the length written.
  bool mismatch() const { return mismatch_; }

 private:
  enum class Mode { kUndecided, kNone, kLength, kChunked, kUntilClose };
  void Decide(const OutgoingPiece& piece, std::uint64_t body_bytes);

  bool head_request_;
  int minor_version_;
  bool keep_alive_;
  Mode mode_ = Mode::kUndecided;
  std::uint64_t left_ = 0;  ///< of an announced length
  bool announce_ = false;   ///< a Content-Length goes into the head
  std::uint64_t announced_ = 0;
  bool mismatch_ = false;
};

}  // namespace qiv::host
