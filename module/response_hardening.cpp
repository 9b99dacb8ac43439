#include "module/response_hardening.h"

#include <limits>
#include <string>

#include "common/char_set.h"
#include "common/messages.h"
#include "iis/httpserv.h"
#include "module/server_text.h"

namespace qiv {
namespace {

constexpr const char* kServerHeaders[] = {"Server", "X-Powered-By", "X-AspNet-Version", "X-AspNetMvc-Version"};
constexpr std::string_view kSetCookie = "set-cookie";
constexpr const char* kFrameOptions = "X-Frame-Options";
constexpr std::size_t kMostHeaderBytes = std::numeric_limits<iis::USHORT>::max();

iis::IHttpResponse* UnsentResponse(const RequestFacts& facts) {
  iis::IHttpResponse* response = facts.context->GetResponse();
  return response && !facts.context->GetResponseHeadersSent() ? response : nullptr;
}

/// The value joined with the attribute text, in the request's memory; nothing when the value is to stay as it is.
std::string_view WithAttributes(iis::IHttpContext& context, std::string_view value, std::string_view attributes) {
  if (value.find(attributes) != std::string_view::npos) return {};
  std::string joined(value);
  joined.append(joined.empty() ? "" : "; ").append(attributes);
  if (joined.size() > kMostHeaderBytes) return {};
  const char* kept = CopyToRequestMemory(context, joined);
  return kept ? std::string_view(kept, joined.size()) : std::string_view();
}

/// Treats every cookie of the raw response. True when there is one.
bool TreatCookies(iis::IHttpContext& context, iis::HTTP_RESPONSE& raw, std::string_view attributes) {
  bool found = false;
  const auto treat = [&](const char*& value, iis::USHORT& length) {
    found = true;
    const std::string_view treated = WithAttributes(context, ServerText(value, length), attributes);
    if (treated.empty()) return;
    value = treated.data();
    length = static_cast<iis::USHORT>(treated.size());
  };
  iis::HTTP_RESPONSE_HEADERS& headers = raw.Headers;
  for (std::size_t i = 0; headers.pUnknownHeaders && i < headers.UnknownHeaderCount; ++i) {
    iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    if (CCharSet::LowerAscii(ServerText(header.pName, header.NameLength)) != kSetCookie) continue;
    treat(header.pRawValue, header.RawValueLength);
  }
  iis::HTTP_KNOWN_HEADER& known = headers.KnownHeaders[iis::HttpHeaderSetCookie];
  if (known.pRawValue && known.RawValueLength != 0) treat(known.pRawValue, known.RawValueLength);
  return found;
}

void ProtectCookies(const RequestFacts& facts, iis::IHttpResponse& response) {
  const std::string_view attributes = CookieAttributeText(facts.config->request);
  if (attributes.empty()) return;
  iis::HTTP_RESPONSE* raw = response.GetRawHttpResponse();
  if (raw && TreatCookies(*facts.context, *raw, attributes)) return;
  // A server that shows its cookies by name alone: they could be several, so they stay as they are.
  iis::USHORT length = 0;
  const char* value = response.GetHeader("Set-Cookie", &length);
  if (value && length != 0) return;
  response.SetHeader("Set-Cookie", attributes.data(), static_cast<iis::USHORT>(attributes.size()), 1);
}

/// What X-Frame-Options is to be; empty to leave it.
std::string FrameValue(const RequestSettings& request, std::string_view current) {
  const std::string& mode = request.xframe_type;
  std::string value;
  if (mode == "DENY" || mode == "SAMEORIGIN") {
    value = mode;
  } else if (mode == "ALLOW-FROM") {
    value = "\"ALLOW-FROM " + request.xframe_allowfrom + "\"";  // the quotes belong to the value
  }
  return current.find(value) == std::string_view::npos ? value : std::string();
}

void ProtectFrames(const RequestFacts& facts, iis::IHttpResponse& response) {
  if (!facts.config->request.xframe) return;
  iis::USHORT length = 0;
  const char* header = response.GetHeader(kFrameOptions, &length);
  const std::string value = FrameValue(facts.config->request, ServerText(header, length));
  if (value.empty() || value.size() > kMostHeaderBytes) return;
  const char* kept = CopyToRequestMemory(*facts.context, value);
  if (kept) response.SetHeader(kFrameOptions, kept, static_cast<iis::USHORT>(value.size()), 1);
}

}  // namespace

std::string_view CookieAttributeText(const RequestSettings& request) {
  if (!request.cookie) return {};
  const bool strict = request.csrf_mode == kSameSiteStrict;
  if (request.xss_mode) {
    if (strict) return "hidden=value; Secure; HttpOnly; SameSite=Strict";
    if (request.csrf_mode) return "hidden=value; Secure; HttpOnly; SameSite=Lax";
    return "hidden=value; Secure; HttpOnly";
  }
  if (strict) return "SameSite=Strict";
  if (request.csrf_mode) return "SameSite=Lax";
  return {};
}

void HideServerHeaders(const RequestFacts& facts, CheckResult& result) {
  if (!facts.context->GetResponse()) {
    result.status = kAllowed;
    result.item = Message(facts.config->language, MessageId::kSystemError);
    return;
  }
  if (!facts.config->base.hide) return;
  iis::IHttpResponse* response = UnsentResponse(facts);
  if (!response) return;
  for (const char* name : kServerHeaders) response->DeleteHeader(name);
}

void CookieAndFrameHeaders(const RequestFacts& facts) {
  iis::IHttpResponse* response = UnsentResponse(facts);
  if (!response) return;
  ProtectCookies(facts, *response);
  ProtectFrames(facts, *response);
}

}  // namespace qiv
