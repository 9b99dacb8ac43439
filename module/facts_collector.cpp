#include "module/facts_collector.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
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

/// The path of a URL that may be in absolute form ("http://host/path"), which checks of paths must not be evaded by.
std::string_view WithoutAuthority(std::string_view path) {
  const std::size_t scheme = path.find("://");
  if (path.starts_with('/') || scheme == std::string_view::npos) return path;
  const std::size_t slash = path.find('/', scheme + 3);
  return slash == std::string_view::npos ? std::string_view("/") : path.substr(slash);
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
  facts.path = TrimmedNormal(WithoutAuthority(Trim(url.substr(0, mark))));

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
    facts.headers.push_back({number, iis::RequestHeaderName(number), std::string(*value)});
    TakeHeader(number, *value, facts);
  }
}

void ReadBody(iis::IHttpContext& context, iis::IHttpRequest& request, const WebsiteConfig& config,
              RequestFacts& facts) {
  const bool wanted = config.need_post_body || config.response.passwd;
  const bool has_type = RequestHeader(request, iis::HttpHeaderContentType).has_value();
  if (!wanted || !has_type || facts.content_length == 0) return;
  if (facts.content_length > kMaxBody) {
    facts.unread_body = UnreadBody::kTooLarge;
    return;
  }

  const BodyBytes body = ReadAndRestoreBody(context, request, facts.content_length);
  facts.unread_body = body.unread;
  if (body.unread != UnreadBody::kNot) return;
  facts.raw_body = body.bytes;
  if (body.bytes.find("secretrkey") != std::string_view::npos) facts.keyed_body = body.bytes;
  std::string text = DecodeBody(body.bytes);
  CCharSet::LowerAscii(&text);
  facts.body = std::move(text);
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
  if (may_read_body && facts.method == "POST") ReadBody(context, *request, config, facts);
  return true;
}

}  // namespace qiv
