// Passes requests on to one upstream server.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/pipeline.h"
#include "host/socket.h"
#include "host/upstream_response.h"
#include "port/critical_section.h"

namespace qiv::host {

struct ProxySettings {
  std::string host;
  std::string port;
  int connect_milliseconds = 10000;
  int timeout_milliseconds = 120000;  ///< silence of the upstream
  bool trust_forwarded = false;       ///< what clients say about clients before them is passed on and added to
};

/// Streams: no body is held beyond one buffer. Connections to the upstream are kept and used again. 502 when the
/// upstream cannot be reached or answers nonsense, 504 when it is silent; once the head is out, a broken upstream
/// resets the client. A client that goes away ends the request to the upstream. Where both agree on another protocol
/// (101), the two connections become a tunnel.
class CProxy final : public IRequestHandler {
 public:
  explicit CProxy(ProxySettings settings) : settings_(std::move(settings)) {}

  void Execute(CHostContext& context) override;

 private:
  struct Exchange;
  enum class Outcome { kDone, kRetry, kBadGateway, kTimeout, kAborted };

  Outcome Run(Exchange& exchange);
  Outcome SendRequest(Exchange& exchange);
  Outcome SendBody(Exchange& exchange);
  bool SendPiece(Exchange& exchange, const char* data, std::size_t size);
  Outcome ReadHead(Exchange& exchange);
  Outcome ReadMore(Exchange& exchange);
  Outcome PassBody(Exchange& exchange);
  std::string RequestHeadText(Exchange& exchange) const;
  void AddForwarded(CHostContext& context, std::string* text) const;
  Outcome SwitchProtocol(Exchange& exchange);
  COwnedSocket TakeIdle();
  void GiveBack(COwnedSocket socket);

  const ProxySettings settings_;
  CCriticalSection idle_lock_;
  std::vector<COwnedSocket> idle_ QIV_GUARDED_BY(idle_lock_);
};

}  // namespace qiv::host
