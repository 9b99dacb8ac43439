#include "host/response_framer.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <string_view>

#include "host/ascii.h"
#include "host/file_handle.h"
#include "host/http_date.h"
#include "iis/header_names.h"
#include "port/clock.h"

namespace qiv::host {
namespace {

void AppendField(std::string_view name, std::string_view value, std::string* out) {
  out->append(name).append(": ").append(value).append("\r\n");
}

void AppendNumber(std::uint64_t number, std::string* out) {
  char digits[20];
  const auto end = std::to_chars(digits, digits + sizeof digits, number);
  out->append(digits, end.ptr);
}

bool HasNoBody(int status) { return status < 200 || status == 204 || status == 304; }

/// Headers that the wire itself decides.
bool IsOwnHeader(int id) {
  return id == iis::HttpHeaderContentLength || id == iis::HttpHeaderTransferEncoding ||
         id == iis::HttpHeaderConnection || id == iis::HttpHeaderKeepAlive || id == iis::HttpHeaderUpgrade ||
         id == iis::HttpHeaderServer;
}

}  // namespace

std::uint64_t BodyBytes(const OutgoingPiece& piece) {
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < piece.chunk_count; ++i) {
    const iis::HTTP_DATA_CHUNK& chunk = piece.chunks[i];
    if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
      total += chunk.FromMemory.BufferLength;
    } else if (chunk.DataChunkType == iis::HttpDataChunkFromFileHandle) {
      const iis::HTTP_BYTE_RANGE& range = chunk.FromFileHandle.ByteRange;
      if (range.Length != iis::HTTP_BYTE_RANGE_TO_EOF) {
        total += range.Length;
      } else {
        const std::uint64_t size = SizeOfFile(chunk.FromFileHandle.FileHandle);
        total += size > range.StartingOffset ? size - range.StartingOffset : 0;
      }
    }
  }
  return total;
}

void CResponseFramer::Decide(const OutgoingPiece& piece, std::uint64_t body_bytes) {
  const iis::HTTP_KNOWN_HEADER& header = piece.response->Headers.KnownHeaders[iis::HttpHeaderContentLength];
  const bool given =
      header.pRawValue != nullptr && ParseDecimal(TrimBlanks({header.pRawValue, header.RawValueLength}), &announced_);
  if (HasNoBody(piece.response->StatusCode)) {
    mode_ = Mode::kNone;
    announce_ = given && piece.response->StatusCode == 304;
    return;
  }
  if (head_request_) {
    // The body is not sent; its length is told when it is known.
    mode_ = Mode::kNone;
    announce_ = given || !piece.more_data;
    if (!given) announced_ = body_bytes;
    return;
  }
  if (!piece.more_data) {
    if (given && announced_ != body_bytes) mismatch_ = true;
    announced_ = body_bytes;
  }
  if (given || !piece.more_data) {
    mode_ = Mode::kLength;
    announce_ = true;
    left_ = announced_;
  } else if (minor_version_ >= 1) {
    mode_ = Mode::kChunked;
  } else {
    mode_ = Mode::kUntilClose;
    keep_alive_ = false;
  }
}

void CResponseFramer::AppendHead(const OutgoingPiece& piece, std::uint64_t body_bytes, std::string* out) {
  const iis::HTTP_RESPONSE& response = *piece.response;
  const iis::HTTP_RESPONSE_HEADERS& headers = response.Headers;
  Decide(piece, body_bytes);
  const iis::HTTP_KNOWN_HEADER& connection = headers.KnownHeaders[iis::HttpHeaderConnection];
  const bool asks_close =
      connection.pRawValue != nullptr && ListHolds({connection.pRawValue, connection.RawValueLength}, "close");
  if (piece.disconnect || asks_close) keep_alive_ = false;

  out->append("HTTP/1.1 ");
  AppendNumber(response.StatusCode, out);
  out->append(" ").append(response.pReason == nullptr ? "" : response.pReason, response.ReasonLength).append("\r\n");
  const bool switches = response.StatusCode == 101;
  for (int id = 0; id < iis::HttpHeaderResponseMaximum; ++id) {
    const iis::HTTP_KNOWN_HEADER& header = headers.KnownHeaders[id];
    if (header.pRawValue == nullptr) continue;
    if (IsOwnHeader(id) && !(switches && id == iis::HttpHeaderUpgrade)) continue;
    AppendField(iis::ResponseHeaderName(id), {header.pRawValue, header.RawValueLength}, out);
  }
  bool has_server = headers.KnownHeaders[iis::HttpHeaderServer].pRawValue != nullptr;
  for (std::size_t i = 0; i < headers.UnknownHeaderCount; ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    const std::string_view name(header.pName, header.NameLength);
    has_server = has_server || EqualsIgnoreCase(name, "Server");
    AppendField(name, {header.pRawValue == nullptr ? "" : header.pRawValue, header.RawValueLength}, out);
  }
  // The lowest layer names itself when nobody above said anything about Server.
  if (!has_server) AppendField("Server", "qivhost-http", out);
  if (headers.KnownHeaders[iis::HttpHeaderDate].pRawValue == nullptr) AppendField("Date", CurrentHttpDate(), out);
  if (announce_) {
    out->append("Content-Length: ");
    AppendNumber(announced_, out);
    out->append("\r\n");
  } else if (mode_ == Mode::kChunked) {
    AppendField("Transfer-Encoding", "chunked", out);
  }
  if (switches) {
    AppendField("Connection", "Upgrade", out);
    keep_alive_ = false;  // for requests
  } else if (!keep_alive_) {
    AppendField("Connection", "close", out);
  } else if (minor_version_ == 0) {
    AppendField("Connection", "keep-alive", out);
  }
  out->append("\r\n");
}

std::uint64_t CResponseFramer::Admit(std::uint64_t size) {
  switch (mode_) {
    case Mode::kUndecided:  // headers were suppressed: the body alone, until the connection closes
      keep_alive_ = false;
      return head_request_ ? 0 : size;
    case Mode::kNone:
      return 0;
    case Mode::kLength: {
      const std::uint64_t admitted = std::min(size, left_);
      left_ -= admitted;
      if (admitted < size) {
        mismatch_ = true;
        keep_alive_ = false;
      }
      return admitted;
    }
    case Mode::kChunked:
    case Mode::kUntilClose:
      break;
  }
  return size;
}

void CResponseFramer::End() {
  if (mode_ != Mode::kLength || left_ == 0) return;
  mismatch_ = true;
  keep_alive_ = false;
}

}  // namespace qiv::host
