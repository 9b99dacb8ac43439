// Everything the checks need to know of a request, read from the server once.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/ip_address.h"

namespace iis {
class IHttpContext;
}

namespace qiv {

/// Why a body that the checks wanted is not there.
enum class UnreadBody : std::uint8_t { kNot, kTooLarge, kUnreadable, kNoMemory, kEncoded };

/// Of a header that the server has no number for.
inline constexpr std::int32_t kUnknownHeader = -1;

struct HeaderEntry {
  std::int32_t number;  ///< the server's request-header number, 0-40, or kUnknownHeader
  std::string name;
  std::string value;
};

/// Texts are in the local code page (GBK) unless said otherwise. Filled once, when the request begins; nothing but
/// path_readings changes afterwards, and all notifications of the request, which never run at once, read the same one.
struct RequestFacts {
  std::string host;      ///< cooked host without a default port, then the Host header as sent when present
  std::string site_url;  ///< scheme + host + path
  std::string path;      ///< before "?", normalised
  std::string raw_url;   ///< path and query exactly as sent
  /// The readings of the path (PathReadings). RequestPaths makes them when a check first asks, for all that ask later.
  mutable std::vector<std::string> path_readings;
  std::string query;     ///< after the first "?", trimmed and normalised
  std::string full_url;  ///< site_url + "?" + query, the latter two when there is a query
  std::string body;      ///< text_body decoded, normalised, lower-cased
  /// The body as read, whole and undecoded, and the same kept only when it holds "secretrkey": views into the request's
  /// memory, valid as long as the request.
  std::string_view raw_body;
  std::string_view keyed_body;
  /// What a compressed body was unpacked to; raw_body is then a view of this.
  std::shared_ptr<const std::string> unpacked_body;
  /// What of raw_body is judged as text (body_text.h): all of it, or all but binary files; then a view of the latter.
  std::string_view text_body;
  std::shared_ptr<const std::string> body_without_files;
  UnreadBody unread_body = UnreadBody::kNot;
  std::string method;
  std::string cookie;
  bool proxy_seen = false;
  std::string all_headers;  ///< values of the known headers, joined in number order with nothing between them
  /// The known headers that are there, by number; behind them, with website_headers, all others as they came.
  std::vector<HeaderEntry> headers;
  std::uint32_t header_bytes = 0;
  std::string forwarded_for;  ///< X-Forwarded-For after cleaning
  std::string forwarded_for_as_sent;
  std::string content_type;
  bool is_ipv4 = true;
  std::array<std::uint8_t, 16> ipv6{};  ///< the client address when it is IPv6, network byte order
  std::string client_ip;                ///< the address that all checks, pages and events use
  std::uint32_t client_ipv4 = 0;        ///< host byte order; 0 for IPv6
  std::string forwarded_ip;
  CIpAddress local_address;      ///< where the client's connection ends
  std::uint16_t local_port = 0;  ///< 0 when the server does not say
  std::string user_agent;
  std::uint32_t content_length = 0;  ///< 0xFFFFFFFF for anything above
  std::string referer;
  std::uint32_t site_id = 0;
  bool gbk_page = false;                 ///< what the headers say of the page's encoding
  std::int64_t started_us = 0;           ///< MonotonicMicroseconds when the notification that collected this began
  iis::IHttpContext* context = nullptr;  ///< not owned; the same object, and valid, as long as the request
};

}  // namespace qiv
