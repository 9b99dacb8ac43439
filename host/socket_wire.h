// A client connection as the wire of one request after the other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/http_parser.h"
#include "host/response_framer.h"
#include "host/response_tail.h"
#include "host/socket.h"
#include "host/waiting.h"
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

/// What is known of a body that nobody has read yet, or that nobody wants any more.
enum class BodyState { kOver, kMissing, kLost };

/// Reads bodies lazily and writes responses, blocking with time limits. What the last piece of a response cannot send
/// at once goes into a tail, which the connection sends without a thread. Begin starts each request.
class CSocketWire final : public IWire {
 public:
  CSocketWire(SocketHandle socket, CInputBuffer& input, IWaitingRoom& room, CPace pace)
      : socket_(socket), input_(input), room_(room), body_pace_(pace), send_pace_(pace) {}

  void Begin(const RequestHead& head, bool draining);

  BodyRead ReadBody(char* buffer, std::size_t size, std::size_t* got) override;
  bool Send(const OutgoingPiece& piece, std::size_t* sent) override;
  bool IsConnected() override;
  void Reset() override;
  void SendContinue() override;
  bool OpenTunnel(COwnedSocket upstream, std::string early) override;
  IWaitingRoom* room() override { return &room_; }

  /// Whether no body read would wait: the rest of the body is in the buffer. Looks at each byte once.
  bool HasWholeBody();
  /// Whether the buffer holds as much of a body as is read ahead.
  bool HasEnoughAhead() const;
  /// After the response: drops what the buffer holds of a body that was not read. A long one is not waited for.
  BodyState SkipBody();
  /// Whether the connection serves on, once the tail is out and the body skipped.
  bool keeps() const { return !reset_ && !failed_ && !body_lost_ && complete_ && framer_.keep_alive(); }
  bool has_failed() const { return failed_; }  ///< part of a response could not be sent
  bool was_reset() const { return reset_; }
  bool waits_for_continue() const { return continue_wanted_; }
  std::uint64_t bytes_sent() const { return bytes_sent_; }
  CResponseTail& tail() { return tail_; }
  CPace& body_pace() { return body_pace_; }
  CPace& send_pace() { return send_pace_; }

  /// The other side of a tunnel that was opened; not open when there is none.
  COwnedSocket TakeTunnel(std::string* early);

 private:
  bool TakeHeld(char* buffer, std::size_t size, std::size_t* got, BodyRead* result);
  bool Fill();
  bool Wait(bool write, CPace& pace);
  bool WriteChunks(const OutgoingPiece& piece);
  bool WriteFile(const iis::HTTP_DATA_CHUNK& chunk);
  bool WriteOut(const char* data, std::size_t size);
  bool SendTail();
  bool FlushOut();

  const SocketHandle socket_;
  CInputBuffer& input_;
  IWaitingRoom& room_;
  CPace body_pace_;
  CPace send_pace_;
  std::int64_t began_ = 0;  ///< MonotonicMicroseconds of Begin
  std::string out_;         ///< head and small pieces, sent together
  CResponseTail tail_;
  bool may_defer_ = false;  ///< the last piece is being sent
  COwnedSocket tunnel_;
  std::string tunnel_early_;

  CResponseFramer framer_{false, 1, false};
  CChunkedDecoder decoder_;
  CChunkedDecoder scan_;  ///< runs ahead of decoder_ in a body that was not read yet
  std::size_t scanned_ = 0;
  std::uint64_t skipped_ = 0;
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
