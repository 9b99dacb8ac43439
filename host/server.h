// The HTTP/1.1 server: connections in, requests through the pipeline.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/module_host.h"
#include "host/pipeline.h"

namespace qiv::host {

struct ServerState;

/// Times in milliseconds. The defaults are the real server's.
struct ServerSettings {
  std::string address;
  std::uint16_t port = 0;
  unsigned threads = 64;           ///< requests worked on at once
  unsigned waiting_threads = 256;  ///< threads that may wait for slow peers besides, before others must hold back
  int timeout = 120000;            ///< silence in a body or a response, and between requests
  int head_timeout = 120000;       ///< a request head, from its first byte to its last
  int drain_timeout = 120000;      ///< reading on after an early answer
  unsigned least_rate = 240;       ///< bytes a second of bodies and responses, beyond `timeout`; 0: none
  bool log_requests = false;       ///< a line per request on standard output
};

/// Idle connections, unfinished heads, the last of a response, what follows an early answer and tunnels wait without a
/// thread. A request has a thread of the pool from its head until its response is handed over, as modules read bodies
/// synchronously; while it waits for its client, another thread works in its place.
class CServer {
 public:
  CServer(CModuleHost& host, IRequestHandler& handler, ServerSettings settings);
  ~CServer();
  CServer(const CServer&) = delete;
  CServer& operator=(const CServer&) = delete;

  /// Binds and listens. On failure says why in `error`.
  bool Listen(std::string* error);
  std::uint16_t port() const;

  /// Serves until Stop or a signal (SIGINT, SIGTERM). Requests under way are finished, within the timeout; a second
  /// signal ends the process at once.
  void Run();

  /// From any thread.
  void Stop();

 private:
  const std::shared_ptr<ServerState> impl_;
};

}  // namespace qiv::host
