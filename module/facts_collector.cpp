#include "module/facts_collector.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "checks/body_text.h"
#include "common/char_set.h"
#include "common/inflate.h"
#include "common/text.h"
#include "config/path_readings.h"
#include "config/website_config.h"
#include "iis/header_names.h"
#include "iis/httpserv.h"
#include "module/body_reader.h"
#include "module/client_address.h"
#include "module/server_text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

std::u16string_view WideText(const iis::WCHAR* text, std::size_t bytes) {
  return text ? std::u16string_view(text, bytes / sizeof(iis::WCHAR)) : std::u16string_view();
}

/// As received. Warm-up requests have none, and are known by their cooked URL alone.
std::string RawUrl(const iis::HTTP_REQUEST& raw) {
  const std::string_view sent = ServerText(raw.pRawUrl, raw.RawUrlLength);
  if (!sent.empty()) return std::string(sent);
  std::string url = Utf16ToUtf8(WideText(raw.CookedUrl.pAbsPath, raw.CookedUrl.AbsPathLength));
  // The cooked query holds raw bytes, each widened.
  for (const char16_t unit : WideText(raw.CookedUrl.pQueryString, raw.CookedUrl.QueryStringLength)) {
    url += static_cast<char>(unit);
  }
  return url;
}

std::string TrimmedNormal(std::string_view text) {
  std::string normal = NormalizeText(std::string(Trim(text)));
  return std::string(Trim(normal));
}

std::string CookedHost(const iis::HTTP_REQUEST& raw, bool secured) {
  std::string host = Utf16ToGbk(WideText(raw.CookedUrl.pHost, raw.CookedUrl.HostLength));
  const std::string_view port = secured ? ":443" : ":80";
  if (host.starts_with('[')) {
    const std::size_t close = host.find(']');
    if (close != std::string::npos) {
      if (const auto address = CIpAddress::Parse(std::string_view(host).substr(1, close - 1))) {
        host = "[" + address->Text() + "]" + host.substr(close + 1);
      }
    }
  }
  if (host.ends_with(port)) host.resize(host.size() - port.size());
  return std::string(Trim(host));
}

void CollectUrl(const iis::HTTP_REQUEST& raw, RequestFacts& facts) {
  facts.raw_url = RawUrl(raw);
  const std::string_view url = facts.raw_url;
  const std::size_t mark = url.find('?');
  const std::string_view raw_query = mark == std::string_view::npos ? std::string_view() : url.substr(mark + 1);
  facts.query = TrimmedNormal(raw_query);
  facts.path = TrimmedNormal(PathOfUrl(Trim(url)));

  const bool secured = raw.pSslInfo != nullptr;
  facts.host = CookedHost(raw, secured);
  facts.site_url = (secured ? "https://" : "http://") + facts.host + facts.path;
  facts.full_url = facts.query.empty() ? facts.site_url : facts.site_url + "?" + facts.query;
}

std::uint32_t SaturatedLength(std::string_view text) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t value = 0;
  for (const char c : Trim(text)) {
    if (!IsDigit(c)) break;
    value = std::min(kMost, value * 10 + static_cast<std::uint64_t>(c - '0'));
  }
  return static_cast<std::uint32_t>(value);
}

bool ContainsIgnoringCase(std::string_view text, std::string_view lower) {
  return CCharSet::LowerAscii(text).find(lower) != std::string::npos;
}

void TakeHeader(std::int32_t number, std::string_view value, RequestFacts& facts) {
  switch (number) {
    case iis::HttpHeaderContentLength:
      facts.content_length = SaturatedLength(value);
      break;
    case iis::HttpHeaderContentType:
      facts.content_type = value;
      if (ContainsIgnoringCase(value, "gbk") || ContainsIgnoringCase(value, "gb2312")) facts.gbk_page = true;
      if (ContainsIgnoringCase(value, "utf-8")) facts.gbk_page = false;
      break;
    case iis::HttpHeaderAcceptLanguage:  // clients that name the charset do it here
      if (ContainsIgnoringCase(value, "utf-8")) facts.gbk_page = false;
      break;
    case iis::HttpHeaderCookie:
      facts.cookie = value;
      break;
    case iis::HttpHeaderHost:
      facts.host = value;
      break;
    case iis::HttpHeaderReferer:
      facts.referer = value;
      break;
    case iis::HttpHeaderUserAgent:
      facts.user_agent = value;
      break;
    default:
      break;
  }
}

void ReadHeaders(const iis::IHttpRequest& request, RequestFacts& facts) {
  for (std::int32_t number = 0; number < iis::HttpHeaderRequestMaximum; ++number) {
    const auto value = RequestHeader(request, static_cast<iis::HTTP_HEADER_ID>(number));
    if (!value) continue;
    facts.header_bytes += static_cast<std::uint32_t>(value->size());
    facts.all_headers += *value;
    facts.headers.push_back({number, std::string(iis::RequestHeaderName(number)), std::string(*value)});
    TakeHeader(number, *value, facts);
  }
}

/// Headers that the server has no number for. Each is looked at; their number bounds what one request costs, and is
/// several times what servers admit.
void ReadUnknownHeaders(const iis::HTTP_REQUEST& raw, RequestFacts& facts) {
  constexpr std::size_t kMost = 512;
  const iis::HTTP_REQUEST_HEADERS& headers = raw.Headers;
  if (!headers.pUnknownHeaders) return;
  for (std::size_t i = 0; i < std::min<std::size_t>(headers.UnknownHeaderCount, kMost); ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    facts.header_bytes += header.RawValueLength;
    facts.headers.push_back({kUnknownHeader, std::string(ServerText(header.pName, header.NameLength)),
                             std::string(ServerText(header.pRawValue, header.RawValueLength))});
  }
}

/// Requests whose body goes on for as long as their connection, answered meanwhile: to wait for its end would be to
/// stop them. Tunnels of remote desktops and of mail programs, streams of remote calls, connections that become
/// something else.
bool IsEndless(const iis::IHttpRequest& request, const RequestFacts& facts) {
  constexpr std::string_view kMethods[] = {"CONNECT", "RPC_IN_DATA", "RPC_OUT_DATA", "RDG_IN_DATA", "RDG_OUT_DATA"};
  if (std::find(std::begin(kMethods), std::end(kMethods), facts.method) != std::end(kMethods)) return true;
  return BeginsNoCase(Trim(facts.content_type), "application/grpc") ||
         !Trim(RequestHeader(request, iis::HttpHeaderUpgrade).value_or("")).empty();
}

/// Whether the body is to be read: of a POST that states type and length always, of others where the site asks for it
/// and the server says that there is one.
bool IsBodyToRead(iis::IHttpRequest& request, const WebsiteConfig& config, const RequestFacts& facts) {
  if (!config.need_post_body && !config.response.passwd) return false;
  const bool has_type = RequestHeader(request, iis::HttpHeaderContentType).has_value();
  if (facts.method == "POST" && has_type && facts.content_length != 0) return true;
  return config.extended.body && request.GetRemainingEntityBytes() != 0 && !IsEndless(request, facts);
}

/// What one compressed body is unpacked to: like the larger pages of text that people post, and no more than a client
/// would have to send itself within seconds.
constexpr std::size_t kMostUnpacked = 8 * 1024 * 1024;

/// False for an encoding that is not known.
bool UnpackOnce(std::string_view encoding, std::string* text) {
  if (encoding == "gzip" || encoding == "x-gzip") {
    *text = Inflate(*text, DeflateWrap::kGzip, kMostUnpacked);
    return true;
  }
  if (encoding != "deflate") return false;
  // Some clients leave out the header of RFC 1950, which is a multiple of 31 and names the method 8.
  const auto byte = [text](std::size_t i) { return i < text->size() ? static_cast<unsigned char>((*text)[i]) : 0U; };
  const bool wrapped = (byte(0) & 15U) == 8 && (byte(0) * 256U + byte(1)) % 31U == 0;
  *text = Inflate(*text, wrapped ? DeflateWrap::kZlib : DeflateWrap::kRaw, kMostUnpacked);
  return true;
}

/// Has the checks see what the application will, where it unpacks bodies. A body that cannot be unpacked is judged as
/// it was sent.
void Unpack(std::string_view encodings, RequestFacts& facts) {
  constexpr int kMostLayers = 2;
  auto text = std::make_shared<std::string>(facts.raw_body);
  int layers = 0;
  bool whole = true;
  while (!encodings.empty()) {  // the last one was applied last
    const std::size_t comma = encodings.rfind(',');
    const std::string encoding = CCharSet::LowerAscii(Trim(encodings.substr(comma + 1)));
    encodings = comma == std::string_view::npos ? std::string_view() : encodings.substr(0, comma);
    if (encoding.empty() || encoding == "identity") continue;
    whole = ++layers <= kMostLayers && UnpackOnce(encoding, text.get()) && !text->empty();
    if (!whole) break;
  }
  if (layers == 0) return;
  if (!whole || text->size() >= kMostUnpacked) facts.unread_body = UnreadBody::kEncoded;
  if (!whole) return;
  facts.unpacked_body = std::move(text);
  facts.raw_body = *facts.unpacked_body;
}

void ReadBody(iis::IHttpContext& context, iis::IHttpRequest& request, const WebsiteConfig& config,
              RequestFacts& facts) {
  if (!IsBodyToRead(request, config, facts)) return;
  if (facts.content_length > kMaxBody) {
    facts.unread_body = UnreadBody::kTooLarge;
    return;
  }

  const std::uint32_t length = facts.content_length != 0 ? facts.content_length : kUnknownLength;
  const BodyBytes body = ReadAndRestoreBody(context, request, length);
  facts.unread_body = body.unread;
  if (body.unread != UnreadBody::kNot) return;
  facts.raw_body = body.bytes;
  const auto encodings = RequestHeader(request, iis::HttpHeaderContentEncoding);
  if (config.extended.body && encodings && !facts.raw_body.empty()) Unpack(*encodings, facts);
  if (config.response.passwd && facts.raw_body.find("secretrkey") != std::string_view::npos) {
    facts.keyed_body = facts.raw_body;
  }
  SetBodyText(config.extended.body, &facts);
}

}  // namespace

bool CollectFacts(iis::IHttpContext& context, const WebsiteConfig& config, RequestFacts& facts) {
  iis::IHttpRequest* request = context.GetRequest();
  const iis::HTTP_REQUEST* raw = request ? request->GetRawHttpRequest() : nullptr;
  if (!raw) return false;
  facts.context = &context;
  if (!CollectAddresses(context, *request, config.response.cdn != 0, facts)) return false;
  CollectUrl(*raw, facts);
  return true;
}

bool ReadHeadersAndBody(iis::IHttpContext& context, const WebsiteConfig& config, bool may_read_body,
                        RequestFacts& facts) {
  iis::IHttpRequest* request = context.GetRequest();
  if (!request) return false;
  const char* method = request->GetHttpMethod();
  facts.method = method ? method : "";
  ReadHeaders(*request, facts);
  facts.site_id = request->GetSiteId();
  const iis::HTTP_REQUEST* raw = request->GetRawHttpRequest();
  if (config.extended.headers && raw) ReadUnknownHeaders(*raw, facts);
  if (may_read_body) ReadBody(context, *request, config, facts);
  return true;
}

}  // namespace qiv
