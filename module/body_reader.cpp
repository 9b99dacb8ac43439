#include "module/body_reader.h"

#include <algorithm>
#include <cstring>

#include "iis/httpserv.h"

namespace qiv {
namespace {

constexpr std::uint32_t kErrorCodeEof = 38;  // low half of the result that says "no data left"

bool IsEndOfBody(iis::HRESULT hr) { return (static_cast<std::uint32_t>(hr) & 0xFFFF) == kErrorCodeEof; }

constexpr std::uint32_t kFirstCapacity = 64 * 1024;  // what a client gets for a promise alone
constexpr std::uint32_t kStep = 8;                   // from one capacity to the next, below the declared length

/// Bytes in memory of the request, which cannot be freed before its end. So at any time what was read can be given
/// back, without asking for memory once more, and yet all buffers together hold little more than the body: the last has
/// the declared length and each before it an eighth of the next (10 MiB: 64 KiB, 160 KiB, 1.25 MiB, 10 MiB,
/// together 1.15 times the body). Each has a byte more than it needs, so that a body ends in it even where only one
/// more read shows that this is the end. Beyond the declared length capacities double.
class CRequestBuffer {
 public:
  CRequestBuffer(iis::IHttpContext& context, std::uint32_t declared) : context_(context), expected_(declared + 1) {}

  /// Room for at least one more byte, or why there is none.
  UnreadBody MakeRoom() {
    if (size_ < capacity_) return UnreadBody::kNot;
    if (size_ > kMaxBody) return UnreadBody::kTooLarge;
    const std::uint32_t wanted = NextCapacity();
    char* grown = static_cast<char*>(context_.AllocateRequestMemory(wanted));
    if (!grown) return UnreadBody::kNoMemory;
    if (size_ != 0) std::memcpy(grown, data_, size_);
    data_ = grown;
    capacity_ = wanted;
    return UnreadBody::kNot;
  }

  char* End() { return data_ + size_; }
  std::uint32_t Room() const { return std::min(kBodyPiece, capacity_ - size_); }
  void Append(std::uint32_t count) { size_ += count; }

  char* Data() { return data_; }
  std::uint32_t Size() const { return size_; }

 private:
  std::uint32_t NextCapacity() const {
    if (capacity_ >= expected_) return std::min(kMaxBody + 1, std::max(capacity_ * 2, kFirstCapacity));
    const std::uint32_t least = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    std::uint32_t next = expected_;
    while (next / kStep >= least) next /= kStep;
    return capacity_ == 0 ? std::min(next, kFirstCapacity) : next;
  }

  iis::IHttpContext& context_;
  const std::uint32_t expected_;  ///< bytes, one more than declared
  char* data_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
};

/// Why the end was not reached.
UnreadBody ReadToEnd(iis::IHttpRequest& request, CRequestBuffer& buffer) {
  while (request.GetRemainingEntityBytes() != 0) {
    if (const UnreadBody why = buffer.MakeRoom(); why != UnreadBody::kNot) return why;
    const std::uint32_t room = buffer.Room();
    iis::DWORD received = 0;
    iis::BOOL pending = 0;
    const iis::HRESULT hr = request.ReadEntityBody(buffer.End(), room, 0, &received, &pending);
    // The count means nothing after a failure.
    if (iis::Failed(hr)) return IsEndOfBody(hr) ? UnreadBody::kNot : UnreadBody::kUnreadable;
    if (received == 0) return UnreadBody::kNot;  // a success without data would come for ever
    buffer.Append(std::min<std::uint32_t>(received, room));
  }
  return UnreadBody::kNot;
}

}  // namespace

BodyBytes ReadAndRestoreBody(iis::IHttpContext& context, iis::IHttpRequest& request, std::uint32_t declared) noexcept {
  CRequestBuffer buffer(context, declared);
  UnreadBody unread = UnreadBody::kUnreadable;
  try {
    unread = ReadToEnd(request, buffer);
  } catch (...) {
    // A server that throws: what it gave is still given back.
  }
  try {
    if (buffer.Size() != 0 && iis::Failed(request.InsertEntityBody(buffer.Data(), buffer.Size()))) {
      unread = UnreadBody::kUnreadable;
    }
  } catch (...) {
    unread = UnreadBody::kUnreadable;
  }
  return {std::string_view(buffer.Data(), buffer.Size()), unread};
}

}  // namespace qiv
