#include "host/proxy.h"

#include <algorithm>
#include <charconv>
#include <memory>

#include "base/hex.h"
#include "host/ascii.h"
#include "host/header_names.h"
#include "host/host_context.h"
#include "host/results.h"
#include "iis/header_names.h"
#include "port/clock.h"

namespace qiv::host {
namespace {

constexpr std::size_t kPieceSize = 65536;
constexpr std::size_t kBufferedLength = 256 * 1024;  ///< a response announced as no longer leaves in one send
constexpr std::size_t kMaxIdle = 128;
constexpr std::size_t kEarlyLimit = 1u << 20;  ///< of an answer that comes before the body is sent
constexpr int kSliceMilliseconds = 250;        ///< how often a waiting request looks after its client

/// The target to send: path and query as received, or, when a module changed the URL, from its decoded form.
std::string Target(CHostContext& context) {
  const iis::HTTP_REQUEST& raw = *context.request().GetRawHttpRequest();
  std::string target;
  if (!context.request().GetUrlChanged()) {
    std::string_view url(raw.pRawUrl, raw.RawUrlLength);
    if (url.front() == '/' || url == "*") return std::string(url);
    url.remove_prefix(url.find("://") + 3);
    const std::size_t path = url.find_first_of("/?");
    target = path == std::string_view::npos ? "" : url.substr(path);
    return target.empty() || target.front() == '?' ? "/" + target : target;
  }
  iis::PCSTR path = nullptr;
  iis::DWORD length = 0;
  context.GetServerVariable("URL", &path, &length);
  for (const char c : std::string_view(path, length)) {
    if (IsTokenChar(c) || c == '/') {
      target.push_back(c);
    } else {
      AppendEscapedByte(c, &target);
    }
  }
  for (std::size_t i = 0; i < raw.CookedUrl.QueryStringLength / sizeof(iis::WCHAR); ++i) {
    target.push_back(static_cast<char>(raw.CookedUrl.pQueryString[i]));
  }
  return target;
}

/// Waits for the upstream. The client is not to blame for it, but another thread can work meanwhile.
bool WaitForUpstream(CHostContext& context, SocketHandle socket, bool read, bool write, int milliseconds,
                     Readiness* ready) {
  IWaitingRoom* room = context.wire().room();
  if (room == nullptr) return WaitFor(socket, read, write, milliseconds, ready);
  Waiter waiter;
  const CWaitingScope scope(*room, waiter);
  return WaitFor(socket, read, write, milliseconds, ready);
}

/// Headers in which proxies tell of the client before them. Anybody can write them.
bool IsForwarded(std::string_view name) {
  for (const std::string_view known :
       {"X-Forwarded-For", "X-Forwarded-Proto", "X-Forwarded-Host", "X-Forwarded-Port", "X-Real-IP", "Forwarded"}) {
    if (EqualsIgnoreCase(known, name)) return true;
  }
  return false;
}

std::string_view KnownValue(const iis::HTTP_REQUEST_HEADERS& headers, int id) {
  const iis::HTTP_KNOWN_HEADER& header = headers.KnownHeaders[id];
  return header.pRawValue == nullptr ? std::string_view() : std::string_view(header.pRawValue, header.RawValueLength);
}

void SetError(CHostContext& context, int status) {
  CHostResponse& response = context.response();
  if (response.headers_sent()) {
    response.ResetConnection();  // the only way left to tell the client that the body is not whole
    return;
  }
  response.Clear();
  const std::string reason(ReasonOf(status));
  response.SetStatus(static_cast<iis::USHORT>(status), reason.c_str(), 0, kOk, nullptr, 0);
}

}  // namespace

/// One request on its way.
struct CProxy::Exchange {
  explicit Exchange(CHostContext& request_context) : context(request_context), piece(new char[kPieceSize]) {}

  CHostContext& context;
  COwnedSocket socket;
  bool reused = false;     ///< the connection served before and may have been closed meanwhile
  bool body_whole = true;  ///< all of it was sent
  bool chunked = false;    ///< the body goes out in chunks
  bool upgrade = false;    ///< the client asks for another protocol
  std::string input;       ///< read from the upstream and not yet used
  CUpstreamReader reader;
  UpstreamHead head;
  std::unique_ptr<char[]> piece;
};

COwnedSocket CProxy::TakeIdle() {
  for (;;) {
    COwnedSocket socket;
    {
      const CAutoLock hold(idle_lock_);
      if (idle_.empty()) return {};
      socket = std::move(idle_.back());
      idle_.pop_back();
    }
    // Anything readable on an idle connection is its end, or bytes nobody asked for.
    Readiness ready;
    if (!WaitFor(socket.handle(), true, false, 0, &ready)) return socket;
  }
}

void CProxy::GiveBack(COwnedSocket socket) {
  const CAutoLock hold(idle_lock_);
  if (idle_.size() < kMaxIdle) idle_.push_back(std::move(socket));
}

void CProxy::AddForwarded(CHostContext& context, std::string* text) const {
  const iis::HTTP_REQUEST& raw = *context.request().GetRawHttpRequest();
  std::string clients;
  bool has_proto = false;
  for (std::size_t i = 0; settings_.trust_forwarded && i < raw.Headers.UnknownHeaderCount; ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = raw.Headers.pUnknownHeaders[i];
    const std::string_view name(header.pName, header.NameLength);
    const std::string_view value(header.pRawValue == nullptr ? "" : header.pRawValue, header.RawValueLength);
    if (!IsForwarded(name)) continue;
    has_proto = has_proto || EqualsIgnoreCase(name, "X-Forwarded-Proto");
    if (EqualsIgnoreCase(name, "X-Forwarded-For")) {
      clients.append(value).append(value.empty() ? "" : ", ");
    } else {
      text->append(name).append(": ").append(value).append("\r\n");
    }
  }
  clients += AddressText(*reinterpret_cast<const HostAddress*>(context.request().GetRemoteAddress()));
  text->append("X-Forwarded-For: ").append(clients).append("\r\n");
  if (!has_proto) text->append("X-Forwarded-Proto: ").append(raw.pSslInfo == nullptr ? "http\r\n" : "https\r\n");
}

std::string CProxy::RequestHeadText(Exchange& exchange) const {
  CHostContext& context = exchange.context;
  const iis::HTTP_REQUEST& raw = *context.request().GetRawHttpRequest();
  const iis::HTTP_REQUEST_HEADERS& headers = raw.Headers;
  std::string text = std::string(context.request().GetHttpMethod()) + " " + Target(context) + " HTTP/1.1\r\n";
  const std::string_view connection = KnownValue(headers, iis::HttpHeaderConnection);
  const auto add = [&](std::string_view name, std::string_view value) {
    if (IsHopByHop(name, connection) || IsForwarded(name)) return;
    text.append(name).append(": ").append(value).append("\r\n");
  };
  if (headers.KnownHeaders[iis::HttpHeaderHost].pRawValue == nullptr) {
    add("Host", settings_.host + ":" + settings_.port);
  }
  const bool has_length = headers.KnownHeaders[iis::HttpHeaderContentLength].pRawValue != nullptr;
  const bool has_body = context.request().chunked() || context.request().GetRemainingEntityBytes() > 0;
  exchange.chunked = context.request().chunked() || (!has_length && has_body);
  for (int id = 0; id < iis::HttpHeaderRequestMaximum; ++id) {
    if (headers.KnownHeaders[id].pRawValue == nullptr || id == iis::HttpHeaderExpect) continue;
    if (id == iis::HttpHeaderContentLength && exchange.chunked) continue;
    add(iis::RequestHeaderName(id), KnownValue(headers, id));
  }
  for (std::size_t i = 0; i < headers.UnknownHeaderCount; ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    add({header.pName, header.NameLength},
        {header.pRawValue == nullptr ? "" : header.pRawValue, header.RawValueLength});
  }
  AddForwarded(context, &text);
  const std::string_view protocol = KnownValue(headers, iis::HttpHeaderUpgrade);
  exchange.upgrade =
      !protocol.empty() && !has_body && raw.Version.MinorVersion >= 1 && ListHolds(connection, "upgrade");
  if (exchange.upgrade) text.append("Connection: Upgrade\r\nUpgrade: ").append(protocol).append("\r\n");
  if (exchange.chunked) text += "Transfer-Encoding: chunked\r\n";
  return text + "\r\n";
}

bool CProxy::SendPiece(Exchange& exchange, const char* data, std::size_t size) {
  const SocketHandle socket = exchange.socket.handle();
  while (size > 0) {
    const IoResult sent = WriteNow(socket, data, size);
    if (sent.status == IoStatus::kDone) {
      data += sent.bytes;
      size -= sent.bytes;
      continue;
    }
    if (sent.status != IoStatus::kWouldBlock) return false;
    // The upstream may be answering already and not read on before its answer is taken.
    Readiness ready;
    const bool listen = exchange.input.size() < kEarlyLimit;
    if (!WaitForUpstream(exchange.context, socket, listen, true, settings_.timeout_milliseconds, &ready)) return false;
    if (listen && ready.readable && !ready.writable) {
      char early[16384];
      const IoResult got = ReadNow(socket, early, sizeof early);
      if (got.status == IoStatus::kDone) exchange.input.append(early, got.bytes);
      if (got.status == IoStatus::kClosed || got.status == IoStatus::kFailed) return false;
    }
  }
  return true;
}

CProxy::Outcome CProxy::SendBody(Exchange& exchange) {
  CHostRequest& request = exchange.context.request();
  const std::string head = RequestHeadText(exchange);
  const bool chunked = exchange.chunked;
  if (!SendPiece(exchange, head.data(), head.size())) return Outcome::kRetry;
  // Room in front for a chunk's size and behind for its line end.
  constexpr std::size_t kFront = 10;
  constexpr std::size_t kBack = 2;
  while (chunked || request.GetRemainingEntityBytes() > 0) {
    std::size_t got = 0;
    const iis::HRESULT result = request.ReadBody(exchange.piece.get() + kFront, kPieceSize - kFront - kBack, &got);
    if (result == iis::kHandleEof) break;
    if (iis::Failed(result)) return Outcome::kAborted;
    char* from = exchange.piece.get() + kFront;
    std::size_t size = got;
    if (chunked) {
      char digits[8];
      const auto count = static_cast<std::size_t>(std::to_chars(digits, digits + sizeof digits, got, 16).ptr - digits);
      from -= count + 2;
      std::copy(digits, digits + count, from);
      from[count] = '\r';
      from[count + 1] = '\n';
      from[count + 2 + got] = '\r';
      from[count + 3 + got] = '\n';
      size = count + 2 + got + 2;
    }
    if (!SendPiece(exchange, from, size)) {
      exchange.body_whole = false;  // an answer may be there all the same
      return Outcome::kDone;
    }
  }
  if (chunked && !SendPiece(exchange, "0\r\n\r\n", 5)) exchange.body_whole = false;
  return Outcome::kDone;
}

CProxy::Outcome CProxy::SendRequest(Exchange& exchange) {
  // A kept connection may be closed by the upstream at the very moment it is used. Only what can be sent twice takes
  // that risk.
  const std::string_view method = exchange.context.request().GetHttpMethod();
  const bool repeatable = (method == "GET" || method == "HEAD" || method == "OPTIONS") &&
                          exchange.context.request().GetRemainingEntityBytes() == 0;
  exchange.socket = repeatable ? TakeIdle() : COwnedSocket();
  exchange.reused = exchange.socket.is_open();
  if (!exchange.reused) {
    bool timed_out = false;
    exchange.socket = ConnectTo(settings_.host, settings_.port, settings_.connect_milliseconds, &timed_out);
    if (!exchange.socket.is_open()) return timed_out ? Outcome::kTimeout : Outcome::kBadGateway;
  }
  return SendBody(exchange);
}

/// Appends to the input. Looks after the client while it waits.
CProxy::Outcome CProxy::ReadMore(Exchange& exchange) {
  const std::int64_t end = MonotonicMicroseconds() + std::int64_t{settings_.timeout_milliseconds} * 1000;
  for (;;) {
    const IoResult got = ReadNow(exchange.socket.handle(), exchange.piece.get(), kPieceSize);
    if (got.status == IoStatus::kDone) {
      exchange.input.append(exchange.piece.get(), got.bytes);
      return Outcome::kDone;
    }
    if (got.status != IoStatus::kWouldBlock) return Outcome::kBadGateway;
    if (MonotonicMicroseconds() > end) return Outcome::kTimeout;
    Readiness ready;
    if (WaitForUpstream(exchange.context, exchange.socket.handle(), true, false, kSliceMilliseconds, &ready)) continue;
    if (!exchange.context.wire().IsConnected()) return Outcome::kAborted;
  }
}

CProxy::Outcome CProxy::ReadHead(Exchange& exchange) {
  const bool is_head = std::string_view(exchange.context.request().GetHttpMethod()) == "HEAD";
  exchange.reader.Begin(is_head);
  for (;;) {
    const UpstreamParse parsed = exchange.reader.ReadHead(&exchange.input, &exchange.head);
    if (parsed == UpstreamParse::kMalformed) return Outcome::kBadGateway;
    if (parsed == UpstreamParse::kComplete) {
      if (exchange.head.status == 101) return exchange.upgrade ? Outcome::kDone : Outcome::kBadGateway;
      if (exchange.head.status >= 200) return Outcome::kDone;
      exchange.reader.Begin(is_head);
      continue;
    }
    const bool nothing_yet = exchange.input.empty();
    const Outcome more = ReadMore(exchange);
    // A kept connection that the upstream closed just now: once more on a fresh one.
    const bool stale = more == Outcome::kBadGateway && exchange.reused && nothing_yet;
    if (more != Outcome::kDone) return stale ? Outcome::kRetry : more;
  }
}

/// The response body, in the pieces in which it comes; a short announced one in a single piece.
CProxy::Outcome CProxy::PassBody(Exchange& exchange) {
  CHostResponse& response = exchange.context.response();
  const bool at_once = exchange.head.content_length && *exchange.head.content_length <= kBufferedLength;
  std::string body;
  for (;;) {
    const UpstreamParse parsed = exchange.reader.ReadBody(&exchange.input, &body);
    if (parsed == UpstreamParse::kMalformed) return Outcome::kBadGateway;
    if (parsed == UpstreamParse::kComplete) break;
    if (!body.empty() && !at_once) {
      iis::HTTP_DATA_CHUNK chunk{};
      chunk.FromMemory.pBuffer = body.data();
      chunk.FromMemory.BufferLength = static_cast<iis::ULONG>(body.size());
      iis::DWORD sent = 0;
      response.WriteEntityChunkByReference(&chunk, -1);
      if (iis::Failed(response.Flush(0, 1, &sent, nullptr))) return Outcome::kAborted;
      body.clear();
    }
    const Outcome more = ReadMore(exchange);
    if (more == Outcome::kBadGateway && exchange.reader.EndsHere()) break;
    if (more != Outcome::kDone) return more;
  }
  if (!body.empty()) {
    iis::HTTP_DATA_CHUNK chunk{};
    chunk.FromMemory.pBuffer = body.data();
    chunk.FromMemory.BufferLength = static_cast<iis::ULONG>(body.size());
    response.WriteEntityChunks(&chunk, 1, 0, 1, nullptr, nullptr);
  }
  return Outcome::kDone;
}

CProxy::Outcome CProxy::SwitchProtocol(Exchange& exchange) {
  const std::string& protocol = exchange.head.upgrade;
  exchange.context.response().SetHeader(iis::HttpHeaderUpgrade, protocol.c_str(),
                                        static_cast<iis::USHORT>(protocol.size()), 1);
  const bool opened = exchange.context.wire().OpenTunnel(std::move(exchange.socket), std::move(exchange.input));
  return opened ? Outcome::kDone : Outcome::kBadGateway;
}

CProxy::Outcome CProxy::Run(Exchange& exchange) {
  Outcome outcome = SendRequest(exchange);
  if (outcome == Outcome::kRetry && !exchange.reused) return Outcome::kBadGateway;
  if (outcome != Outcome::kDone) return outcome;
  outcome = ReadHead(exchange);
  if (outcome != Outcome::kDone) return outcome;

  CHostResponse& response = exchange.context.response();
  const UpstreamHead& head = exchange.head;
  const std::string reason = head.reason.substr(0, 512);
  response.SetStatus(static_cast<iis::USHORT>(head.status), reason.c_str(), 0, kOk, nullptr, 1);
  for (const auto& [name, value] : head.headers) {
    // The upstream's own name takes the place of ours.
    const bool replace = EqualsIgnoreCase(name, "Server");
    if (value.size() > 65535) continue;
    response.SetHeader(name.c_str(), value.c_str(), static_cast<iis::USHORT>(value.size()), replace);
  }
  if (head.content_length) {
    const std::string length = std::to_string(*head.content_length);
    response.SetHeader(iis::HttpHeaderContentLength, length.c_str(), static_cast<iis::USHORT>(length.size()), 1);
  }
  if (head.status == 101) return SwitchProtocol(exchange);
  outcome = PassBody(exchange);
  const bool clean =
      outcome == Outcome::kDone && exchange.reader.keeps_alive() && exchange.body_whole && exchange.input.empty();
  if (clean) GiveBack(std::move(exchange.socket));
  return outcome;
}

void CProxy::Execute(CHostContext& context) {
  Exchange exchange(context);
  Outcome outcome = Outcome::kRetry;
  while (outcome == Outcome::kRetry) {
    exchange.input.clear();
    outcome = Run(exchange);
  }
  switch (outcome) {
    case Outcome::kBadGateway:
      return SetError(context, 502);
    case Outcome::kTimeout:
      return SetError(context, 504);
    case Outcome::kAborted:
      return context.response().ResetConnection();
    case Outcome::kDone:
    case Outcome::kRetry:
      return;
  }
}

}  // namespace qiv::host
