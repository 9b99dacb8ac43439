#include "module/client_address.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "common/text.h"
#include "iis/httpserv.h"
#include "module/server_text.h"

namespace qiv {
namespace {

constexpr std::string_view kUnknown = "unknown";

void CollectForwarded(iis::IHttpRequest& request, RequestFacts& facts) {
  const std::optional<std::string_view> header = RequestHeader(request, "X-Forwarded-For");
  if (!header) return;
  facts.forwarded_for_as_sent = Trim(NormalizeText(std::string(Trim(*header))));
  facts.forwarded_for = CleanForwardedFor(facts.forwarded_for_as_sent);

  const std::optional<CIpAddress> address = ForwardedAddress(facts.forwarded_for);
  if (!address) return;
  facts.is_ipv4 = address->IsIpv4();
  facts.forwarded_ip = address->Text();
}

bool SeenProxy(iis::IHttpContext& context, const RequestFacts& facts) {
  return !facts.forwarded_for_as_sent.empty() || !ServerVariable(context, "VIA").empty() ||
         !ServerVariable(context, "USER_AGENT_VIA").empty();
}

/// The IPv6 client as the server names it. The second source is a header, so that only an address counts in it.
CIpAddress NamedIpv6Client(iis::IHttpContext& context) {
  if (const auto address = CIpAddress::Parse(Trim(ServerVariable(context, "REMOTE_ADDR")))) return *address;
  if (const auto address = ForwardedAddress(CleanForwardedFor(ServerVariable(context, "HTTP_X_FORWARDED_FOR")))) {
    return *address;
  }
  std::array<std::uint8_t, 16> loopback{};
  loopback[15] = 1;
  return CIpAddress::FromIpv6(loopback);
}

CIpAddress Ipv4Of(const iis::SOCKADDR_IN& in) {
  return CIpAddress::FromIpv4(std::uint32_t{in.sin_addr[0]} << 24 | std::uint32_t{in.sin_addr[1]} << 16 |
                              std::uint32_t{in.sin_addr[2]} << 8 | in.sin_addr[3]);
}

void CollectLocal(iis::IHttpRequest& request, RequestFacts& facts) {
  const iis::SOCKADDR* socket = request.GetLocalAddress();
  if (!socket) return;
  iis::SOCKADDR_IN in;
  std::memcpy(&in, socket, sizeof(in));
  if (in.sin_family == iis::kFamilyIpv4) {
    facts.local_address = Ipv4Of(in);
  } else if (in.sin_family == iis::kFamilyIpv6) {
    iis::SOCKADDR_IN6 in6;
    std::memcpy(&in6, socket, sizeof(in6));
    std::array<std::uint8_t, 16> bytes{};
    std::copy(std::begin(in6.sin6_addr), std::end(in6.sin6_addr), bytes.begin());
    facts.local_address = CIpAddress::FromIpv6(bytes);
  } else {
    return;
  }
  facts.local_port = static_cast<std::uint16_t>(in.sin_port[0] << 8 | in.sin_port[1]);
}

std::optional<CIpAddress> SocketClient(iis::IHttpContext& context, iis::IHttpRequest& request) {
  const iis::SOCKADDR* socket = request.GetRemoteAddress();
  if (!socket) return std::nullopt;
  if (socket->sa_family == iis::kFamilyIpv4) {
    iis::SOCKADDR_IN in;
    std::memcpy(&in, socket, sizeof(in));
    return Ipv4Of(in);
  }
  if (socket->sa_family == iis::kFamilyIpv6) return NamedIpv6Client(context);
  return std::nullopt;
}

}  // namespace

std::string CleanForwardedFor(std::string_view text) {
  if (text == kUnknown) return std::string(text);
  std::string clean;
  for (const char c : text) {
    if (c != '\n' && c != '\r' && c != '\v' && c != '\f' && c != '\t') clean += c;
  }
  clean = ReplaceAll(clean, kUnknown, "");
  return std::string(TrimBytes(clean, " ,"));
}

std::optional<CIpAddress> ForwardedAddress(std::string_view cleaned) {
  std::string_view item = Trim(cleaned.substr(cleaned.rfind(',') + 1));
  if (item.starts_with('[')) {
    item = item.substr(0, item.find(']') + 1);  // npos + 1 is 0: an open bracket is no address
  } else if (item.find('.') != std::string_view::npos && item.find(':') == item.rfind(':')) {
    item = item.substr(0, item.find(':'));
  }
  return CIpAddress::Parse(item);
}

bool CollectAddresses(iis::IHttpContext& context, iis::IHttpRequest& request, bool cdn, RequestFacts& facts) {
  CollectForwarded(request, facts);
  CollectLocal(request, facts);
  facts.proxy_seen = SeenProxy(context, facts);

  std::optional<CIpAddress> client;
  if (cdn && facts.forwarded_ip != "0.0.0.0") client = CIpAddress::Parse(facts.forwarded_ip);
  if (!client) client = SocketClient(context, request);
  if (!client) return false;

  facts.client_ip = client->Text();
  facts.is_ipv4 = client->IsIpv4();
  facts.client_ipv4 = client->Ipv4();
  facts.ipv6 = facts.is_ipv4 ? std::array<std::uint8_t, 16>{} : client->Bytes();
  if (facts.forwarded_ip.empty()) facts.forwarded_ip = facts.client_ip;
  return true;
}

}  // namespace qiv
