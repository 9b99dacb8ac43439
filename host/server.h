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

struct ServerSettings {
  std::string address;
  std::uint16_t port = 0;
  unsigned threads = 64;
  int timeout_milliseconds = 120000;
  bool log_requests = false;  ///< a line per request on standard output
};

/// Idle connections and unfinished heads wait without a thread; a request has a thread of the pool from its head to
/// the end of its response, as modules read bodies synchronously.
class CServer {
 public:
  CServer(CModuleHost& host, IRequestHandler& handler, ServerSettings settings);
  ~CServer();
  CServer(const CServer&) = delete;
  CServer& operator=(const CServer&) = delete;

  /// Binds and listens. On failure says why in `error`.
  bool Listen(std::string* error);
  std::uint16_t port() const;

  /// Serves until Stop or a signal (SIGINT, SIGTERM). Requests under way are finished, within the timeout.
  void Run();

  /// From any thread.
  void Stop();

 private:
  const std::shared_ptr<ServerState> impl_;
};

}  // namespace qiv::host
