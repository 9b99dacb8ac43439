// Texts that the server hands out with a length, as views; and texts that must outlive a call, in the request's memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "iis/httpserv.h"

namespace qiv {

/// A length beside a pointer that may be null. Some lengths count a terminator: zero bytes at the end are dropped.
inline std::string_view ServerText(const char* text, std::size_t length) {
  if (!text) return {};
  while (length != 0 && text[length - 1] == '\0') --length;
  return {text, length};
}

/// Valid until the header changes. Nothing when the request has no such header.
inline std::optional<std::string_view> RequestHeader(const iis::IHttpRequest& request, const char* name) {
  iis::USHORT length = 0;
  const char* value = request.GetHeader(name, &length);
  if (!value) return std::nullopt;
  return ServerText(value, length);
}
inline std::optional<std::string_view> RequestHeader(const iis::IHttpRequest& request, iis::HTTP_HEADER_ID id) {
  iis::USHORT length = 0;
  const char* value = request.GetHeader(id, &length);
  if (!value) return std::nullopt;
  return ServerText(value, length);
}

/// Empty when the variable is unknown, unset or empty: servers tell these apart in different ways.
inline std::string_view ServerVariable(iis::IHttpContext& context, const char* name) {
  const char* value = nullptr;
  iis::DWORD length = 0;
  if (iis::Failed(context.GetServerVariable(name, &value, &length))) return {};
  return ServerText(value, length);
}

/// A copy with a terminator in memory that lives as long as the request; null when the server has no memory.
char* CopyToRequestMemory(iis::IHttpContext& context, std::string_view text);

/// Sets a header of the response, in place of what it held. Left as it is when the value does not fit a header, would
/// end its line, or the server has no memory.
void SetResponseHeader(iis::IHttpContext& context, iis::IHttpResponse& response, const char* name,
                       std::string_view value);
void SetResponseHeader(iis::IHttpContext& context, iis::IHttpResponse& response, iis::HTTP_HEADER_ID id,
                       std::string_view value);

}  // namespace qiv
