// Everything the checks need to know of a request, read from the server once.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "checks/shared_text.h"

namespace iis {
class IHttpContext;
}

namespace qiv {

struct WebsiteConfig;
class CQivLibs;
class InjectionLibrary;

enum Phase : std::int32_t { kPhaseBegin = 1, kPhasePostExecute = 3, kPhaseSendResponse = 4 };

/// Why a body that the checks wanted is not there.
enum class UnreadBody : std::uint8_t { kNot, kTooLarge, kUnreadable, kNoMemory };

struct HeaderEntry {
  std::int32_t number;    ///< the server's request-header number, 0-40
  std::string_view name;  ///< static storage; empty for a number out of range
  std::string value;
};

/// Texts are in the local code page (GBK) unless said otherwise. A plain value type: notifications work on copies.
struct RequestFacts {
  std::int32_t phase = 0;
  std::string host;      ///< cooked host without a default port, then the Host header as sent when present
  std::string site_url;  ///< scheme + host + path
  std::string path;      ///< before "?", normalised
  std::string raw_url;   ///< path and query exactly as sent
  std::string query;     ///< after the first "?", trimmed and normalised
  std::string host_and_path;
  std::string full_url;      ///< site_url + "?" + query, the latter two when there is a query
  std::string full_raw_url;  ///< site_url + "?" + the query as sent
  CSharedText body;          ///< decoded, normalised, lower-cased
  /// The body as read, whole and undecoded, and the same kept only when it holds "secretrkey": views into the request's
  /// memory, valid as long as the request.
  std::string_view raw_body;
  std::string_view keyed_body;
  UnreadBody unread_body = UnreadBody::kNot;
  /// The head of the application's answer as it is sent, when a check wants it and it is uncompressed text; phase 3.
  CSharedText response_body;
  std::string method;
  std::string cookie;
  bool proxy_seen = false;
  std::string all_headers;  ///< values of the known headers, joined in number order with nothing between them
  std::vector<HeaderEntry> headers;
  std::uint32_t header_bytes = 0;
  std::string forwarded_for;  ///< X-Forwarded-For after cleaning
  std::string forwarded_for_as_sent;
  std::string content_type;
  bool is_ipv4 = true;
  std::array<std::uint8_t, 16> ipv6{};  ///< the client address when it is IPv6, network byte order
  std::string client_ip;                ///< the address that all checks use
  std::string client_ip_copy;           ///< for pages and events
  std::uint32_t client_ipv4 = 0;        ///< host byte order; 0 for IPv6
  std::string forwarded_ip;
  std::string forwarded_ip_copy;
  std::uint32_t forwarded_ipv4 = 0;
  std::array<std::uint8_t, 16> forwarded_ipv6{};  ///< when the forwarded address is IPv6, network byte order
  bool multipart = false;
  std::string user_agent;
  std::uint32_t content_length = 0;  ///< 0xFFFFFFFF for anything above
  std::string referer;
  std::uint32_t site_id = 0;
  bool page_detail = false;  ///< 1 after collection; lists clear it
  /// A whole page that a check prepared, sent instead of the block page; "{{charset}}" is the one placeholder that is
  /// still substituted in it.
  std::string prepared_page;
  bool gbk_page = false;
  bool custom_page = false;   ///< set when a complete custom page was used
  bool statistics = true;     ///< whether this request's later blocks are counted in statistics; lists clear it
  bool attack = false;        ///< the request's attack mark
  bool form_scanned = false;  ///< every part of a multipart form was scanned whole for webshells
  /// Identifier of the event that this request's block becomes, for the log and the visitor; empty before a page is
  /// written.
  std::string event_id;
  std::int64_t started_us = 0;           ///< MonotonicMicroseconds when the notification that collected this began
  iis::IHttpContext* context = nullptr;  ///< not owned; valid during a notification

  /// The records in force when the request began; held to its end.
  std::shared_ptr<const WebsiteConfig> config;
  std::shared_ptr<const InjectionLibrary> library;
  std::shared_ptr<const CQivLibs> webshells;  ///< null while there is none: nothing can be looked for
};

}  // namespace qiv
