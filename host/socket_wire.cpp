#include "host/socket_wire.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "host/file_handle.h"

namespace qiv::host {
namespace {

constexpr std::size_t kReadSize = 32768;
constexpr std::size_t kIdleCapacity = 4096;
constexpr std::size_t kCoalesceLimit = 32768;      ///< larger pieces are sent from where they are
constexpr std::uint64_t kDrainLimit = 256 * 1024;  ///< an unread body up to this is skipped to keep the connection

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
  decoder_ = CChunkedDecoder();
  body_left_ = chunked_ ? 0 : head.content_length.value_or(0);
  body_over_ = !chunked_ && body_left_ == 0;
  continue_wanted_ = head.expects_continue && !body_over_;
  body_lost_ = failed_ = complete_ = false;
  bytes_sent_ = 0;
}

void CSocketWire::SendContinue() {
  // Who has sent body bytes already is not waiting.
  if (continue_wanted_ && input_.View().empty()) {
    static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
    if (WriteAll(socket_, kContinue.data(), kContinue.size(), timeout_) != IoStatus::kDone) body_lost_ = true;
  }
  continue_wanted_ = false;
}

bool CSocketWire::Fill() {
  std::size_t room = 0;
  char* at = input_.Room(kReadSize, &room);
  const IoResult result = ReadWithin(socket_, at, room, timeout_);
  if (result.status != IoStatus::kDone) return false;
  input_.Added(result.bytes);
  return true;
}

BodyRead CSocketWire::ReadBody(char* buffer, std::size_t size, std::size_t* got) {
  if (body_over_) return BodyRead::kEnd;
  SendContinue();
  while (!body_lost_) {
    if (input_.View().empty() && !Fill()) break;
    std::string_view view = input_.View();
    if (!chunked_) {
      *got = static_cast<std::size_t>(std::min<std::uint64_t>({view.size(), size, body_left_}));
      std::memcpy(buffer, view.data(), *got);
      input_.Consume(*got);
      body_left_ -= *got;
      body_over_ = body_left_ == 0;
      return BodyRead::kData;
    }
    const std::size_t before = view.size();
    const CChunkedDecoder::Status status = decoder_.Decode(&view, buffer, size, got);
    input_.Consume(before - view.size());
    if (status == CChunkedDecoder::Status::kMalformed) break;
    body_over_ = status == CChunkedDecoder::Status::kDone;
    if (*got > 0) return BodyRead::kData;
    if (body_over_) return BodyRead::kEnd;
  }
  body_lost_ = true;
  return BodyRead::kLost;
}

bool CSocketWire::WriteOut(const char* data, std::size_t size) {
  if (failed_) return false;
  bytes_sent_ += size;
  failed_ = WriteAll(socket_, data, size, timeout_) != IoStatus::kDone;
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

bool CSocketWire::End() {
  if (reset_ || failed_ || body_lost_ || !complete_ || !framer_.keep_alive()) return false;
  char scrap[4096];
  std::uint64_t skipped = 0;
  while (!body_over_ && skipped <= kDrainLimit) {
    std::size_t got = 0;
    if (ReadBody(scrap, sizeof scrap, &got) == BodyRead::kLost) return false;
    skipped += got;
  }
  return body_over_;
}

}  // namespace qiv::host
