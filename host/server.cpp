#include "host/server.h"

#include <utility>

// Asio needs std::exchange before its own headers.
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "host/header_names.h"
#include "host/host_context.h"
#include "host/http_date.h"
#include "host/http_parser.h"
#include "host/socket.h"
#include "host/socket_wire.h"
#include "port/clock.h"

namespace qiv::host {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::size_t kReadSize = 16384;
constexpr std::size_t kLingerBytes = 64u << 20;  ///< read and dropped after an early answer, so that it is seen
constexpr int kLingerMilliseconds = 2000;        ///< silence that ends this
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

/// A URL or method for the log: only printable ASCII, whatever a client sent.
std::string Printable(std::string_view text) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F) {
      printable.push_back(c);
    } else {
      printable.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return printable;
}

}  // namespace

class CClient;

struct ServerState : std::enable_shared_from_this<ServerState> {
  ServerState(CModuleHost& module_host, IRequestHandler& request_handler, ServerSettings server_settings)
      : host(module_host),
        handler(request_handler),
        settings(std::move(server_settings)),
        strand(asio::make_strand(io)),
        acceptor(strand),
        signals(strand),
        sweep_timer(strand) {}

  void Accept();
  void Sweep();
  void BeginStop();
  void Enter(CClient* client);
  void Leave(CClient* client);

  CModuleHost& host;
  IRequestHandler& handler;
  const ServerSettings settings;
  asio::io_context io;
  /// Accepting, sweeping and stopping happen one at a time on it; requests do not.
  asio::strand<asio::io_context::executor_type> strand;
  tcp::acceptor acceptor;
  asio::signal_set signals;
  asio::steady_timer sweep_timer;
  std::atomic<bool> stopping{false};
  std::atomic<std::int64_t> stop_deadline{kNever};  ///< microseconds: then even running requests are cut off
  std::atomic<std::uint64_t> next_id{1};

  std::mutex clients_lock;
  std::set<CClient*> clients;  ///< guarded by clients_lock
};

/// One client connection. Lives while a wait or a request holds it. Only one thread works on it at a time; the sweep
/// touches nothing but the deadline and the handle.
class CClient : public std::enable_shared_from_this<CClient> {
 public:
  CClient(std::shared_ptr<ServerState> server, tcp::socket socket)
      : server_(std::move(server)),
        socket_(std::move(socket)),
        handle_(static_cast<SocketHandle>(socket_.native_handle())),
        wire_(handle_, input_, server_->settings.timeout_milliseconds),
        connection_(std::make_unique<CHostConnection>(wire_)),
        id_(server_->next_id.fetch_add(1)) {
    server_->Enter(this);
  }
  ~CClient() { server_->Leave(this); }
  CClient(const CClient&) = delete;
  CClient& operator=(const CClient&) = delete;

  void Start() {
    Error error;
    socket_.set_option(tcp::no_delay(true), error);
    socket_.native_non_blocking(true, error);
    const tcp::endpoint remote = socket_.remote_endpoint(error);
    if (error) return;
    const tcp::endpoint local = socket_.local_endpoint(error);
    if (error) return;
    remote_ = ToHostAddress(remote);
    local_ = ToHostAddress(local);
    Work();
  }

  /// Called by the sweep under clients_lock.
  void CutOffWhenLate(std::int64_t now, bool cut_off_idle, bool cut_off_all) {
    if (cut_off_all || now > deadline_.load() || (cut_off_idle && idle_.load())) ShutdownBoth(handle_);
  }

 private:
  void WaitForMore();
  void Work();
  void ServeAll();
  bool Serve();
  void Refuse(int status, const char* reason);
  void LingerAndClose();
  void Log(std::string_view method, std::string_view url, int status, std::uint64_t bytes);
  std::int64_t Timeout() const { return std::int64_t{server_->settings.timeout_milliseconds} * 1000; }

  const std::shared_ptr<ServerState> server_;
  tcp::socket socket_;
  const SocketHandle handle_;
  CInputBuffer input_;
  CSocketWire wire_;
  CRequestMemory memory_;
  std::unique_ptr<CHostConnection> connection_;
  const std::uint64_t id_;
  HostAddress remote_{};
  HostAddress local_{};
  RequestHead head_;
  bool waiting_for_head_ = false;  ///< part of a head has arrived: its time limit runs on
  std::atomic<std::int64_t> deadline_{kNever};
  std::atomic<bool> idle_{false};
};

void CClient::WaitForMore() {
  const bool partial = !input_.View().empty();
  // The limit of a head is counted from its first byte, so that a client cannot stretch it byte by byte.
  if (!partial || !waiting_for_head_) deadline_ = MonotonicMicroseconds() + Timeout();
  waiting_for_head_ = partial;
  if (!partial) input_.Shrink();
  idle_ = !partial;
  // The stop may have looked before this became idle.
  if (server_->stopping && !partial) return;
  socket_.async_wait(tcp::socket::wait_read, [self = shared_from_this()](const Error& error) {
    if (!error) self->Work();
  });
}

void CClient::Work() {
  idle_ = false;
  try {
    ServeAll();
  } catch (const std::bad_alloc&) {
    // This connection ends; the server goes on.
  }
}

void CClient::ServeAll() {
  for (;;) {
    std::size_t room = 0;
    char* at = input_.Room(kReadSize, &room);
    const IoResult got = ReadNow(handle_, at, room);
    if (got.status == IoStatus::kWouldBlock) return WaitForMore();
    if (got.status != IoStatus::kDone) return;
    input_.Added(got.bytes);
    for (;;) {
      const ParseResult parsed = ParseRequestHead(input_.View(), server_->host.options(), &head_);
      if (parsed.status == ParseStatus::kRefused) return Refuse(parsed.refusal_status, parsed.refusal);
      if (parsed.status == ParseStatus::kNeedMore) break;
      deadline_ = kNever;
      waiting_for_head_ = false;
      if (!Serve()) return;
    }
  }
}

bool CClient::Serve() {
  RequestInput input;
  // The head's views point into the input buffer, which body reads move: the request works on a copy.
  const std::string copy(input_.View().substr(0, head_.size));
  const char* const from = input_.View().data();
  const auto moved = [&](std::string_view view) {
    const bool inside = view.data() >= from && view.data() < from + copy.size();
    return inside ? std::string_view(copy.data() + (view.data() - from), view.size()) : view;
  };
  input.method = moved(head_.method);
  input.raw_url = moved(head_.raw_url);
  input.host = moved(head_.host);
  for (HeaderView& header : head_.headers) header = {moved(header.name), moved(header.value)};
  input.headers = head_.headers;
  input.major_version = head_.major_version;
  input.minor_version = head_.minor_version;
  input.content_length = head_.content_length;
  input.chunked = head_.chunked;
  input.remote = remote_;
  input.local = local_;
  input.connection_id = id_;
  input.request_id = server_->next_id.fetch_add(1);

  input_.Consume(head_.size);
  wire_.Begin(head_, server_->stopping);
  if (server_->host.options().continue_moment == ContinueMoment::kAtOnce) wire_.SendContinue();
  bool keep = false;
  const char* reason = "";
  int status = 0;
  {
    CHostContext context(server_->host, input, wire_, memory_, connection_.get(), nullptr);
    if (!context.request().Build(input, &reason)) {
      memory_.Release();
      Refuse(400, reason);
      return false;
    }
    RunPipeline(context, server_->handler);
    status = context.response().GetRawHttpResponse()->StatusCode;
    keep = wire_.End();
  }
  memory_.Release();
  if (server_->settings.log_requests) Log(input.method, input.raw_url, status, wire_.bytes_sent());
  if (!keep && !wire_.was_reset()) LingerAndClose();
  return keep;
}

void CClient::Log(std::string_view method, std::string_view url, int status, std::uint64_t bytes) {
  const std::string line = AddressText(remote_) + " " + Printable(method) + " " + Printable(url) + " " +
                           std::to_string(status) + " " + std::to_string(bytes) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
}

void CClient::Refuse(int status, const char* reason) {
  const std::string title = std::string(ReasonOf(status));
  const std::string body = "<!DOCTYPE html>\r\n<html><head><title>" + title + "</title></head>\r\n<body><h2>" + title +
                           "</h2><p>HTTP error " + std::to_string(status) + ". " + reason + "</p></body></html>\r\n";
  const std::string answer =
      "HTTP/1.1 " + std::to_string(status) + " " + title +
      "\r\nContent-Type: text/html; charset=us-ascii\r\nServer: qivhost-http\r\nDate: " + CurrentHttpDate() +
      "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  WriteAll(handle_, answer.data(), answer.size(), server_->settings.timeout_milliseconds);
  if (server_->settings.log_requests) Log("-", "-", status, answer.size());
  LingerAndClose();
}

void CClient::LingerAndClose() {
  // Closing with unread bytes would reset the connection and take the answer from the client.
  ShutdownWrite(handle_);
  input_.Consume(input_.View().size());
  std::size_t dropped = 0;
  const std::int64_t end = MonotonicMicroseconds() + Timeout();
  while (dropped < kLingerBytes && MonotonicMicroseconds() < end && !server_->stopping) {
    std::size_t room = 0;
    char* at = input_.Room(kReadSize, &room);
    const IoResult got = ReadWithin(handle_, at, room, kLingerMilliseconds);
    if (got.status != IoStatus::kDone) return;
    dropped += got.bytes;
  }
}

void ServerState::Enter(CClient* client) {
  const std::lock_guard<std::mutex> lock(clients_lock);
  clients.insert(client);
}

void ServerState::Leave(CClient* client) {
  const std::lock_guard<std::mutex> lock(clients_lock);
  clients.erase(client);
}

void ServerState::Accept() {
  acceptor.async_accept(io, [self = shared_from_this()](const Error& error, tcp::socket socket) {
    if (self->stopping) return;
    if (error) {
      // Out of handles, perhaps: the sweep comes round in a second and frees some.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      return self->Accept();
    }
    asio::post(self->io, [client = std::make_shared<CClient>(self, std::move(socket))] { client->Start(); });
    self->Accept();
  });
}

void ServerState::Sweep() {
  std::fflush(stdout);
  {
    const std::lock_guard<std::mutex> lock(clients_lock);
    const std::int64_t now = MonotonicMicroseconds();
    for (CClient* client : clients) client->CutOffWhenLate(now, stopping, now > stop_deadline);
    if (stopping && clients.empty()) return;
  }
  sweep_timer.expires_after(stopping ? std::chrono::milliseconds(50) : std::chrono::milliseconds(1000));
  sweep_timer.async_wait([self = shared_from_this()](const Error& error) {
    if (!error) self->Sweep();
  });
}

void ServerState::BeginStop() {
  if (stopping.exchange(true)) return;
  stop_deadline = MonotonicMicroseconds() + std::int64_t{settings.timeout_milliseconds} * 1000;
  Error ignored;
  acceptor.close(ignored);
  signals.cancel(ignored);
  sweep_timer.cancel(ignored);
  Sweep();
}

CServer::CServer(CModuleHost& host, IRequestHandler& handler, ServerSettings settings)
    : impl_(std::make_shared<ServerState>(host, handler, std::move(settings))) {}

CServer::~CServer() = default;

bool CServer::Listen(std::string* error) {
  Error failure;
  const tcp::endpoint endpoint(asio::ip::make_address(impl_->settings.address, failure), impl_->settings.port);
  if (!failure) impl_->acceptor.open(endpoint.protocol(), failure);
#if !defined(_WIN32)
  // On Windows the option would let a second server take the same port.
  if (!failure) impl_->acceptor.set_option(tcp::acceptor::reuse_address(true), failure);
#endif
  if (!failure) impl_->acceptor.bind(endpoint, failure);
  if (!failure) impl_->acceptor.listen(asio::socket_base::max_listen_connections, failure);
  if (failure) *error = "cannot listen on " + impl_->settings.address + ": " + failure.message();
  return !failure;
}

std::uint16_t CServer::port() const {
  Error ignored;
  return impl_->acceptor.local_endpoint(ignored).port();
}

void CServer::Run() {
  impl_->signals.add(SIGINT);
  impl_->signals.add(SIGTERM);
#if defined(_WIN32)
  impl_->signals.add(SIGBREAK);
#endif
  impl_->signals.async_wait([impl = impl_](const Error& error, int) {
    if (!error) impl->BeginStop();
  });
  impl_->Accept();
  impl_->Sweep();
  std::vector<std::thread> threads;
  for (unsigned i = 1; i < impl_->settings.threads; ++i) threads.emplace_back([this] { impl_->io.run(); });
  impl_->io.run();
  for (std::thread& thread : threads) thread.join();
}

void CServer::Stop() {
  asio::post(impl_->strand, [impl = impl_] { impl->BeginStop(); });
}

}  // namespace qiv::host
