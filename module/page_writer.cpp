#include "module/page_writer.h"

#include <limits>
#include <new>
#include <string>
#include <utility>

#include "checks/event_recorder.h"
#include "common/char_set.h"
#include "config/website_config.h"
#include "iis/httpserv.h"
#include "module/page_renderer.h"
#include "module/server_text.h"

namespace qiv {
namespace {

constexpr std::size_t kShortestUtf8 = 3;  // bytes; a shorter text is not taken for UTF-8

bool IsUtf8Page(std::string_view page) { return page.size() >= kShortestUtf8 && CCharSet::IsValidUtf8(page); }

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
std::string LocationOf(std::string_view url) {
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string location;
  for (const char c : CCharSet::LocalToUtf8(url)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F) {
      location += c;
    } else {
      location.append({'%', kHex[byte >> 4], kHex[byte & 15]});
    }
  }
  return location;
}

void SetHeader(iis::IHttpContext& context, iis::IHttpResponse& response, iis::HTTP_HEADER_ID id,
               std::string_view value) {
  if (value.size() > std::numeric_limits<iis::USHORT>::max()) return;
  if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) return;  // would split the response
  const char* kept = CopyToRequestMemory(context, value);
  if (kept) response.SetHeader(id, kept, static_cast<iis::USHORT>(value.size()), 1);
}

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
  SetHeader(context, response, iis::HttpHeaderContentType, std::string("text/html; charset=").append(charset));
  // Nobody on the way may keep a block page and show it to others.
  SetHeader(context, response, iis::HttpHeaderCacheControl, "no-store");
}

/// False when the status could not be set: the page is not written then.
bool PrepareResponse(const RequestFacts& facts, const CheckResult& result, iis::IHttpResponse& response,
                     std::string_view charset, const PageOptions& options) {
  iis::IHttpContext& context = *facts.context;
  const bool sent = context.GetResponseHeadersSent();
  if (options.reset_response && !sent) response.Clear();
  if (options.extra_text.empty()) {
    const int status = PageStatus(facts, result);
    if (!SetStatus(response, status)) return false;
    const std::string& target = facts.config->page.redirect_url;
    if (status == 302 && !target.empty() && !sent)
      SetHeader(context, response, iis::HttpHeaderLocation, LocationOf(target));
  }
  if (!sent) DropBodyHeaders(response);
  if (!sent && options.render) SetPageHeaders(context, response, charset);
  return true;
}

/// When memory runs out the status alone answers.
EncodedPage ComposePage(RequestFacts& facts, const CheckResult& result, const PageOptions& options) {
  try {
    std::string text = options.render ? RenderPage(facts, result) : std::string();
    text += options.extra_text;
    return EncodePage(std::move(text), facts);
  } catch (const std::bad_alloc&) {
    return {std::string(), "utf-8"};
  }
}

void WriteChunk(iis::IHttpContext& context, iis::IHttpResponse& response, std::string_view page) {
  char* kept = page.empty() ? nullptr : CopyToRequestMemory(context, page);
  if (!kept) return;
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromMemory;
  chunk.FromMemory.pBuffer = kept;
  chunk.FromMemory.BufferLength = static_cast<iis::ULONG>(page.size());
  iis::DWORD sent = 0;
  iis::BOOL pending = 0;
  response.WriteEntityChunks(&chunk, 1, 0, 1, &sent, &pending);
}

}  // namespace

int PageStatus(const RequestFacts& facts, const CheckResult& result) {
  const PageSettings& page = facts.config->page;
  if (page.type == PageSettings::kRedirect && !page.redirect_url.empty()) return 302;
  return result.response_status ? static_cast<int>(result.response_status) : page.status;
}

EncodedPage EncodePage(std::string page, const RequestFacts& facts) {
  const bool converted_content = facts.config->page.content_charset && facts.custom_page;
  if (facts.gbk_page != converted_content) {
    if (IsUtf8Page(page)) page = CCharSet::Utf8ToLocal(page);
    return {std::move(page), "gbk"};
  }
  if (!CCharSet::IsValidUtf8(page)) page = CCharSet::LocalToUtf8(page);
  return {std::move(page), "utf-8"};
}

void WritePage(RequestFacts& facts, const CheckResult& result, CStoredContexts& contexts, const PageOptions& options) {
  iis::IHttpContext& context = *facts.context;
  const EncodedPage page = ComposePage(facts, result, options);

  const bool first_page = !contexts.PageWritten(context);
  contexts.MarkPageWritten(context);
  iis::IHttpResponse* response = context.GetResponse();
  if (response && PrepareResponse(facts, result, *response, page.charset, options)) {
    WriteChunk(context, *response, page.text);
  }
  if (first_page) EventRecorder().RecordBlock(facts, result);
}

}  // namespace qiv
