#include "host/http_parser.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/hex.h"
#include "host/ascii.h"

namespace qiv::host {
namespace {

ParseResult Refuse(int status, const char* text) { return {ParseStatus::kRefused, status, text}; }

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

/// Takes one line off the front; LF alone ends a line too, a CR elsewhere stays in the line (and is refused later).
bool TakeLine(std::string_view* rest, std::string_view* line) {
  const std::size_t lf = rest->find('\n');
  if (lf == std::string_view::npos) return false;
  *line = rest->substr(0, lf);
  if (!line->empty() && line->back() == '\r') line->remove_suffix(1);
  rest->remove_prefix(lf + 1);
  return true;
}

/// Length of the head with its empty line, 0 while it is not complete. `start` is where the request line begins.
std::size_t FindHeadEnd(std::string_view buffer, std::size_t start) {
  for (std::size_t at = buffer.find('\n', start); at != std::string_view::npos; at = buffer.find('\n', at + 1)) {
    if (at + 1 < buffer.size() && buffer[at + 1] == '\n') return at + 2;
    if (at + 2 < buffer.size() && buffer[at + 1] == '\r' && buffer[at + 2] == '\n') return at + 3;
  }
  return 0;
}

ParseResult ParseVersion(std::string_view version, RequestHead* head) {
  if (version.size() != 8 || version.substr(0, 5) != "HTTP/" || !IsDigit(version[5]) || version[6] != '.' ||
      !IsDigit(version[7])) {
    return Refuse(400, "Invalid version.");
  }
  head->major_version = version[5] - '0';
  head->minor_version = version[7] - '0';
  if (head->major_version != 1) return Refuse(505, "The version is not supported.");
  return {ParseStatus::kComplete};
}

ParseResult ParseRequestLine(std::string_view line, RequestHead* head) {
  const std::size_t first = line.find(' ');
  const std::size_t last = line.rfind(' ');
  head->method = line.substr(0, first);
  if (head->method.empty() || !std::all_of(head->method.begin(), head->method.end(), IsTokenChar)) {
    return Refuse(400, "Invalid verb.");
  }
  if (first == std::string_view::npos || first == last) return Refuse(400, "Invalid request line.");
  head->raw_url = line.substr(first + 1, last - first - 1);
  if (head->raw_url.empty()) return Refuse(400, "Invalid URL.");
  for (const char c : head->raw_url) {
    if (IsControl(c) || c == ' ') return Refuse(400, "Invalid URL.");
  }
  const char start = head->raw_url.front();
  const bool absolute = head->raw_url.size() > 7 && EqualsIgnoreCase(head->raw_url.substr(0, 7), "http://");
  const bool secure = head->raw_url.size() > 8 && EqualsIgnoreCase(head->raw_url.substr(0, 8), "https://");
  const bool server_wide = head->raw_url == "*" && head->method == "OPTIONS";
  if (start != '/' && !absolute && !secure && !server_wide) return Refuse(400, "Invalid URL.");
  return ParseVersion(line.substr(last + 1), head);
}

/// host[:port] as a Host header or an absolute URL may hold it.
bool IsValidHost(std::string_view host) {
  std::string_view port;
  if (!host.empty() && host.front() == '[') {
    const std::size_t close = host.find(']');
    if (close == std::string_view::npos || close < 3) return false;
    for (const char c : host.substr(1, close - 1)) {
      if (HexValue(c) < 0 && c != ':' && c != '.') return false;
    }
    port = host.substr(close + 1);
  } else {
    const std::size_t colon = host.find(':');
    const std::string_view name = host.substr(0, colon);
    if (colon != std::string_view::npos) port = host.substr(colon);
    if (name.empty() || name.size() > 255) return false;
    for (const char c : name) {
      const char lower = LowerByte(c);
      const bool plain = IsDigit(c) || (lower >= 'a' && lower <= 'z') || c == '-' || c == '.' || c == '_' || c == '~';
      // Names in other scripts may arrive as UTF-8.
      if (!plain && static_cast<unsigned char>(c) < 0x80) return false;
    }
  }
  if (port.empty()) return true;
  std::uint64_t number = 0;
  if (port.front() != ':') return false;
  return port.size() == 1 || (ParseDecimal(port.substr(1), &number) && number <= 65535);
}

ParseResult TakeHeaderMeaning(const HeaderView& header, RequestHead* head, std::string* coding) {
  if (EqualsIgnoreCase(header.name, "Content-Length")) {
    std::uint64_t length = 0;
    if (!ParseDecimal(header.value, &length)) return Refuse(400, "Invalid content length.");
    // Repeated with the same value is accepted, with another refused.
    if (head->content_length && *head->content_length != length) return Refuse(400, "Invalid content length.");
    head->content_length = length;
  } else if (EqualsIgnoreCase(header.name, "Transfer-Encoding")) {
    if (!coding->empty()) coding->append(",");
    coding->append(header.value.empty() ? std::string_view("?") : header.value);
  } else if (EqualsIgnoreCase(header.name, "Host")) {
    if (head->has_host) return Refuse(400, "Invalid hostname.");
    head->has_host = true;
    head->host = header.value;
  } else if (EqualsIgnoreCase(header.name, "Connection")) {
    if (ListHolds(header.value, "close")) {
      head->keep_alive = false;
    } else if (head->minor_version == 0 && ListHolds(header.value, "keep-alive")) {
      head->keep_alive = true;
    }
  } else if (EqualsIgnoreCase(header.name, "Expect")) {
    if (head->minor_version >= 1 && EqualsIgnoreCase(header.value, "100-continue")) head->expects_continue = true;
  }
  return {ParseStatus::kComplete};
}

ParseResult FoldInto(std::string_view line, const HostOptions& options, RequestHead* head) {
  if (head->headers.empty()) return {ParseStatus::kComplete};
  if (!options.fold_header_lines) return Refuse(400, "Invalid header.");
  HeaderView& last = head->headers.back();
  if (head->folded.empty() || last.value.data() != head->folded.back()->data()) {
    head->folded.push_back(std::make_unique<std::string>(last.value));
  }
  head->folded.back()->append(" ").append(TrimBlanks(line));
  last.value = *head->folded.back();
  return {ParseStatus::kComplete};
}

ParseResult ParseHeaderLine(std::string_view line, RequestHead* head) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return Refuse(400, "Invalid header.");
  const HeaderView header = {line.substr(0, colon), TrimBlanks(line.substr(colon + 1))};
  if (!std::all_of(header.name.begin(), header.name.end(), IsTokenChar)) return Refuse(400, "Invalid header name.");
  head->headers.push_back(header);
  return {ParseStatus::kComplete};
}

/// Length, host and coding must agree before anybody looks at the body.
ParseResult CheckFraming(const std::string& coding, RequestHead* head) {
  if (!coding.empty()) {
    if (head->minor_version == 0) return Refuse(400, "Transfer coding in HTTP/1.0.");
    if (!EqualsIgnoreCase(coding, "chunked")) return Refuse(501, "The transfer coding is not supported.");
    head->chunked = true;
    head->length_and_chunked = head->content_length.has_value();
  }
  if (head->has_host ? !(head->host.empty() || IsValidHost(head->host)) : head->minor_version >= 1) {
    return Refuse(400, "Invalid hostname.");
  }
  const std::size_t scheme = head->raw_url.find("://");
  if (head->raw_url.front() != '/' && scheme != std::string_view::npos) {
    const std::string_view rest = head->raw_url.substr(scheme + 3);
    if (!IsValidHost(rest.substr(0, rest.find_first_of("/?")))) return Refuse(400, "Invalid hostname.");
  }
  const bool needs_length = head->method == "POST" || head->method == "PUT";
  if (needs_length && !head->chunked && !head->content_length) return Refuse(411, "A length is required.");
  return {ParseStatus::kComplete};
}

ParseResult ParseHeaders(std::string_view rest, const HostOptions& options, RequestHead* head) {
  std::string_view line;
  while (TakeLine(&rest, &line) && !line.empty()) {
    for (const char c : line) {
      if (IsControl(c) && c != '\t') return Refuse(400, "Invalid header.");
    }
    bool continues = line.front() == ' ' || line.front() == '\t';
    // Blanks before the first header are tolerated, continuation lines are not.
    if (continues && head->headers.empty()) {
      line = TrimBlanks(line);
      if (line.empty()) continue;
      continues = false;
    }
    const ParseResult result = continues ? FoldInto(line, options, head) : ParseHeaderLine(line, head);
    if (result.status == ParseStatus::kRefused) return result;
  }
  std::string coding;
  for (const HeaderView& header : head->headers) {
    const ParseResult result = TakeHeaderMeaning(header, head, &coding);
    if (result.status == ParseStatus::kRefused) return result;
  }
  return CheckFraming(coding, head);
}

}  // namespace

ParseResult ParseRequestHead(std::string_view buffer, const HostOptions& options, RequestHead* head) {
  std::vector<HeaderView> headers = std::move(head->headers);  // keeps its room
  headers.clear();
  *head = RequestHead();
  head->headers = std::move(headers);
  std::size_t start = 0;
  // Empty lines before a request are left over from clients that end a body with one.
  while (start < buffer.size() && (buffer[start] == '\r' || buffer[start] == '\n')) ++start;
  const std::string_view window = buffer.substr(0, kMaxHeadBytes);
  const std::size_t end = start < window.size() ? FindHeadEnd(window, start) : 0;
  if (end == 0) {
    if (buffer.size() >= kMaxHeadBytes) return Refuse(400, "The request is too long.");
    return {ParseStatus::kNeedMore};
  }
  head->size = end;
  std::string_view rest = window.substr(start, end - start);
  std::string_view line;
  TakeLine(&rest, &line);
  ParseResult result = ParseRequestLine(line, head);
  if (result.status == ParseStatus::kRefused) return result;
  head->keep_alive = head->minor_version >= 1;
  return ParseHeaders(rest, options, head);
}

CChunkedDecoder::Status CChunkedDecoder::Decode(std::string_view* input, char* output, std::size_t room,
                                                std::size_t* got) {
  *got = 0;
  while (!done_ && !input->empty()) {
    if (state_ == State::kData) {
      std::size_t take = std::min(input->size(), room - *got);
      if (take > left_) take = static_cast<std::size_t>(left_);
      if (take == 0) return Status::kMore;
      std::memcpy(output + *got, input->data(), take);
      *got += take;
      left_ -= take;
      input->remove_prefix(take);
      if (left_ == 0) state_ = State::kDataCr;
      continue;
    }
    const char c = input->front();
    input->remove_prefix(1);
    if (Step(c) == Status::kMalformed) return Status::kMalformed;
  }
  return done_ ? Status::kDone : Status::kMore;
}

CChunkedDecoder::Status CChunkedDecoder::Step(char c) {
  const auto expect = [&](char wanted, State next) {
    state_ = next;
    return c == wanted ? Status::kMore : Status::kMalformed;
  };
  switch (state_) {
    case State::kSize:
      if (HexValue(c) >= 0) {
        if (++digits_ > 15) return Status::kMalformed;
        left_ = left_ * 16 + static_cast<unsigned>(HexValue(c));
        return Status::kMore;
      }
      if (digits_ == 0) return Status::kMalformed;
      if (c == '\r') return expect('\r', State::kSizeLf);
      state_ = State::kExtension;
      return c == ';' || c == ' ' || c == '\t' ? Status::kMore : Status::kMalformed;
    case State::kExtension:
      if (c == '\r') return expect('\r', State::kSizeLf);
      return ++extra_bytes_ > kMaxHeadBytes || (IsControl(c) && c != '\t') ? Status::kMalformed : Status::kMore;
    case State::kSizeLf:
      digits_ = 0;
      return expect('\n', left_ == 0 ? State::kTrailerStart : State::kData);
    case State::kDataCr:
      return expect('\r', State::kDataLf);
    case State::kDataLf:
      return expect('\n', State::kSize);
    case State::kTrailerStart:
      if (c == '\r') return expect('\r', State::kEndLf);
      state_ = State::kTrailer;
      return IsTokenChar(c) ? Status::kMore : Status::kMalformed;
    case State::kTrailer:
      if (c == '\r') return expect('\r', State::kTrailerLf);
      return ++extra_bytes_ > kMaxHeadBytes || (IsControl(c) && c != '\t') ? Status::kMalformed : Status::kMore;
    case State::kTrailerLf:
      return expect('\n', State::kTrailerStart);
    case State::kEndLf:
      done_ = c == '\n';
      return done_ ? Status::kMore : Status::kMalformed;
    case State::kData:
      break;
  }
  return Status::kMalformed;
}

}  // namespace qiv::host
