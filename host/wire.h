// What a request needs of its connection: the rest of the body in, the response out.
#pragma once

#include <cstddef>
#include <string>

#include "host/socket.h"
#include "host/waiting.h"
#include "iis/http_types.h"

namespace qiv::host {

enum class BodyRead {
  kData,  ///< at least one byte
  kEnd,   ///< the whole body was read
  kLost,  ///< the client went away, was silent too long, or sent bad framing
};

/// One piece of the response on its way out.
struct OutgoingPiece {
  const iis::HTTP_RESPONSE* response = nullptr;  ///< status and headers
  bool with_head = false;                        ///< the head goes out with this piece
  bool more_data = false;                        ///< more pieces will come
  bool disconnect = false;                       ///< close the connection when the response is over
  const iis::HTTP_DATA_CHUNK* chunks = nullptr;
  std::size_t chunk_count = 0;
};

/// Implemented by the socket connection and by the in-process runner. Used by one thread at a time.
class IWire {
 public:
  virtual ~IWire() = default;

  /// Blocks until some of the body is there. `got` is set for kData only.
  virtual BodyRead ReadBody(char* buffer, std::size_t size, std::size_t* got) = 0;

  /// Sends; blocks until the piece is handed over. False when the client is gone. `sent` counts body bytes.
  virtual bool Send(const OutgoingPiece& piece, std::size_t* sent) = 0;

  virtual bool IsConnected() = 0;

  /// Ends the connection at once: nothing more goes out.
  virtual void Reset() = 0;

  /// Asks that "100 Continue" go out before the body is read; does nothing when the client did not ask for it.
  virtual void SendContinue() = 0;

  /// Takes over a connection to an upstream that agreed to another protocol: once the response (101) is out, bytes pass
  /// in both directions, `early` first. False when the wire cannot do this.
  virtual bool OpenTunnel(COwnedSocket upstream, std::string early) {
    static_cast<void>(upstream);
    static_cast<void>(early);
    return false;
  }

  /// Where a thread that waits for somebody else is made known; nullptr when nobody asks.
  virtual IWaitingRoom* room() { return nullptr; }
};

}  // namespace qiv::host
