// Names of the headers that the server knows by number.
#pragma once

#include <string_view>

#include "iis/http_types.h"

namespace iis {

// clang-format off
/// By HTTP_HEADER_ID.
inline constexpr std::string_view kRequestHeaderNames[HttpHeaderRequestMaximum] = {
    "Cache-Control", "Connection", "Date", "Keep-Alive", "Pragma", "Trailer", "Transfer-Encoding", "Upgrade", "Via",
    "Warning", "Allow", "Content-Length", "Content-Type", "Content-Encoding", "Content-Language", "Content-Location",
    "Content-Md5", "Content-Range", "Expires", "Last-Modified", "Accept", "Accept-Charset", "Accept-Encoding",
    "Accept-Language", "Authorization", "Cookie", "Expect", "From", "Host", "If-Match", "If-Modified-Since",
    "If-None-Match", "If-Range", "If-Unmodified-Since", "Max-Forwards", "Proxy-Authorization", "Referer", "Range",
    "Te", "Translate", "User-Agent"};
/// The same from HttpHeaderAcceptRanges on; before it they are those of requests.
inline constexpr std::string_view kResponseOwnHeaderNames[HttpHeaderResponseMaximum - HttpHeaderAcceptRanges] = {
    "Accept-Ranges", "Age", "ETag", "Location", "Proxy-Authenticate", "Retry-After", "Server", "Set-Cookie", "Vary",
    "WWW-Authenticate"};
// clang-format on

/// Name of a request header number (0-40); empty for other numbers.
constexpr std::string_view RequestHeaderName(int id) {
  return id < 0 || id >= HttpHeaderRequestMaximum ? std::string_view() : kRequestHeaderNames[id];
}

/// Name of a response header number (0-29); empty for other numbers.
constexpr std::string_view ResponseHeaderName(int id) {
  if (id < HttpHeaderAcceptRanges) return RequestHeaderName(id);
  return id >= HttpHeaderResponseMaximum ? std::string_view() : kResponseOwnHeaderNames[id - HttpHeaderAcceptRanges];
}

}  // namespace iis
