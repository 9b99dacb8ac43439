#include "host/host_response.h"

#include <algorithm>
#include <cstring>

#include "host/file_handle.h"
#include "host/header_names.h"
#include "host/host_context.h"
#include "host/results.h"
#include "iis/data_chunk.h"

namespace qiv::host {
namespace {

constexpr std::size_t kMaxChunks = 65534;      // per response, as found on the real server
constexpr std::size_t kMaxReasonLength = 512;  // longer ones are refused

bool IsSendable(const iis::HTTP_DATA_CHUNK& chunk) {
  if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
    return chunk.FromMemory.pBuffer != nullptr || chunk.FromMemory.BufferLength == 0;
  }
  return chunk.DataChunkType == iis::HttpDataChunkFromFileHandle && chunk.FromFileHandle.FileHandle != kNoFile;
}

}  // namespace

CHostResponse::CHostResponse(CHostContext& context, IWire& wire)
    : context_(context), wire_(wire), headers_(raw_.Headers, context.memory()) {
  raw_.Version = {1, 1};
  ResetToStart();
}

void CHostResponse::ResetToStart() {
  raw_.StatusCode = 200;
  raw_.pReason = "OK";
  raw_.ReasonLength = 2;
  sub_status_ = 0;
  error_ = 0;
  exception_ = nullptr;
  skip_custom_errors_ = 0;
  ClearHeaders();
}

void CHostResponse::ClearHeaders() {
  raw_.Headers = {};
  // The known slot stays empty but present, which keeps the lower layer from adding a name of its own; the value itself
  // is an unknown header.
  raw_.Headers.KnownHeaders[iis::HttpHeaderServer].pRawValue = "";
  const std::string& name = context_.options().server_name;
  if (!name.empty()) headers_.Append("Server", name);
}

void CHostResponse::Clear() {
  ResetToStart();
  DropChunks();
}

void CHostResponse::DropChunks() {
  raw_.EntityChunkCount = 0;
  buffers_.clear();
  buffered_bytes_ = 0;
}

iis::HRESULT CHostResponse::SetStatus(iis::USHORT status, iis::PCSTR reason, iis::USHORT sub_status, iis::HRESULT error,
                                      iis::IAppHostConfigException* exception, iis::BOOL skip_custom_errors) {
  if (reason == nullptr || status < 100 || status > 999) return kInvalidArgument;
  const std::string_view text(reason);
  if (text.size() > kMaxReasonLength || text.find_first_of("\r\n") != std::string_view::npos) return iis::kInvalidData;
  return Guarded([&] {
    raw_.pReason = context_.memory().CopyText(text);
    raw_.ReasonLength = static_cast<iis::USHORT>(text.size());
    raw_.StatusCode = status;
    sub_status_ = sub_status;
    error_ = error;
    exception_ = exception;
    skip_custom_errors_ = skip_custom_errors;
    return kOk;
  });
}

void CHostResponse::GetStatus(iis::USHORT* status, iis::USHORT* sub_status, iis::PCSTR* reason,
                              iis::USHORT* reason_length, iis::HRESULT* error, iis::PCWSTR* module,
                              iis::DWORD* notification, iis::IAppHostConfigException** exception,
                              iis::BOOL* skip_custom_errors) {
  if (status != nullptr) *status = raw_.StatusCode;
  if (sub_status != nullptr) *sub_status = sub_status_;
  if (reason != nullptr) *reason = raw_.pReason;
  if (reason_length != nullptr) *reason_length = raw_.ReasonLength;
  if (error != nullptr) *error = error_;
  if (module != nullptr) *module = u"";
  if (notification != nullptr) *notification = 0;
  if (exception != nullptr) *exception = exception_;
  if (skip_custom_errors != nullptr) *skip_custom_errors = skip_custom_errors_;
}

iis::HRESULT CHostResponse::SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) {
  return Guarded([&] { return headers_.Set(id, value, length, replace != 0); });
}

iis::HRESULT CHostResponse::SetHeader(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) {
  return Guarded([&] { return headers_.Set(name, value, length, replace != 0); });
}

iis::PCSTR CHostResponse::GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const {
  return headers_.Get(id, length);
}

iis::PCSTR CHostResponse::GetHeader(iis::PCSTR name, iis::USHORT* length) const {
  return headers_.Get(name, length, context_.options().many_values);
}

void CHostResponse::ResetConnection() {
  reset_ = true;
  over_ = true;
  wire_.Reset();
}

void CHostResponse::DisableKernelCache(iis::ULONG reason) {
  Guarded([&] {
    kernel_cache_reasons_.push_back(reason);
    return kOk;
  });
}

iis::HRESULT CHostResponse::Redirect(iis::PCSTR url, iis::BOOL reset_status, iis::BOOL include_parameters) {
  if (url == nullptr) return kInvalidArgument;
  return Guarded([&]() -> iis::HRESULT {
    std::string target(url);
    const iis::HTTP_COOKED_URL& cooked = context_.request().GetRawHttpRequest()->CookedUrl;
    if (target.find("://") == std::string::npos) {
      std::string base;
      const std::size_t path_at = static_cast<std::size_t>(cooked.pAbsPath - cooked.pFullUrl);
      for (std::size_t i = 0; i < path_at; ++i) base.push_back(static_cast<char>(cooked.pFullUrl[i]));
      if (target.empty() || target.front() != '/') base.push_back('/');
      target = base + target;
    }
    if (include_parameters) {
      for (std::size_t i = 0; i < cooked.QueryStringLength / sizeof(iis::WCHAR); ++i) {
        target.push_back(static_cast<char>(cooked.pQueryString[i]));
      }
    }
    if (target.size() > 65535) return kInvalidArgument;
    const auto length = static_cast<iis::USHORT>(target.size());
    const iis::HRESULT result = headers_.Set(iis::HttpHeaderLocation, target.c_str(), length, true);
    if (iis::Failed(result)) return result;
    DropChunks();
    return reset_status ? SetStatus(302, "Redirect", 0, kOk, nullptr, 0) : kOk;
  });
}

iis::HRESULT CHostResponse::AddChunk(const iis::HTTP_DATA_CHUNK& chunk, iis::LONG position) {
  const std::size_t count = raw_.EntityChunkCount;
  if (count >= kMaxChunks) return iis::kArithmeticOverflow;
  const std::size_t room = own_chunks_ != nullptr && raw_.pEntityChunks == own_chunks_ ? chunk_capacity_ : count;
  if (count == room) {
    const std::size_t capacity = count < 4 ? 8 : count * 2;
    auto* grown =
        static_cast<iis::HTTP_DATA_CHUNK*>(context_.memory().Allocate(capacity * sizeof(iis::HTTP_DATA_CHUNK)));
    if (grown == nullptr) return iis::kOutOfMemory;
    if (count > 0) std::memcpy(grown, raw_.pEntityChunks, count * sizeof(iis::HTTP_DATA_CHUNK));
    raw_.pEntityChunks = own_chunks_ = grown;
    chunk_capacity_ = capacity;
  }
  const std::size_t at = position < 0 ? count : std::min<std::size_t>(static_cast<std::size_t>(position), count);
  std::memmove(raw_.pEntityChunks + at + 1, raw_.pEntityChunks + at, (count - at) * sizeof(iis::HTTP_DATA_CHUNK));
  raw_.pEntityChunks[at] = chunk;
  raw_.EntityChunkCount = static_cast<iis::USHORT>(count + 1);
  return kOk;
}

iis::HRESULT CHostResponse::WriteEntityChunkByReference(iis::HTTP_DATA_CHUNK* chunk, iis::LONG position) {
  if (chunk == nullptr || position < -1 || !IsSendable(*chunk)) return kInvalidArgument;
  return Guarded([&] { return AddChunk(*chunk, position); });
}

iis::HRESULT CHostResponse::CopyChunk(const iis::HTTP_DATA_CHUNK& chunk) {
  if (chunk.DataChunkType != iis::HttpDataChunkFromMemory) return AddChunk(chunk, -1);
  const std::size_t size = chunk.FromMemory.BufferLength;
  if (size == 0) return kOk;
  std::unique_ptr<char[]> copy(new char[size]);
  std::memcpy(copy.get(), chunk.FromMemory.pBuffer, size);
  const iis::HRESULT result = AddChunk(iis::MakeMemoryChunk(copy.get(), size), -1);
  if (iis::Failed(result)) return result;
  buffers_.push_back(std::move(copy));
  buffered_bytes_ += size;
  return kOk;
}

iis::HRESULT CHostResponse::WriteEntityChunks(iis::HTTP_DATA_CHUNK* chunks, iis::DWORD count, iis::BOOL async,
                                              iis::BOOL more_data, iis::DWORD* sent, iis::BOOL* pending) {
  if (sent != nullptr) *sent = 0;
  if (pending != nullptr) *pending = 0;
  if ((chunks == nullptr && count > 0) || (async && pending == nullptr)) return kInvalidArgument;
  if (count > kMaxChunks) return iis::kArithmeticOverflow;
  for (iis::DWORD i = 0; i < count; ++i) {
    if (!IsSendable(chunks[i])) return kInvalidArgument;
  }
  if (over_) return reset_ ? iis::kNetnameDeleted : kInvalidArgument;
  return Guarded([&]() -> iis::HRESULT {
    std::size_t written = 0;
    for (iis::DWORD i = 0; i < count; ++i) {
      const iis::HRESULT result = CopyChunk(chunks[i]);
      if (iis::Failed(result)) return result;
      if (chunks[i].DataChunkType == iis::HttpDataChunkFromMemory) written += chunks[i].FromMemory.BufferLength;
    }
    if (sent != nullptr) *sent = static_cast<iis::DWORD>(written);
    if (buffered_ && buffered_bytes_ <= context_.options().response_buffer_limit) return kOk;
    // Only an unbuffered write can end the response; what is merely over the limit goes out as a part.
    iis::DWORD flushed = 0;
    const iis::HRESULT result = Send(buffered_ || more_data != 0, &flushed);
    if (async && iis::Succeeded(result)) {
      *pending = 1;
      context_.QueueCompletion(flushed, kOk);
    }
    return result;
  });
}

iis::HRESULT CHostResponse::Flush(iis::BOOL async, iis::BOOL more_data, iis::DWORD* sent, iis::BOOL* pending) {
  if (pending != nullptr) *pending = 0;
  if (async && pending == nullptr) return kInvalidArgument;
  iis::DWORD count = 0;
  const iis::HRESULT result = Guarded([&] { return Send(more_data != 0, &count); });
  if (sent != nullptr) *sent = count;
  if (async && iis::Succeeded(result)) {
    *pending = 1;
    context_.QueueCompletion(count, kOk);
  }
  return result;
}

iis::HRESULT CHostResponse::Send(bool more_data, iis::DWORD* sent) {
  *sent = 0;
  if (sending_) return kOk;
  if (over_) return reset_ ? iis::kNetnameDeleted : kOk;
  sending_ = true;
  const bool with_head = !headers_sent_ && !suppressed_;
  if (with_head) {
    for (const auto& [name, value] : context_.options().custom_headers) headers_.Append(name, value);
  }
  context_.NotifySendResponse(with_head, more_data, disconnect_);
  if (with_head && raw_.StatusCode >= 400) ReplaceByErrorPage();
  iis::HRESULT result = iis::kNetnameDeleted;
  if (!reset_) {
    OutgoingPiece piece;
    piece.response = &raw_;
    piece.with_head = with_head;
    piece.more_data = more_data;
    piece.disconnect = disconnect_;
    piece.chunks = raw_.pEntityChunks;
    piece.chunk_count = raw_.EntityChunkCount;
    std::size_t bytes = 0;
    const bool handed_over = wire_.Send(piece, &bytes);
    *sent = static_cast<iis::DWORD>(bytes);
    headers_sent_ = headers_sent_ || with_head;
    result = handed_over ? kOk : iis::kNetnameDeleted;
    if (!handed_over || !more_data) over_ = true;
  }
  DropChunks();
  sending_ = false;
  return result;
}

void CHostResponse::Finish() {
  if (over_) return;
  iis::DWORD sent = 0;
  Guarded([&] { return Send(false, &sent); });
}

void CHostResponse::ReplaceByErrorPage() {
  const HostOptions& options = context_.options();
  if (!options.custom_errors) return;
  const bool has_body = raw_.EntityChunkCount > 0;
  if (has_body && options.existing_response == ExistingResponse::kPassThrough) return;
  if (has_body && options.existing_response == ExistingResponse::kAuto && skip_custom_errors_) return;
  for (std::size_t i = 0; i < raw_.EntityChunkCount; ++i) {
    const iis::HTTP_DATA_CHUNK& chunk = raw_.pEntityChunks[i];
    if (chunk.DataChunkType != iis::HttpDataChunkFromMemory) continue;
    replaced_body_.append(static_cast<const char*>(chunk.FromMemory.pBuffer), chunk.FromMemory.BufferLength);
  }
  DropChunks();
  std::string title = std::to_string(raw_.StatusCode);
  title.append(" - ").append(ReasonOf(raw_.StatusCode));
  const std::string page = "<!DOCTYPE html>\r\n<html><head><meta charset=\"utf-8\"><title>" + title +
                           "</title></head>\r\n<body><h2>" + title + "</h2></body></html>\r\n";
  headers_.Delete(iis::HttpHeaderContentLength);
  headers_.Set(iis::HttpHeaderContentType, "text/html", 9, true);
  CopyChunk(iis::MakeMemoryChunk(page.data(), page.size()));
}

iis::HRESULT CHostResponse::SetErrorDescription(iis::PCWSTR text, iis::DWORD length, iis::BOOL) {
  if (text == nullptr) return kInvalidArgument;
  return Guarded([&] {
    error_description_ = context_.memory().CopyText(std::u16string_view(text, length));
    error_description_length_ = length;
    return kOk;
  });
}

iis::PCWSTR CHostResponse::GetErrorDescription(iis::DWORD* length) {
  if (length != nullptr) *length = error_description_length_;
  return error_description_;
}

iis::HRESULT CHostResponse::GetHeaderChanges(iis::DWORD, iis::DWORD*, iis::PCSTR*, iis::DWORD*, iis::PCSTR**,
                                             iis::PCSTR**, iis::DWORD*, iis::DWORD*, iis::DWORD**) {
  return iis::kNotSupported;
}

}  // namespace qiv::host
