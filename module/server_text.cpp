#include "module/server_text.h"

#include <cstring>
#include <limits>

namespace qiv {

char* CopyToRequestMemory(iis::IHttpContext& context, std::string_view text) {
  if (text.size() >= std::numeric_limits<iis::DWORD>::max()) return nullptr;
  char* copy = static_cast<char*>(context.AllocateRequestMemory(static_cast<iis::DWORD>(text.size() + 1)));
  if (!copy) return nullptr;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

namespace {

template <typename Header>
void SetText(iis::IHttpContext& context, iis::IHttpResponse& response, Header header, std::string_view value) {
  if (value.size() > std::numeric_limits<iis::USHORT>::max()) return;
  if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) return;
  const char* kept = CopyToRequestMemory(context, value);
  if (kept) response.SetHeader(header, kept, static_cast<iis::USHORT>(value.size()), 1);
}

}  // namespace

void SetResponseHeader(iis::IHttpContext& context, iis::IHttpResponse& response, const char* name,
                       std::string_view value) {
  SetText(context, response, name, value);
}

void SetResponseHeader(iis::IHttpContext& context, iis::IHttpResponse& response, iis::HTTP_HEADER_ID id,
                       std::string_view value) {
  SetText(context, response, id, value);
}

}  // namespace qiv
