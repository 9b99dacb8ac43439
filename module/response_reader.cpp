#include "module/response_reader.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"
#include "iis/httpserv.h"
#include "module/server_text.h"
#include "port/file.h"

namespace qiv {
namespace {

std::string_view ResponseHeader(const iis::IHttpResponse& response, iis::HTTP_HEADER_ID id) {
  iis::USHORT length = 0;
  const char* value = response.GetHeader(id, &length);
  return value ? ServerText(value, length) : std::string_view();
}

/// A response without a type is one: browsers take it for a page if it looks like one.
bool IsText(const iis::IHttpResponse& response) {
  const std::string type = CCharSet::LowerAscii(Trim(ResponseHeader(response, iis::HttpHeaderContentType)));
  return type.empty() || type.starts_with("text/html") || type.starts_with("text/plain") ||
         type.starts_with("application/xhtml");
}

bool IsPlainlyEncoded(const iis::IHttpResponse& response) {
  const std::string_view encoding = Trim(ResponseHeader(response, iis::HttpHeaderContentEncoding));
  return encoding.empty() || CCharSet::LowerAscii(encoding) == "identity";
}

void AppendChunk(const iis::HTTP_DATA_CHUNK& chunk, std::string* text) {
  const std::size_t room = kMostResponseBytes - text->size();
  if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
    if (!chunk.FromMemory.pBuffer) return;
    text->append(static_cast<const char*>(chunk.FromMemory.pBuffer),
                 std::min<std::size_t>(chunk.FromMemory.BufferLength, room));
  } else if (chunk.DataChunkType == iis::HttpDataChunkFromFileHandle) {
    const iis::HTTP_BYTE_RANGE& range = chunk.FromFileHandle.ByteRange;
    std::string part;
    ReadHandlePart(chunk.FromFileHandle.FileHandle, range.StartingOffset,
                   static_cast<std::size_t>(std::min<std::uint64_t>(range.Length, room)), &part);
    *text += part;
  }
}

}  // namespace

bool WantsResponse(const WebsiteConfig& config) {
  const BaseSettings& base = config.base;
  return (base.trojan != 0 && base.trojan_webout != 0) || (base.url != 0 && base.url_dir_list != 0);
}

std::string ReadResponse(iis::IHttpContext& context) {
  std::string text;
  const iis::IHttpResponse* response = context.GetResponse();
  if (!response || context.GetResponseHeadersSent()) return text;
  const iis::HTTP_RESPONSE* raw = response->GetRawHttpResponse();
  if (!raw || raw->EntityChunkCount == 0 || !raw->pEntityChunks) return text;
  if (!IsText(*response) || !IsPlainlyEncoded(*response)) return text;
  for (iis::USHORT i = 0; i < raw->EntityChunkCount && text.size() < kMostResponseBytes; ++i) {
    AppendChunk(raw->pEntityChunks[i], &text);
  }
  return text;
}

}  // namespace qiv
