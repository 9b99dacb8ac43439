#include "host/response_tail.h"

#include <algorithm>

#include "host/file_handle.h"

namespace qiv::host {
namespace {

constexpr std::size_t kTailLimit = 1u << 20;  ///< of one response; more than that keeps its thread
constexpr std::size_t kAllTailsLimit = 128u << 20;
constexpr std::size_t kFilePiece = 32768;

}  // namespace

std::atomic<std::size_t> CResponseTail::held_by_all{0};

bool CResponseTail::Append(const char* data, std::size_t size) {
  if (size == 0) return true;
  if (held_ + size > kTailLimit || held_by_all + size > kAllTailsLimit) return false;
  if (parts_.empty() || parts_.back().file != nullptr) parts_.emplace_back();
  parts_.back().bytes.append(data, size);
  held_ += size;
  held_by_all += size;
  return true;
}

bool CResponseTail::AppendFile(iis::HANDLE file, std::uint64_t offset, std::uint64_t size) {
  if (size == 0) return true;
  const iis::HANDLE own = DuplicateFile(file);
  if (own == kNoFile) return false;
  Part& part = parts_.emplace_back();
  part.file = own;
  part.offset = offset;
  part.left = size;
  return true;
}

void CResponseTail::PopFront() {
  if (parts_.front().file != nullptr) CloseFile(parts_.front().file);
  parts_.pop_front();
}

void CResponseTail::Clear() {
  while (!parts_.empty()) PopFront();
  held_by_all -= held_;
  held_ = 0;
}

IoStatus CResponseTail::Write(SocketHandle socket, std::size_t* moved) {
  *moved = 0;
  while (!parts_.empty()) {
    Part& part = parts_.front();
    if (part.at == part.bytes.size()) {
      if (part.left == 0) {
        PopFront();
        continue;
      }
      part.bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(part.left, kFilePiece)));
      const std::int64_t got = ReadAt(part.file, part.offset, part.bytes.data(), part.bytes.size());
      if (got <= 0) return IoStatus::kClosed;
      part.bytes.resize(static_cast<std::size_t>(got));
      part.at = 0;
      part.offset += static_cast<std::uint64_t>(got);
      part.left -= static_cast<std::uint64_t>(got);
    }
    const IoResult sent = WriteNow(socket, part.bytes.data() + part.at, part.bytes.size() - part.at);
    if (sent.status != IoStatus::kDone) return sent.status;
    part.at += sent.bytes;
    *moved += sent.bytes;
    if (*moved >= kWriteAtOnce) return IoStatus::kWouldBlock;
  }
  Clear();
  return IoStatus::kDone;
}

}  // namespace qiv::host
