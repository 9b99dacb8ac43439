#include "module/request_editor.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

#include "iis/httpserv.h"
#include "module/body_reader.h"
#include "module/server_text.h"

namespace qiv {
namespace {

constexpr std::size_t kMostHeader = std::numeric_limits<iis::USHORT>::max();

void EditUrl(iis::IHttpContext& context, iis::IHttpRequest& request, const RequestFacts& facts,
             const TextEdits& edits) {
  const std::string url = Edited(facts.raw_url, edits);
  const char* const kept = CopyToRequestMemory(context, url);
  if (kept) request.SetUrl(kept, static_cast<iis::DWORD>(url.size()), 1);
}

void EditHeader(iis::IHttpContext& context, iis::IHttpRequest& request, const HeaderEntry& header,
                const TextEdits& edits) {
  const std::string value = Edited(header.value, edits);
  const char* const kept = value.size() <= kMostHeader ? CopyToRequestMemory(context, value) : nullptr;
  if (!kept) return;
  const auto length = static_cast<iis::USHORT>(value.size());
  if (header.number != kUnknownHeader) {
    request.SetHeader(static_cast<iis::HTTP_HEADER_ID>(header.number), kept, length, 1);
  } else if (const char* const name = CopyToRequestMemory(context, header.name)) {
    request.SetHeader(name, kept, length, 1);
  }
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

void EditBody(iis::IHttpContext& context, iis::IHttpRequest& request, std::string_view body, const TextEdits& edits) {
  const std::string text = Edited(body, edits);
  char* const kept = text.size() <= kMaxBody ? CopyToRequestMemory(context, text) : nullptr;
  if (!kept) return;
  const std::string digits = std::to_string(text.size());
  const char* const length = CopyToRequestMemory(context, digits);
  if (!length) return;

  const std::size_t taken = TakeOut(request, body.size());
  const auto give_back = [&] {
    request.InsertEntityBody(const_cast<char*>(body.data()), static_cast<iis::DWORD>(taken));
  };
  if (taken < body.size()) {
    if (taken != 0) give_back();
    return;
  }
  if (!text.empty() && iis::Failed(request.InsertEntityBody(kept, static_cast<iis::DWORD>(text.size())))) {
    return give_back();
  }
  if (!RequestHeader(request, iis::HttpHeaderContentLength)) return;
  request.SetHeader(iis::HttpHeaderContentLength, length, static_cast<iis::USHORT>(digits.size()), 1);
}

}  // namespace

void EditRequest(iis::IHttpContext& context, const RequestFacts& facts, const DecidedEdits& edits) {
  iis::IHttpRequest* const request = context.GetRequest();
  if (!request) return;
  if (!edits.url.empty()) EditUrl(context, *request, facts, edits.url);
  for (const auto& [header, of_header] : edits.headers) {
    EditHeader(context, *request, facts.headers[header], of_header);
  }
  if (!edits.body.empty()) EditBody(context, *request, facts.raw_body, edits.body);
}

}  // namespace qiv
