#include "module/response_hardening.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "common/char_set.h"
#include "common/messages.h"
#include "iis/httpserv.h"
#include "module/server_text.h"

namespace qiv {
namespace {

constexpr const char* kServerHeaders[] = {"Server", "X-Powered-By", "X-AspNet-Version", "X-AspNetMvc-Version"};
constexpr std::string_view kSetCookie = "set-cookie";
constexpr const char* kFrameOptions = "X-Frame-Options";
constexpr std::string_view kFrameOptionsLower = "x-frame-options";
constexpr std::size_t kMostHeaderBytes = std::numeric_limits<iis::USHORT>::max();

iis::IHttpResponse* UnsentResponse(const RequestFacts& facts) {
  iis::IHttpResponse* response = facts.context->GetResponse();
  return response && !facts.context->GetResponseHeadersSent() ? response : nullptr;
}

// What an earlier notification set stands at the head of a value that the application appended to: a server that
// appends puts a comma between the two.

/// The value without what an earlier notification put at its head.
std::string_view WithoutOurs(std::string_view value, std::string_view ours) {
  while (!ours.empty() && value.starts_with(ours)) {
    const std::size_t next = value.find_first_not_of(' ', ours.size());
    if (next == std::string_view::npos) return {};
    if (value[next] != ',') break;
    value.remove_prefix(std::min(value.find_first_not_of(' ', next + 1), value.size()));
  }
  return value;
}

/// Where a header's value and its length stand in the raw response.
struct HeaderSlot {
  const char** value;
  iis::USHORT* length;
  iis::HTTP_UNKNOWN_HEADER* unknown;  ///< the whole entry; null for a header that the server has a number for

  std::string_view Text() const { return ServerText(*value, *length); }
  void Set(std::string_view text) const {
    *value = text.data();
    *length = static_cast<iis::USHORT>(text.size());
  }
};

/// Every entry of a header, in order. `name` in lower case.
std::vector<HeaderSlot> SlotsOf(iis::HTTP_RESPONSE& raw, std::string_view name) {
  std::vector<HeaderSlot> slots;
  iis::HTTP_RESPONSE_HEADERS& headers = raw.Headers;
  for (std::size_t i = 0; headers.pUnknownHeaders && i < headers.UnknownHeaderCount; ++i) {
    iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    if (CCharSet::LowerAscii(ServerText(header.pName, header.NameLength)) != name) continue;
    slots.push_back({&header.pRawValue, &header.RawValueLength, &header});
  }
  return slots;
}

/// Takes entries out of several of the same name: under a name of their own the server deletes them and no other.
void DropEntries(iis::IHttpResponse& response, const std::vector<HeaderSlot>& slots) {
  static constexpr std::string_view kDropped = "X-Qiv-Dropped";
  for (const HeaderSlot& slot : slots) {
    slot.Set({});
    if (!slot.unknown) continue;
    slot.unknown->pName = kDropped.data();
    slot.unknown->NameLength = static_cast<iis::USHORT>(kDropped.size());
  }
  // Servers may delete one entry at a time.
  for (std::size_t i = 0; i < slots.size(); ++i) response.DeleteHeader(kDropped.data());
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

/// Treats every cookie of the raw response. True when there is one, ours among them.
bool TreatCookies(const RequestFacts& facts, Phase phase, iis::IHttpResponse& response, iis::HTTP_RESPONSE& raw,
                  std::string_view attributes) {
  std::vector<HeaderSlot> slots = SlotsOf(raw, kSetCookie);
  iis::HTTP_KNOWN_HEADER& known = raw.Headers.KnownHeaders[iis::HttpHeaderSetCookie];
  if (known.pRawValue && known.RawValueLength != 0) {
    slots.push_back({&known.pRawValue, &known.RawValueLength, nullptr});
  }
  std::vector<HeaderSlot> no_cookies;  // empty ones, and the one that a response without cookies gets
  for (const HeaderSlot& slot : slots) {
    const std::string_view own = phase > kPhaseBegin ? WithoutOurs(slot.Text(), attributes) : slot.Text();
    if (own.empty() || own == attributes) {
      no_cookies.push_back(slot);
      continue;
    }
    slot.Set(own);
    const std::string_view treated = WithAttributes(*facts.context, own, attributes);
    if (!treated.empty()) slot.Set(treated);
  }
  if (no_cookies.size() < slots.size()) {
    DropEntries(response, no_cookies);
  } else if (!no_cookies.empty()) {
    no_cookies.front().Set(attributes);
    no_cookies.erase(no_cookies.begin());
    DropEntries(response, no_cookies);
  }
  return !slots.empty();
}

void ProtectCookies(const RequestFacts& facts, const CheckContext& context, iis::IHttpResponse& response) {
  const std::string_view attributes = CookieAttributeText(context.config.request);
  if (attributes.empty()) return;
  iis::HTTP_RESPONSE* raw = response.GetRawHttpResponse();
  if (raw && TreatCookies(facts, context.phase, response, *raw, attributes)) return;
  // A server that shows its cookies by name alone: they could be several, so they stay as they are.
  iis::USHORT length = 0;
  const char* value = response.GetHeader("Set-Cookie", &length);
  if (value && length != 0) return;
  response.SetHeader("Set-Cookie", attributes.data(), static_cast<iis::USHORT>(attributes.size()), 1);
}

/// The value that the settings choose; empty for none.
std::string FrameChoice(const RequestSettings& request) {
  switch (request.xframe_type) {
    case kFrameDeny:
      return "DENY";
    case kFrameSameOrigin:
      return "SAMEORIGIN";
    case kFrameAllowFrom:
      return "\"ALLOW-FROM " + request.xframe_allowfrom + "\"";  // the quotes belong to the value
    default:
      return {};
  }
}

/// All values of X-Frame-Options, joined as a server joins them.
std::string CurrentFrameValue(iis::IHttpResponse& response) {
  std::string joined;
  iis::HTTP_RESPONSE* raw = response.GetRawHttpResponse();
  if (!raw) {
    iis::USHORT length = 0;
    const char* value = response.GetHeader(kFrameOptions, &length);
    return joined.append(ServerText(value, length));
  }
  for (const HeaderSlot& slot : SlotsOf(*raw, kFrameOptionsLower)) {
    joined.append(joined.empty() ? "" : ",").append(slot.Text());
  }
  return joined;
}

/// Of our value and the application's one stays: the one that the settings choose over the application's.
void ProtectFrames(const RequestFacts& facts, const CheckContext& context, iis::IHttpResponse& response) {
  if (!context.config.request.xframe) return;
  const std::string choice = FrameChoice(context.config.request);
  if (choice.empty()) return;
  const std::string current = CurrentFrameValue(response);
  std::string_view value = context.phase > kPhaseBegin ? WithoutOurs(current, choice) : std::string_view(current);
  if (value.find(choice) == std::string_view::npos) value = choice;
  if (value != current) SetResponseHeader(*facts.context, response, kFrameOptions, value);
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

void HideServerHeaders(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  if (!facts.context->GetResponse()) {
    result.status = kAllowed;
    result.item = Message(context.config.language, MessageId::kSystemError);
    return;
  }
  if (!context.config.base.hide) return;
  iis::IHttpResponse* response = UnsentResponse(facts);
  if (!response) return;
  for (const char* name : kServerHeaders) response->DeleteHeader(name);
}

void CookieAndFrameHeaders(const RequestFacts& facts, const CheckContext& context) {
  iis::IHttpResponse* response = UnsentResponse(facts);
  if (!response) return;
  ProtectCookies(facts, context, *response);
  ProtectFrames(facts, context, *response);
}

}  // namespace qiv
