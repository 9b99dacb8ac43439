#include "host/client.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cstdio>
#include <new>

#include "base/hex.h"
#include "host/header_names.h"
#include "host/host_context.h"
#include "host/http_date.h"
#include "host/pipeline.h"
#include "host/server_state.h"
#include "host/tunnel.h"
#include "port/clock.h"

namespace qiv::host {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::size_t kReadSize = 16384;
constexpr std::size_t kLingerBytes = 64u << 20;     ///< read and dropped after an early answer, so that it is seen
constexpr std::int64_t kLingerSilence = 2'000'000;  ///< microseconds of silence that end this
constexpr int kMaxLingering = 1024;                 ///< beyond them connections close at once
constexpr int kReadsAtOnce = 64;                    ///< then other connections get their turn
constexpr std::int64_t kNever = INT64_MAX;

HostAddress ToHostAddress(const tcp::endpoint& endpoint) {
  HostAddress address{};
  const asio::ip::address& ip = endpoint.address();
  const std::uint16_t port = endpoint.port();
  if (ip.is_v4()) {
    address.ipv4.sin_family = iis::kFamilyIpv4;
    const auto bytes = ip.to_v4().to_bytes();
    std::copy(bytes.begin(), bytes.end(), address.ipv4.sin_addr);
  } else {
    address.ipv6.sin6_family = iis::kFamilyIpv6;
    const auto bytes = ip.to_v6().to_bytes();
    std::copy(bytes.begin(), bytes.end(), address.ipv6.sin6_addr);
    address.ipv6.sin6_scope_id = static_cast<iis::ULONG>(ip.to_v6().scope_id());
  }
  address.ipv4.sin_port[0] = static_cast<unsigned char>(port >> 8);
  address.ipv4.sin_port[1] = static_cast<unsigned char>(port & 0xFF);
  return address;
}

}  // namespace

CClient::CClient(std::shared_ptr<ServerState> server, tcp::socket socket)
    : server_(std::move(server)),
      socket_(std::move(socket)),
      handle_(static_cast<SocketHandle>(socket_.native_handle())),
      wire_(handle_, input_, server_->pool, CPace(server_->settings.timeout, server_->settings.least_rate)),
      connection_(std::make_unique<CHostConnection>(wire_)),
      id_(server_->next_id.fetch_add(1)) {
  server_->Enter(this);
}

CClient::~CClient() {
  if (stage_ == Stage::kLinger) --server_->lingering;
  server_->Leave(this);
}

void CClient::Start() {
  Error error;
  socket_.set_option(tcp::no_delay(true), error);
  socket_.native_non_blocking(true, error);
  LimitUnsent(handle_);
  const tcp::endpoint remote = socket_.remote_endpoint(error);
  if (error) return;
  const tcp::endpoint local = socket_.local_endpoint(error);
  if (error) return;
  remote_ = ToHostAddress(remote);
  local_ = ToHostAddress(local);
  Work();
}

void CClient::CutOff() {
  ShutdownBoth(handle_);
  const SocketHandle upstream = upstream_handle_;
  if (upstream != kNoSocket) ShutdownBoth(upstream);
}

void CClient::Work() {
  idle_ = expendable_ = false;
  try {
    while (Step()) {
    }
  } catch (const std::bad_alloc&) {
    // This connection ends; the server goes on.
  }
}

/// One step; false when the connection waits, or is over because nothing holds it any more.
bool CClient::Step() {
  switch (stage_) {
    case Stage::kHead:
      return TakeHead();
    case Stage::kBody:
      return TakeBodyAhead();
    case Stage::kTail:
      return SendTail();
    case Stage::kSkip:
      return SkipBody();
    case Stage::kLinger:
      return Linger();
  }
  return false;
}

void CClient::Wait(bool write) {
  const auto what = write ? tcp::socket::wait_write : tcp::socket::wait_read;
  socket_.async_wait(what, [self = shared_from_this()](const Error& error) {
    if (error) return;
    if (self->pace_ != nullptr) self->pace_->Waited(MonotonicMicroseconds() - self->wait_began_);
    self->pace_ = nullptr;
    self->Work();
  });
}

void CClient::WaitWithin(CPace& pace, bool write) {
  pace_ = &pace;
  wait_began_ = MonotonicMicroseconds();
  deadline_ = wait_began_ + std::int64_t{pace.Limit()} * 1000;
  Wait(write);
}

void CClient::WaitForHead() {
  const bool partial = !input_.View().empty();
  // The limit of a head is counted from its first byte, so that a client cannot stretch it byte by byte.
  if (!partial || !waiting_for_head_) {
    const int limit = partial ? server_->settings.head_timeout : server_->settings.timeout;
    deadline_ = MonotonicMicroseconds() + std::int64_t{limit} * 1000;
  }
  waiting_for_head_ = partial;
  if (!partial) input_.Shrink();
  expendable_ = true;
  idle_ = !partial;
  // The stop may have looked before this became idle.
  if (server_->stopping && !partial) return;
  Wait(false);
}

/// Reads what is there into the input buffer.
IoResult CClient::ReadMore() {
  std::size_t room = 0;
  char* at = input_.Room(kReadSize, &room);
  const IoResult got = ReadNow(handle_, at, room);
  if (got.status == IoStatus::kDone) input_.Added(got.bytes);
  return got;
}

/// The same in a body. False when the connection waits for more, or is over.
bool CClient::ReadMoreBody() {
  const IoResult got = ReadMore();
  wire_.body_pace().Moved(got.bytes);
  // From here on another thread may be at work.
  if (got.status == IoStatus::kWouldBlock) WaitWithin(wire_.body_pace(), false);
  return got.status == IoStatus::kDone;
}

bool CClient::TakeHead() {
  if (!input_.View().empty()) {
    const ParseResult parsed = ParseRequestHead(input_.View(), server_->host.options(), &head_);
    if (parsed.status == ParseStatus::kRefused) return Refuse(parsed.refusal_status, parsed.refusal);
    if (parsed.status == ParseStatus::kComplete) {
      deadline_ = kNever;
      waiting_for_head_ = false;
      KeepHead();
      wire_.Begin(head_, server_->stopping);
      stage_ = Stage::kBody;
      return true;
    }
  }
  const IoResult got = ReadMore();
  if (got.status == IoStatus::kWouldBlock) WaitForHead();
  return got.status == IoStatus::kDone;
}

/// Takes the head out of the input buffer.
void CClient::KeepHead() {
  const char* const from = input_.View().data();
  head_text_.assign(from, head_.size);
  const auto moved = [&](std::string_view view) {
    const bool inside = view.data() >= from && view.data() < from + head_text_.size();
    return inside ? std::string_view(head_text_.data() + (view.data() - from), view.size()) : view;
  };
  head_.method = moved(head_.method);
  head_.raw_url = moved(head_.raw_url);
  head_.host = moved(head_.host);
  for (HeaderView& header : head_.headers) header = {moved(header.name), moved(header.value)};
  input_.Consume(head_.size);
}

/// A request begins at once while there are threads to wait in; else when its body is there, or enough of it and a
/// thread.
bool CClient::TakeBodyAhead() {
  const bool at_once = wire_.waits_for_continue() || !server_->pool.IsCrowded() || server_->stopping;
  if (at_once || wire_.HasWholeBody()) return Serve();
  if (wire_.HasEnoughAhead()) {
    deadline_ = kNever;
    server_->Park(shared_from_this());
    return false;
  }
  return ReadMoreBody();
}

bool CClient::Serve() {
  deadline_ = kNever;
  RequestInput input;
  input.method = head_.method;
  input.raw_url = head_.raw_url;
  input.host = head_.host;
  input.headers = head_.headers;
  input.major_version = head_.major_version;
  input.minor_version = head_.minor_version;
  input.content_length = head_.content_length;
  input.chunked = head_.chunked;
  input.remote = remote_;
  input.local = local_;
  input.connection_id = id_;
  input.request_id = server_->next_id.fetch_add(1);
  if (server_->host.options().continue_moment == ContinueMoment::kAtOnce) wire_.SendContinue();
  const char* reason = "";
  int status = 0;
  bool built = false;
  {
    const CThreadPool::CBusyScope busy(server_->pool);
    CHostContext context(server_->host, input, wire_, memory_, connection_.get(), nullptr);
    built = context.request().Build(input, &reason);
    if (built) RunPipeline(context, server_->handler);
    status = context.response().GetRawHttpResponse()->StatusCode;
  }
  memory_.Release();
  if (!built) return Refuse(400, reason);
  if (server_->settings.log_requests) Log(input.method, input.raw_url, status, wire_.bytes_sent());
  keep_ = true;
  stage_ = Stage::kTail;
  return true;
}

void CClient::Log(std::string_view method, std::string_view url, int status, std::uint64_t bytes) {
  // Only printable ASCII, whatever a client sent.
  const std::string line = AddressText(remote_) + " " + EscapeUnprintable(method) + " " + EscapeUnprintable(url) + " " +
                           std::to_string(status) + " " + std::to_string(bytes) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
}

bool CClient::Refuse(int status, const char* reason) {
  const std::string title = std::string(ReasonOf(status));
  const std::string body = "<!DOCTYPE html>\r\n<html><head><title>" + title + "</title></head>\r\n<body><h2>" + title +
                           "</h2><p>HTTP error " + std::to_string(status) + ". " + reason + "</p></body></html>\r\n";
  const std::string answer =
      "HTTP/1.1 " + std::to_string(status) + " " + title +
      "\r\nContent-Type: text/html; charset=us-ascii\r\nServer: qivhost-http\r\nDate: " + CurrentHttpDate() +
      "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  if (server_->settings.log_requests) Log("-", "-", status, answer.size());
  keep_ = false;
  wire_.send_pace().Start();
  stage_ = Stage::kTail;
  return wire_.tail().Append(answer.data(), answer.size());
}

bool CClient::SendTail() {
  if (wire_.was_reset()) return false;
  std::size_t moved = 0;
  const IoStatus status = wire_.tail().Write(handle_, &moved);
  wire_.send_pace().Moved(moved);
  if (moved >= kWriteAtOnce && status == IoStatus::kWouldBlock) {
    deadline_ = kNever;
    asio::post(server_->io, [self = shared_from_this()] { self->Work(); });
    return false;
  }
  if (status == IoStatus::kWouldBlock) WaitWithin(wire_.send_pace(), true);
  if (status == IoStatus::kDone && !wire_.has_failed()) return Finish();
  // What the system still holds of a response that will not be whole goes too.
  if (status != IoStatus::kWouldBlock) PrepareReset(handle_);
  return false;
}

/// The response is out.
bool CClient::Finish() {
  deadline_ = kNever;
  std::string early;
  if (COwnedSocket upstream = wire_.TakeTunnel(&early); upstream.is_open()) {
    BeginTunnel(std::move(upstream), std::move(early));
    return false;
  }
  if (keep_ && wire_.keeps()) {
    stage_ = Stage::kSkip;
    return true;
  }
  // Closing with unread bytes would reset the connection and take the answer from the client.
  ShutdownWrite(handle_);
  input_.Consume(input_.View().size());
  lingered_ = 0;
  linger_end_ = MonotonicMicroseconds() + std::int64_t{server_->settings.drain_timeout} * 1000;
  stage_ = Stage::kLinger;
  return ++server_->lingering <= kMaxLingering && !server_->stopping;
}

bool CClient::SkipBody() {
  const BodyState state = wire_.SkipBody();
  if (state == BodyState::kOver) stage_ = Stage::kHead;
  if (state == BodyState::kLost) keep_ = false;
  if (state != BodyState::kMissing) return state == BodyState::kOver || Finish();
  return ReadMoreBody();
}

bool CClient::Linger() {
  char scrap[kReadSize];
  for (int i = 0; i < kReadsAtOnce; ++i) {
    const IoResult got = ReadNow(handle_, scrap, sizeof scrap);
    lingered_ += got.bytes;
    if (got.status == IoStatus::kWouldBlock) break;
    if (got.status != IoStatus::kDone || lingered_ > kLingerBytes) return false;
  }
  const std::int64_t now = MonotonicMicroseconds();
  if (now > linger_end_ || server_->stopping) return false;
  deadline_ = std::min(linger_end_, now + kLingerSilence);
  idle_ = expendable_ = true;
  Wait(false);
  return false;
}

void CClient::BeginTunnel(COwnedSocket upstream, std::string early) {
  upstream_ = AdoptSocket(server_->io, std::move(upstream));
  if (!upstream_) return;
  upstream_handle_ = static_cast<SocketHandle>(upstream_->native_handle());
  TunnelLimits limits;
  limits.deadline = &deadline_;
  limits.idle_microseconds = std::int64_t{server_->settings.timeout} * 1000;
  idle_ = true;
  if (server_->stopping) return;
  RunTunnel(shared_from_this(), socket_, std::string(input_.View()), *upstream_, std::move(early), limits);
}

}  // namespace qiv::host
