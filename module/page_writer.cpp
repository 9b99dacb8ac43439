#include "module/page_writer.h"

#include <new>
#include <string>
#include <utility>

#include "base/hex.h"
#include "common/char_set.h"
#include "common/event_log.h"
#include "config/website_config.h"
#include "iis/data_chunk.h"
#include "iis/httpserv.h"
#include "module/page_encoding.h"
#include "module/page_renderer.h"
#include "module/server_text.h"

namespace qiv {
namespace {

constexpr const char* kEventHeader = "X-Qiv-Event";
constexpr const char* kPolicyHeader = "Content-Security-Policy";
constexpr int kFound = 302;
constexpr std::string_view kPageType = "text/html; charset=";

std::string_view Reason(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 302:
      return "Found";
    case 403:
      return "Forbidden";
    case 404:
      return "File Not Found";
    default:
      return "Internal Server Error";
  }
}

bool SetStatus(iis::IHttpResponse& response, int status) {
  // Without the last argument the server puts its own error page in place of ours.
  return iis::Succeeded(response.SetStatus(static_cast<iis::USHORT>(status), Reason(status).data(), 0, 0, nullptr, 1));
}

/// A URL of the site as a header holds it: characters outside ASCII in UTF-8, percent-encoded like blanks.
std::string LocationOf(std::string_view url) { return EscapeUnprintable(CCharSet::LocalToUtf8(url)); }

/// What the application may have said of a body that is no longer the only one.
void DropBodyHeaders(iis::IHttpResponse& response) {
  for (const iis::HTTP_HEADER_ID id :
       {iis::HttpHeaderContentLength, iis::HttpHeaderContentEncoding, iis::HttpHeaderContentMd5,
        iis::HttpHeaderContentRange, iis::HttpHeaderAcceptRanges, iis::HttpHeaderEtag, iis::HttpHeaderLastModified}) {
    response.DeleteHeader(id);
  }
}

void SetPageHeaders(iis::IHttpContext& context, iis::IHttpResponse& response, std::string_view charset) {
  response.DeleteHeader(iis::HttpHeaderExpires);
  SetResponseHeader(context, response, iis::HttpHeaderContentType, std::string(kPageType).append(charset));
  // Nobody on the way may keep a block page and show it to others.
  SetResponseHeader(context, response, iis::HttpHeaderCacheControl, "no-store");
}

/// False when the status could not be set: the page is not written then.
bool PrepareResponse(iis::IHttpContext& server, const PageSettings& page, const CheckResult& result,
                     std::string_view charset, const PageOptions& options) {
  iis::IHttpResponse& response = *server.GetResponse();
  const bool sent = server.GetResponseHeadersSent();
  if (options.reset_response && !sent) response.Clear();
  if (options.extra_text.empty()) {
    const int status = PageStatus(page, result);
    if (!SetStatus(response, status)) return false;
    const std::string& target = page.redirect_url;
    if (status == kFound && result.request.answer.location.empty() && !target.empty() && !sent) {
      SetResponseHeader(server, response, iis::HttpHeaderLocation, LocationOf(target));
    }
  }
  if (sent) return true;
  DropBodyHeaders(response);
  if (options.render) SetPageHeaders(server, response, charset);
  const std::string& event_id = result.request.event_id;
  if (!event_id.empty()) SetResponseHeader(server, response, kEventHeader, event_id);
  const PreparedAnswer& answer = result.request.answer;
  if (!answer.policy.empty()) SetResponseHeader(server, response, kPolicyHeader, answer.policy);
  if (!answer.location.empty()) SetResponseHeader(server, response, iis::HttpHeaderLocation, answer.location);
  if (!answer.cookie.empty()) SetResponseHeader(server, response, iis::HttpHeaderSetCookie, answer.cookie);
  return true;
}

/// When memory runs out the status alone answers.
EncodedPage ComposePage(const RequestFacts& facts, const CheckContext& context, CheckResult& result,
                        const PageOptions& options) {
  try {
    if (!result.request.answer.location.empty()) return {std::string(), "utf-8"};
    // Of a page that is no block nobody finds an event.
    if (result.request.event_id.empty() && result.log != 0) result.request.event_id = CEventLog::NewEventId();
    std::string text =
        options.render ? RenderPage(facts, context, result, options.extra_text) : std::string(options.extra_text);
    return EncodePage(std::move(text), context.config.page, result.request);
  } catch (const std::bad_alloc&) {
    return {std::string(), "utf-8"};
  }
}

void WriteChunk(iis::IHttpContext& context, iis::IHttpResponse& response, std::string_view page) {
  char* kept = page.empty() ? nullptr : CopyToRequestMemory(context, page);
  if (!kept) return;
  iis::HTTP_DATA_CHUNK chunk = iis::MakeMemoryChunk(kept, page.size());
  iis::DWORD sent = 0;
  iis::BOOL pending = 0;
  response.WriteEntityChunks(&chunk, 1, 0, 1, &sent, &pending);
}

}  // namespace

int PageStatus(const PageSettings& page, const CheckResult& result) {
  if (!result.request.answer.location.empty()) return kFound;
  if (page.type == PageSettings::kRedirect && !page.redirect_url.empty()) return kFound;
  return result.response_status ? static_cast<int>(result.response_status) : page.status;
}

void WritePage(const RequestFacts& facts, const CheckContext& context, CheckResult& result, CStoredContexts& contexts,
               const PageOptions& options) {
  iis::IHttpContext& server = *facts.context;
  const EncodedPage page = ComposePage(facts, context, result, options);

  const bool first_page = !contexts.PageWritten(server);
  contexts.MarkPageWritten(server, result.request.event_id);
  iis::IHttpResponse* response = server.GetResponse();
  if (response && PrepareResponse(server, context.config.page, result, page.charset, options)) {
    WriteChunk(server, *response, page.text);
  }
  if (first_page) context.recorder.RecordBlock(facts, context, result);
}

void KeepPageHeaders(iis::IHttpContext& server, std::string_view event_id) {
  iis::IHttpResponse* response = server.GetResponse();
  if (!response) return;
  SetResponseHeader(server, *response, kEventHeader, event_id);
  iis::USHORT length = 0;
  const char* value = response->GetHeader(iis::HttpHeaderContentType, &length);
  const std::string_view type = ServerText(value, length);
  for (const std::string_view charset : {"gbk", "utf-8"}) {
    const std::string ours = std::string(kPageType).append(charset);
    if (type.starts_with(ours + ",")) SetResponseHeader(server, *response, iis::HttpHeaderContentType, ours);
  }
}

}  // namespace qiv
