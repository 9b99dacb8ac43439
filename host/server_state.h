// What the connections of a server share.
#pragma once

// Before the system's headers, which make macros of some of its names.
#include "iis/http_types.h"

#include <utility>

// Asio needs std::exchange before its own headers.
#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <deque>
#include <memory>
#include <set>

#include "host/server.h"
#include "host/thread_pool.h"
#include "port/critical_section.h"

namespace qiv::host {

class CClient;

struct ServerState : std::enable_shared_from_this<ServerState> {
  ServerState(CModuleHost& module_host, IRequestHandler& request_handler, ServerSettings server_settings)
      : host(module_host),
        handler(request_handler),
        settings(std::move(server_settings)),
        work(io.get_executor()),
        pool(io, settings.threads, settings.waiting_threads) {}

  // On the control thread.
  void Accept();
  void AwaitSignal();
  void Sweep();
  void BeginStop();
  void MakeRoom();

  // From any thread.
  void Enter(CClient* client);
  void Leave(CClient* client);
  /// Keeps a connection whose body will not come at once until there is a thread for it.
  void Park(std::shared_ptr<CClient> client);

  CModuleHost& host;
  IRequestHandler& handler;
  const ServerSettings settings;

  /// Accepting, signals, sweeping and stopping: one thread of its own, which never waits for anything else.
  boost::asio::io_context control{1};
  boost::asio::ip::tcp::acceptor acceptor{control};
  boost::asio::signal_set signals{control};
  boost::asio::steady_timer sweep_timer{control};
  boost::asio::steady_timer accept_timer{control};

  /// Connections and requests, on the threads of the pool.
  boost::asio::io_context io;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work;
  CThreadPool pool;

  std::atomic<bool> stopping{false};
  std::atomic<std::int64_t> stop_deadline{INT64_MAX};  ///< microseconds: then even running requests are cut off
  std::atomic<std::uint64_t> next_id{1};
  std::atomic<int> lingering{0};

  CCriticalSection clients_lock;
  std::set<CClient*> clients QIV_GUARDED_BY(clients_lock);
  std::deque<std::shared_ptr<CClient>> parked QIV_GUARDED_BY(clients_lock);
};

}  // namespace qiv::host
