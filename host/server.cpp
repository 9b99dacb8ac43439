#include "host/server.h"

#include <utility>

// Asio needs std::exchange before its own headers.
#include <algorithm>
#include <boost/asio/post.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "host/client.h"
#include "host/server_state.h"
#include "port/clock.h"

namespace qiv::host {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

namespace {

constexpr std::size_t kShedAtOnce = 16;  ///< waiting connections that end when there are no handles for a new one
constexpr int kThinAtOnce = 8;           ///< slow clients that end in a second when others wait for their threads
constexpr int kSecondSignalStatus = 130;

}  // namespace

void ServerState::Enter(CClient* client) {
  const CAutoLock lock(clients_lock);
  clients.insert(client);
}

void ServerState::Leave(CClient* client) {
  const CAutoLock lock(clients_lock);
  clients.erase(client);
}

void ServerState::Park(std::shared_ptr<CClient> client) {
  const CAutoLock lock(clients_lock);
  parked.push_back(std::move(client));
}

void ServerState::Accept() {
  acceptor.async_accept(io, [self = shared_from_this()](const Error& error, tcp::socket socket) {
    if (self->stopping) return;
    if (!error) {
      asio::post(self->io, [client = std::make_shared<CClient>(self, std::move(socket))] { client->Start(); });
      return self->Accept();
    }
    // Out of handles, perhaps.
    self->MakeRoom();
    self->accept_timer.expires_after(std::chrono::milliseconds(20));
    self->accept_timer.async_wait([self](const Error& cancelled) {
      if (!cancelled) self->Accept();
    });
  });
}

/// Ends those who have waited longest for something that may never come.
void ServerState::MakeRoom() {
  const CAutoLock lock(clients_lock);
  std::vector<CClient*> waiting;
  for (CClient* client : clients) {
    if (client->is_expendable()) waiting.push_back(client);
  }
  const std::size_t count = std::min(kShedAtOnce, waiting.size());
  const auto older = [](const CClient* a, const CClient* b) { return a->deadline() < b->deadline(); };
  std::partial_sort(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(count), waiting.end(), older);
  for (std::size_t i = 0; i < count; ++i) waiting[i]->CutOff();
}

void ServerState::Sweep() {
  std::fflush(stdout);
  std::vector<std::shared_ptr<CClient>> released;
  bool somebody_waits = false;
  {
    const CAutoLock lock(clients_lock);
    const std::int64_t now = MonotonicMicroseconds();
    const bool cut_off_all = now > stop_deadline;
    for (CClient* client : clients) {
      if (cut_off_all || now > client->deadline() || (stopping && client->is_idle())) client->CutOff();
    }
    while (!parked.empty() && (stopping || (!pool.IsCrowded() && released.size() < settings.waiting_threads))) {
      released.push_back(std::move(parked.front()));
      parked.pop_front();
    }
    somebody_waits = !parked.empty();
    if (stopping && clients.empty()) {
      signals.cancel();
      work.reset();
      return;
    }
  }
  for (auto& client : released) asio::post(io, [client = std::move(client)] { client->Resume(); });
  if (somebody_waits) pool.ThinOut(kThinAtOnce);
  sweep_timer.expires_after(stopping ? std::chrono::milliseconds(50) : std::chrono::milliseconds(1000));
  sweep_timer.async_wait([self = shared_from_this()](const Error& error) {
    if (!error) self->Sweep();
  });
}

void ServerState::BeginStop() {
  if (stopping.exchange(true)) return;
  stop_deadline = MonotonicMicroseconds() + std::int64_t{settings.timeout} * 1000;
  Error ignored;
  acceptor.close(ignored);
  accept_timer.cancel();
  sweep_timer.cancel();
  Sweep();
}

void ServerState::AwaitSignal() {
  signals.async_wait([self = shared_from_this()](const Error& error, int) {
    if (error) return;
    if (self->stopping) {
      std::fflush(stdout);
      std::_Exit(kSecondSignalStatus);
    }
    self->AwaitSignal();
    self->BeginStop();
  });
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
  if (failure) {
    const std::string& address = impl_->settings.address;
    const bool is_ipv6 = address.find(':') != std::string::npos;
    *error = (is_ipv6 ? "[" + address + "]" : address) + ":" + std::to_string(impl_->settings.port) +
             ": cannot listen: " + failure.message();
  }
  return !failure;
}

std::uint16_t CServer::port() const {
  Error ignored;
  return impl_->acceptor.local_endpoint(ignored).port();
}

void CServer::Run() {
  RaiseSocketLimit();
  impl_->signals.add(SIGINT);
  impl_->signals.add(SIGTERM);
#if defined(_WIN32)
  impl_->signals.add(SIGBREAK);
#endif
  impl_->pool.Start();
  impl_->AwaitSignal();
  impl_->Accept();
  impl_->Sweep();
  impl_->control.run();
  impl_->pool.Join();
}

void CServer::Stop() {
  asio::post(impl_->control, [impl = impl_] { impl->BeginStop(); });
}

}  // namespace qiv::host
