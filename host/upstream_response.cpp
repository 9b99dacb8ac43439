#include "host/upstream_response.h"

#include <algorithm>

#include "host/ascii.h"

namespace qiv::host {
namespace {

constexpr std::size_t kMaxUpstreamHead = 256 * 1024;
constexpr std::size_t kMaxUpgrade = 256;  ///< a protocol's name

/// "HTTP/1.x NNN reason"; the reason and its blank may be missing.
bool ParseStatusLine(std::string_view line, UpstreamHead* head) {
  if (line.size() < 12 || line.substr(0, 7) != "HTTP/1." || !IsDigit(line[7]) || line[8] != ' ') return false;
  std::uint64_t status = 0;
  if (!ParseDecimal(line.substr(9, 3), &status) || status < 100 || (line.size() > 12 && line[12] != ' ')) return false;
  head->minor_version = line[7] - '0';
  head->status = static_cast<int>(status);
  if (line.size() > 13) head->reason = line.substr(13);
  head->keep_alive = head->minor_version >= 1;
  return true;
}

bool TakeFraming(std::string_view name, std::string_view value, UpstreamHead* head, std::string* coding) {
  std::uint64_t length = 0;
  if (EqualsIgnoreCase(name, "Content-Length")) {
    if (!ParseDecimal(value, &length) || (head->content_length && *head->content_length != length)) return false;
    head->content_length = length;
  } else if (EqualsIgnoreCase(name, "Transfer-Encoding")) {
    if (!coding->empty()) coding->append(",");
    coding->append(value);
  }
  return true;
}

}  // namespace

bool IsHopByHop(std::string_view name, std::string_view connection) {
  for (const std::string_view hop : {"Connection", "Keep-Alive", "Proxy-Connection", "Transfer-Encoding", "TE",
                                     "Trailer", "Upgrade", "Proxy-Authenticate", "Proxy-Authorization"}) {
    if (EqualsIgnoreCase(hop, name)) return true;
  }
  if (connection.empty()) return false;
  // A client may list anything. Without its length a body would be the next request; without the others the upstream
  // would mistake the site or the client.
  for (const std::string_view kept : {"Content-Length", "Host", "X-Forwarded-For"}) {
    if (EqualsIgnoreCase(kept, name)) return false;
  }
  return ListHolds(connection, name);
}

UpstreamParse ParseUpstreamHead(std::string_view buffer, UpstreamHead* head) {
  *head = UpstreamHead();
  std::size_t end = 0;
  for (std::size_t at = buffer.find('\n'); at != std::string_view::npos && end == 0; at = buffer.find('\n', at + 1)) {
    const std::string_view rest = buffer.substr(at + 1, 2);
    if (rest.substr(0, 1) == "\n") end = at + 2;
    if (rest == "\r\n") end = at + 3;
  }
  if (end == 0) return buffer.size() > kMaxUpstreamHead ? UpstreamParse::kMalformed : UpstreamParse::kNeedMore;
  head->size = end;
  std::string_view rest = buffer.substr(0, end);
  std::vector<std::pair<std::string_view, std::string_view>> fields;
  std::string connection;
  std::string coding;
  bool first = true;
  while (!rest.empty()) {
    const std::size_t lf = rest.find('\n');
    std::string_view line = rest.substr(0, lf);
    rest.remove_prefix(lf + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.find_first_of(std::string_view("\r\0", 2)) != std::string_view::npos) return UpstreamParse::kMalformed;
    if (first) {
      if (!ParseStatusLine(line, head)) return UpstreamParse::kMalformed;
      first = false;
      continue;
    }
    if (line.empty()) break;
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    if (colon == std::string_view::npos || colon == 0 || !std::all_of(name.begin(), name.end(), IsTokenChar)) {
      return UpstreamParse::kMalformed;
    }
    const std::string_view value = TrimBlanks(line.substr(colon + 1));
    if (!TakeFraming(name, value, head, &coding)) return UpstreamParse::kMalformed;
    if (EqualsIgnoreCase(name, "Connection")) connection.append(connection.empty() ? "" : ",").append(value);
    if (EqualsIgnoreCase(name, "Upgrade")) head->upgrade = value.substr(0, kMaxUpgrade);
    fields.emplace_back(name, value);
  }
  if (ListHolds(connection, "close")) head->keep_alive = false;
  if (ListHolds(connection, "keep-alive")) head->keep_alive = true;
  if (!coding.empty()) {
    if (!EqualsIgnoreCase(coding, "chunked")) return UpstreamParse::kMalformed;
    head->chunked = true;
    // Both are a sign of confusion somewhere: believe the coding and do not use the connection again.
    if (head->content_length) head->keep_alive = false;
    head->content_length.reset();
  }
  for (const auto& [name, value] : fields) {
    if (IsHopByHop(name, connection) || EqualsIgnoreCase(name, "Content-Length")) continue;
    head->headers.emplace_back(name, value);
  }
  return UpstreamParse::kComplete;
}

}  // namespace qiv::host
