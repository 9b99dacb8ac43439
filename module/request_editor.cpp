#include "module/request_editor.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "base/hex.h"
#include "iis/httpserv.h"
#include "module/body_reader.h"
#include "module/server_text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

/// The path that the server goes by now, as a URL has it. The cooked one is decoded.
std::string CookedPath(const iis::HTTP_COOKED_URL& cooked) {
  const std::u16string_view path(cooked.pAbsPath, cooked.AbsPathLength / sizeof(iis::WCHAR));
  std::string url;
  for (const char c : Utf16ToUtf8(path.substr(0, path.find(u'?')))) {
    if (c > 0x20 && c < 0x7F && c != '%' && c != '?' && c != '#') {
      url += c;
    } else {
      AppendEscapedByte(c, &url);
    }
  }
  return url;
}

/// The cooked query, without its "?", holds raw bytes, each widened.
std::string CookedQuery(const iis::HTTP_COOKED_URL& cooked) {
  std::string query;
  const std::size_t length = cooked.pQueryString ? cooked.QueryStringLength / sizeof(iis::WCHAR) : 0;
  for (std::size_t i = 1; i < length; ++i) query += static_cast<char>(cooked.pQueryString[i]);
  return query;
}

/// The URL with the new query. Where a rewriting made another one of it, the query is carried over if it still stands
/// there; else there is none.
std::optional<std::string> NewUrl(const iis::IHttpRequest& request, std::string_view raw_url, std::string_view query) {
  const std::size_t mark = raw_url.find('?');
  const std::string_view sent = raw_url.substr(mark + 1);
  const iis::HTTP_REQUEST* const raw = request.GetRawHttpRequest();
  const bool cooked = raw && raw->CookedUrl.pAbsPath;
  std::string now = cooked ? CookedQuery(raw->CookedUrl) : std::string(sent);
  if (!request.GetUrlChanged() && now == sent) {
    return std::string(raw_url.substr(0, mark + 1)).append(query);
  }
  const std::size_t at = now.rfind(sent);
  if (!cooked || at == now.npos) return std::nullopt;
  now.replace(at, sent.size(), query);
  return CookedPath(raw->CookedUrl).append(1, '?').append(now);
}

bool EditUrl(iis::IHttpContext& context, iis::IHttpRequest& request, const RequestFacts& facts,
             std::string_view query) {
  const std::optional<std::string> url = NewUrl(request, facts.raw_url, query);
  const char* const kept = url ? CopyToRequestMemory(context, *url) : nullptr;
  return kept && !iis::Failed(request.SetUrl(kept, static_cast<iis::DWORD>(url->size()), 1));
}

bool EditHeader(iis::IHttpContext& context, iis::IHttpRequest& request, const HeaderEntry& header,
                std::string_view value) {
  if (value.size() > std::numeric_limits<iis::USHORT>::max()) return false;
  const char* const kept = CopyToRequestMemory(context, value);
  if (!kept) return false;
  const auto length = static_cast<iis::USHORT>(value.size());
  if (header.number != kUnknownHeader) {
    return !iis::Failed(request.SetHeader(static_cast<iis::HTTP_HEADER_ID>(header.number), kept, length, 1));
  }
  const char* const name = CopyToRequestMemory(context, header.name);
  return name && !iis::Failed(request.SetHeader(name, kept, length, 1));
}

/// Takes the body that was given back out once more; how many bytes came. The server copies none of them, so what it
/// gives is what `body` holds already.
std::size_t TakeOut(iis::IHttpRequest& request, std::size_t size) {
  char piece[kBodyPiece];
  std::size_t taken = 0;
  while (taken < size && request.GetRemainingEntityBytes() != 0) {
    iis::DWORD received = 0;
    iis::BOOL pending = 0;
    const auto room = static_cast<iis::DWORD>(std::min<std::size_t>(sizeof piece, size - taken));
    if (iis::Failed(request.ReadEntityBody(piece, room, 0, &received, &pending)) || received == 0) break;
    taken += std::min<std::size_t>(received, room);
  }
  return taken;
}

/// Says how long the body is, where the request says it. False, and nothing changed, when the server does not take it.
bool SetLength(iis::IHttpContext& context, iis::IHttpRequest& request, std::size_t length) {
  if (!RequestHeader(request, iis::HttpHeaderContentLength)) return true;
  const std::string digits = std::to_string(length);
  const char* const kept = CopyToRequestMemory(context, digits);
  return kept && !iis::Failed(
                     request.SetHeader(iis::HttpHeaderContentLength, kept, static_cast<iis::USHORT>(digits.size()), 1));
}

bool EditBody(iis::IHttpContext& context, iis::IHttpRequest& request, std::string_view body, std::string_view text) {
  char* const kept = CopyToRequestMemory(context, text);
  if (!kept) return false;
  const std::size_t taken = TakeOut(request, body.size());
  // The length first: once the new body is in there is no way back.
  const bool length_set = taken == body.size() && SetLength(context, request, text.size());
  if (length_set &&
      (text.empty() || !iis::Failed(request.InsertEntityBody(kept, static_cast<iis::DWORD>(text.size()))))) {
    return true;
  }
  if (length_set) SetLength(context, request, body.size());
  if (taken != 0) request.InsertEntityBody(const_cast<char*>(body.data()), static_cast<iis::DWORD>(taken));
  return false;
}

}  // namespace

RefusedEdits EditRequest(iis::IHttpContext& context, const RequestFacts& facts, const DecidedEdits& edits) {
  iis::IHttpRequest* const request = context.GetRequest();
  if (!request) return {};
  RefusedEdits refused;
  refused.query = edits.query && !EditUrl(context, *request, facts, *edits.query);
  for (const auto& [header, value] : edits.headers) {
    refused.headers = !EditHeader(context, *request, facts.headers[header], value) || refused.headers;
  }
  refused.body = edits.body && !EditBody(context, *request, facts.raw_body, *edits.body);
  return refused;
}

}  // namespace qiv
