#include "host/upstream_response.h"

#include <limits>
#include <utility>

// Asio, below Beast, needs std::exchange before its own headers.
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>

#include "host/ascii.h"

namespace qiv::host {
namespace {

namespace http = boost::beast::http;
using Error = boost::system::error_code;

constexpr std::uint32_t kMaxUpstreamHead = 256 * 1024;  ///< also of a chunk's size line and of trailers
constexpr std::size_t kMaxUpgrade = 256;                ///< a protocol's name
constexpr std::size_t kBodyStep = 65536;

std::string_view View(boost::beast::string_view text) { return {text.data(), text.size()}; }

}  // namespace

struct CUpstreamReader::Parser {
  http::response_parser<http::buffer_body> parser;
};

CUpstreamReader::CUpstreamReader() { Begin(false); }
CUpstreamReader::~CUpstreamReader() = default;

void CUpstreamReader::Begin(bool to_head_request) {
  parser_ = std::make_unique<Parser>();
  parser_->parser.header_limit(kMaxUpstreamHead);
  parser_->parser.body_limit(std::numeric_limits<std::uint64_t>::max());
  parser_->parser.skip(to_head_request);
}

UpstreamParse CUpstreamReader::ReadHead(std::string* input, UpstreamHead* head) {
  *head = UpstreamHead();
  auto& parser = parser_->parser;
  Error error;
  if (!input->empty()) input->erase(0, parser.put(boost::asio::buffer(*input), error));
  if (error && error != http::error::need_more) return UpstreamParse::kMalformed;
  if (!parser.is_header_done()) return UpstreamParse::kNeedMore;

  const auto& message = parser.get();
  head->status = static_cast<int>(message.result_int());
  if (head->status < 100) return UpstreamParse::kMalformed;
  head->reason = View(message.reason());
  if (const auto length = parser.content_length()) head->content_length = *length;
  std::string connection;
  for (const auto& field : message) {
    if (field.name() == http::field::connection) {
      connection.append(connection.empty() ? "" : ",").append(View(field.value()));
    }
    // Another coding could only be passed on by somebody who knows it.
    const bool is_coding = field.name() == http::field::transfer_encoding;
    if (is_coding && !EqualsIgnoreCase(View(field.value()), "chunked")) return UpstreamParse::kMalformed;
    if (field.name() == http::field::upgrade) head->upgrade = View(field.value()).substr(0, kMaxUpgrade);
  }
  for (const auto& field : message) {
    const std::string_view name = View(field.name_string());
    if (IsHopByHop(name, connection) || field.name() == http::field::content_length) continue;
    head->headers.emplace_back(name, View(field.value()));
  }
  return UpstreamParse::kComplete;
}

UpstreamParse CUpstreamReader::ReadBody(std::string* input, std::string* body) {
  auto& parser = parser_->parser;
  std::size_t used = 0;
  Error error;
  while (!parser.is_done() && used < input->size()) {
    const std::size_t at = body->size();
    body->resize(at + kBodyStep);
    auto& room = parser.get().body();
    room.data = body->data() + at;
    room.size = kBodyStep;
    room.more = true;
    const std::size_t taken = parser.put(boost::asio::buffer(input->data() + used, input->size() - used), error);
    body->resize(at + kBodyStep - room.size);
    used += taken;
    if (error == http::error::need_buffer) error = {};
    if (error) break;
    if (taken == 0 && body->size() == at) break;
  }
  input->erase(0, used);
  if (error && error != http::error::need_more) return UpstreamParse::kMalformed;
  if (parser.is_done()) return UpstreamParse::kComplete;
  // What remains unused is the beginning of a size line or of trailers.
  return input->size() > kMaxUpstreamHead ? UpstreamParse::kMalformed : UpstreamParse::kNeedMore;
}

bool CUpstreamReader::EndsHere() {
  if (!parser_->parser.got_some()) return false;
  Error error;
  parser_->parser.put_eof(error);
  return !error && parser_->parser.is_done();
}

bool CUpstreamReader::keeps_alive() const { return parser_->parser.is_done() && parser_->parser.keep_alive(); }

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

}  // namespace qiv::host
