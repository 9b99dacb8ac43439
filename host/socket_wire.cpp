#include "host/socket_wire.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "host/file_handle.h"
#include "port/clock.h"

namespace qiv::host {
namespace {

constexpr std::size_t kReadSize = 32768;
constexpr std::size_t kIdleCapacity = 4096;
constexpr std::size_t kCoalesceLimit = 32768;      ///< larger pieces are sent from where they are
constexpr std::uint64_t kDrainLimit = 256 * 1024;  ///< an unread body up to this is skipped to keep the connection
constexpr std::size_t kReadAhead = 49152;          ///< of a body, while threads are scarce

}  // namespace

void CInputBuffer::Consume(std::size_t count) {
  begin_ += count;
  if (begin_ == end_) begin_ = end_ = 0;
}

char* CInputBuffer::Room(std::size_t size, std::size_t* room) {
  if (data_.size() - end_ < size) {
    if (begin_ != end_) std::memmove(data_.data(), data_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    if (data_.size() - end_ < size) data_.resize(end_ + size);
  }
  *room = data_.size() - end_;
  return data_.data() + end_;
}

void CInputBuffer::Shrink() {
  if (begin_ != end_ || data_.size() <= kIdleCapacity) return;
  data_.resize(kIdleCapacity);
  data_.shrink_to_fit();
}

void CSocketWire::Begin(const RequestHead& head, bool draining) {
  framer_ = CResponseFramer(head.method == "HEAD", head.minor_version,
                            head.keep_alive && !head.length_and_chunked && !draining);
  chunked_ = head.chunked;
  decoder_ = scan_ = CChunkedDecoder();
  scanned_ = 0;
  skipped_ = 0;
  body_pace_.Start();
  send_pace_.Start();
  began_ = MonotonicMicroseconds();
  body_left_ = chunked_ ? 0 : head.content_length.value_or(0);
  body_over_ = !chunked_ && body_left_ == 0;
  continue_wanted_ = head.expects_continue && !body_over_;
  body_lost_ = failed_ = complete_ = false;
  bytes_sent_ = 0;
}

bool CSocketWire::Wait(bool write, CPace& pace) {
  const int limit = pace.Limit();
  if (limit == 0) return false;
  Waiter waiter;
  waiter.socket = socket_;
  waiter.moved = pace.moved();
  waiter.since = began_;
  const CWaitingScope scope(room_, waiter);
  const std::int64_t start = MonotonicMicroseconds();
  Readiness ready;
  const bool came = WaitFor(socket_, !write, write, limit, &ready);
  pace.Waited(MonotonicMicroseconds() - start);
  return came;
}

void CSocketWire::SendContinue() {
  // Who has sent body bytes already is not waiting.
  if (continue_wanted_ && input_.View().empty()) {
    static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
    if (!WriteOut(kContinue.data(), kContinue.size())) body_lost_ = true;
  }
  continue_wanted_ = false;
}

bool CSocketWire::Fill() {
  for (;;) {
    std::size_t room = 0;
    char* at = input_.Room(kReadSize, &room);
    const IoResult result = ReadNow(socket_, at, room);
    if (result.status == IoStatus::kDone) {
      input_.Added(result.bytes);
      body_pace_.Moved(result.bytes);
      return true;
    }
    if (result.status != IoStatus::kWouldBlock || !Wait(false, body_pace_)) return false;
  }
}

bool CSocketWire::HasEnoughAhead() const { return input_.View().size() >= kReadAhead; }

bool CSocketWire::HasWholeBody() {
  std::string_view view = input_.View();
  if (body_over_) return true;
  if (!chunked_) return view.size() >= body_left_;
  view.remove_prefix(scanned_);
  CChunkedDecoder::Status status = CChunkedDecoder::Status::kMore;
  while (status == CChunkedDecoder::Status::kMore && !view.empty()) {
    char scrap[4096];
    std::size_t got = 0;
    status = scan_.Decode(&view, scrap, sizeof scrap, &got);
  }
  scanned_ = input_.View().size() - view.size();
  return status != CChunkedDecoder::Status::kMore;
}

/// Takes body bytes out of the buffer. False when it holds none.
bool CSocketWire::TakeHeld(char* buffer, std::size_t size, std::size_t* got, BodyRead* result) {
  *got = 0;
  *result = body_lost_ ? BodyRead::kLost : BodyRead::kEnd;
  if (body_over_ || body_lost_) return true;
  std::string_view view = input_.View();
  if (view.empty()) return false;
  *result = BodyRead::kData;
  if (!chunked_) {
    *got = static_cast<std::size_t>(std::min<std::uint64_t>({view.size(), size, body_left_}));
    std::memcpy(buffer, view.data(), *got);
    input_.Consume(*got);
    body_left_ -= *got;
    body_over_ = body_left_ == 0;
    return true;
  }
  const std::size_t before = view.size();
  const CChunkedDecoder::Status status = decoder_.Decode(&view, buffer, size, got);
  input_.Consume(before - view.size());
  body_over_ = status == CChunkedDecoder::Status::kDone;
  body_lost_ = status == CChunkedDecoder::Status::kMalformed;
  if (body_lost_) *result = BodyRead::kLost;
  if (body_over_ && *got == 0) *result = BodyRead::kEnd;
  return *got > 0 || *result != BodyRead::kData;
}

BodyRead CSocketWire::ReadBody(char* buffer, std::size_t size, std::size_t* got) {
  BodyRead result = BodyRead::kEnd;
  if (!body_over_) SendContinue();
  while (!TakeHeld(buffer, size, got, &result)) {
    if (!Fill()) body_lost_ = true;
  }
  return result;
}

BodyState CSocketWire::SkipBody() {
  char scrap[4096];
  std::size_t got = 0;
  BodyRead result = BodyRead::kEnd;
  while (TakeHeld(scrap, sizeof scrap, &got, &result)) {
    if (result == BodyRead::kEnd) return BodyState::kOver;
    skipped_ += got;
    if (result == BodyRead::kLost || skipped_ > kDrainLimit) return BodyState::kLost;
  }
  return BodyState::kMissing;
}

/// Sends the tail while its thread waits, when there is more than it can hold.
bool CSocketWire::SendTail() {
  for (;;) {
    std::size_t moved = 0;
    const IoStatus status = tail_.Write(socket_, &moved);
    send_pace_.Moved(moved);
    if (status == IoStatus::kDone) return true;
    if (status != IoStatus::kWouldBlock || !Wait(true, send_pace_)) return false;
  }
}

bool CSocketWire::WriteOut(const char* data, std::size_t size) {
  bytes_sent_ += size;
  while (size > 0 && !failed_) {
    if (!tail_.empty()) {
      if (tail_.Append(data, size)) return true;
      failed_ = !SendTail();
      continue;
    }
    const IoResult sent = WriteNow(socket_, data, size);
    if (sent.status == IoStatus::kDone) {
      send_pace_.Moved(sent.bytes);
      data += sent.bytes;
      size -= sent.bytes;
    } else if (sent.status == IoStatus::kWouldBlock) {
      if (may_defer_ && tail_.Append(data, size)) return true;
      failed_ = !Wait(true, send_pace_);
    } else {
      failed_ = true;
    }
  }
  return !failed_;
}

bool CSocketWire::FlushOut() {
  const bool written = WriteOut(out_.data(), out_.size());
  out_.clear();
  return written;
}

bool CSocketWire::WriteFile(const iis::HTTP_DATA_CHUNK& chunk) {
  std::uint64_t offset = chunk.FromFileHandle.ByteRange.StartingOffset;
  std::uint64_t left = chunk.FromFileHandle.ByteRange.Length;
  const std::uint64_t first = offset;
  while (left > 0) {
    const std::size_t at = out_.size();
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kCoalesceLimit));
    out_.resize(at + wanted);
    const std::int64_t got = ReadAt(chunk.FromFileHandle.FileHandle, offset, out_.data() + at, wanted);
    const std::uint64_t count = got > 0 ? framer_.Admit(static_cast<std::uint64_t>(got)) : 0;
    out_.resize(at + static_cast<std::size_t>(count));
    // A file that became shorter leaves the response incomplete: End sees to the connection.
    if (got <= 0) return true;
    offset += static_cast<std::uint64_t>(got);
    left -= static_cast<std::uint64_t>(got);
    if (out_.size() >= kCoalesceLimit && !FlushOut()) return false;
    if (count == 0) return true;
    const bool had_its_turn = may_defer_ && offset - first >= kWriteAtOnce;
    if (tail_.empty() && !had_its_turn) continue;
    const std::uint64_t size = SizeOfFile(chunk.FromFileHandle.FileHandle);
    const std::uint64_t rest = framer_.Admit(std::min(left, size > offset ? size - offset : 0));
    bytes_sent_ += rest;
    failed_ = !tail_.AppendFile(chunk.FromFileHandle.FileHandle, offset, rest);
    return !failed_;
  }
  return true;
}

bool CSocketWire::WriteChunks(const OutgoingPiece& piece) {
  for (std::size_t i = 0; i < piece.chunk_count; ++i) {
    const iis::HTTP_DATA_CHUNK& chunk = piece.chunks[i];
    if (chunk.DataChunkType == iis::HttpDataChunkFromFileHandle) {
      if (!WriteFile(chunk)) return false;
      continue;
    }
    if (chunk.DataChunkType != iis::HttpDataChunkFromMemory) continue;
    const char* data = static_cast<const char*>(chunk.FromMemory.pBuffer);
    const auto size = static_cast<std::size_t>(framer_.Admit(chunk.FromMemory.BufferLength));
    if (out_.size() + size <= kCoalesceLimit) {
      out_.append(data, size);
    } else if (!FlushOut() || !WriteOut(data, size)) {
      return false;
    }
  }
  return true;
}

bool CSocketWire::Send(const OutgoingPiece& piece, std::size_t* sent) {
  if (reset_ || failed_) return false;
  may_defer_ = !piece.more_data;
  const std::uint64_t body_bytes = BodyBytes(piece);
  *sent = static_cast<std::size_t>(body_bytes);
  if (piece.with_head) {
    // A client that still waits for "100 Continue", or that has much to send, is not waited for.
    if (!body_over_ && (body_left_ > kDrainLimit || continue_wanted_ || body_lost_)) framer_.DropConnection();
    framer_.AppendHead(piece, body_bytes, &out_);
  }
  const bool chunked_piece = framer_.chunked() && body_bytes > 0;
  if (chunked_piece) {
    char digits[20];
    const auto end = std::to_chars(digits, digits + sizeof digits, body_bytes, 16);
    out_.append(digits, end.ptr).append("\r\n");
  }
  const std::uint64_t sent_before = bytes_sent_ + out_.size();
  if (!WriteChunks(piece)) return false;
  if (framer_.chunked() && bytes_sent_ + out_.size() - sent_before != body_bytes) {
    // A file became shorter while it was sent: the chunk cannot be completed.
    Reset();
    return false;
  }
  if (chunked_piece) out_.append("\r\n");
  if (!piece.more_data) {
    if (framer_.chunked()) out_.append("0\r\n\r\n");
    framer_.End();
    complete_ = true;
  }
  return FlushOut();
}

bool CSocketWire::IsConnected() { return !reset_ && !failed_ && !PeerIsGone(socket_); }

void CSocketWire::Reset() {
  reset_ = true;
  PrepareReset(socket_);
}

bool CSocketWire::OpenTunnel(COwnedSocket upstream, std::string early) {
  tunnel_ = std::move(upstream);
  tunnel_early_ = std::move(early);
  return true;
}

COwnedSocket CSocketWire::TakeTunnel(std::string* early) {
  *early = std::move(tunnel_early_);
  return std::move(tunnel_);
}

}  // namespace qiv::host
