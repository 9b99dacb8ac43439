#include "module/body_reader.h"

#include <algorithm>
#include <cstring>

#include "iis/httpserv.h"

namespace qiv {
namespace {

constexpr std::uint32_t kErrorCodeEof = 38;  // low half of the result that says "no data left"

bool IsEndOfBody(iis::HRESULT hr) { return (static_cast<std::uint32_t>(hr) & 0xFFFF) == kErrorCodeEof; }

/// Bytes in memory of the request, which cannot be freed before its end: growing doubles, so that all buffers together
/// hold at most three times the body.
class CRequestBuffer {
 public:
  explicit CRequestBuffer(iis::IHttpContext& context) : context_(context) {}

  /// Room for at least one more byte. False at the limit, or when the server has no memory.
  bool MakeRoom(std::uint32_t first_capacity) {
    if (size_ < capacity_) return true;
    if (capacity_ == kMaxBody) return false;
    const std::uint32_t wanted =
        capacity_ == 0 ? first_capacity : std::min(kMaxBody, std::max(capacity_ * 2, 16 * kBodyPiece));
    char* grown = static_cast<char*>(context_.AllocateRequestMemory(wanted));
    if (!grown) return false;
    if (size_ != 0) std::memcpy(grown, data_, size_);
    data_ = grown;
    capacity_ = wanted;
    return true;
  }

  char* End() { return data_ + size_; }
  std::uint32_t Room() const { return std::min(kBodyPiece, capacity_ - size_); }
  void Append(std::uint32_t count) { size_ += count; }

  char* Data() { return data_; }
  std::uint32_t Size() const { return size_; }

 private:
  iis::IHttpContext& context_;
  char* data_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
};

/// True when the end was reached.
bool ReadToEnd(iis::IHttpRequest& request, std::uint32_t declared, CRequestBuffer& buffer) {
  while (request.GetRemainingEntityBytes() != 0) {
    if (!buffer.MakeRoom(declared)) return false;
    const std::uint32_t room = buffer.Room();
    iis::DWORD received = 0;
    iis::BOOL pending = 0;
    const iis::HRESULT hr = request.ReadEntityBody(buffer.End(), room, 0, &received, &pending);
    if (iis::Failed(hr)) return IsEndOfBody(hr);  // the count means nothing then
    if (received == 0) return true;               // a success without data would come for ever
    buffer.Append(std::min<std::uint32_t>(received, room));
  }
  return true;
}

}  // namespace

BodyBytes ReadAndRestoreBody(iis::IHttpContext& context, iis::IHttpRequest& request, std::uint32_t declared) noexcept {
  CRequestBuffer buffer(context);
  bool complete = false;
  try {
    complete = ReadToEnd(request, declared, buffer);
  } catch (...) {
    // A server that throws: what it gave is still given back.
  }
  try {
    if (buffer.Size() != 0 && iis::Failed(request.InsertEntityBody(buffer.Data(), buffer.Size()))) complete = false;
  } catch (...) {
    complete = false;
  }
  return {std::string_view(buffer.Data(), buffer.Size()), complete};
}

}  // namespace qiv
