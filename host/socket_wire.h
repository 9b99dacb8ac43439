// A client connection as the wire of one request after the other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/http_parser.h"
#include "host/response_framer.h"
#include "host/socket.h"
#include "host/wire.h"

namespace qiv::host {

/// Bytes received and not yet used, in one buffer from the front.
class CInputBuffer {
 public:
  std::string_view View() const { return {data_.data() + begin_, end_ - begin_}; }
  void Consume(std::size_t count);
  /// Room at the back, at least `size` bytes after moving what is held to the front and growing if need be.
  char* Room(std::size_t size, std::size_t* room);
  void Added(std::size_t count) { end_ += count; }
  /// Gives memory back while a connection is idle.
  void Shrink();

 private:
  std::vector<char> data_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

/// Reads bodies lazily and writes responses, blocking with time limits. Begin starts each request, End finishes it.
class CSocketWire final : public IWire {
 public:
  CSocketWire(SocketHandle socket, CInputBuffer& input, int timeout_milliseconds)
      : socket_(socket), input_(input), timeout_(timeout_milliseconds) {}

  void Begin(const RequestHead& head, bool draining);

  BodyRead ReadBody(char* buffer, std::size_t size, std::size_t* got) override;
  bool Send(const OutgoingPiece& piece, std::size_t* sent) override;
  bool IsConnected() override;
  void Reset() override;
  void SendContinue() override;

  /// After the response: skips what is left of a short body. False when the connection must close.
  bool End();
  bool was_reset() const { return reset_; }
  bool body_unread() const { return !body_over_; }
  std::uint64_t bytes_sent() const { return bytes_sent_; }

 private:
  bool Fill();
  bool WriteChunks(const OutgoingPiece& piece);
  bool WriteFile(const iis::HTTP_DATA_CHUNK& chunk);
  bool WriteOut(const char* data, std::size_t size);
  bool FlushOut();

  const SocketHandle socket_;
  CInputBuffer& input_;
  const int timeout_;
  std::string out_;  ///< head and small pieces, sent together

  CResponseFramer framer_{false, 1, false};
  CChunkedDecoder decoder_;
  bool chunked_ = false;
  std::uint64_t body_left_ = 0;
  bool body_over_ = true;
  bool continue_wanted_ = false;
  bool body_lost_ = false;
  bool reset_ = false;
  bool failed_ = false;
  bool complete_ = false;  ///< the last piece went out
  std::uint64_t bytes_sent_ = 0;
};

}  // namespace qiv::host
