// Takes a request's body out of the server and puts it back.
#pragma once

#include <cstdint>
#include <string_view>

#include "checks/request_facts.h"

namespace iis {
class IHttpContext;
class IHttpRequest;
}  // namespace iis

namespace qiv {

/// Longest body that is read, in bytes (100 MiB). A longer one passes unread.
inline constexpr std::uint32_t kMaxBody = 104857600;
/// Stands for the length of a body that states none.
inline constexpr std::uint32_t kUnknownLength = 64 * 1024 - 1;
/// Bytes asked for in one read.
inline constexpr std::uint32_t kBodyPiece = 4096;

struct BodyBytes {
  std::string_view bytes;                ///< memory of the request: valid as long as the request
  UnreadBody unread = UnreadBody::kNot;  ///< kNot: read to its end and given back
};

/// Reads the body synchronously, to its end, into request memory, and inserts what was read once, in front of whatever
/// is still unread: also after a failed read. So the application receives every byte in order, whatever happens here.
///
/// `declared` is the Content-Length, 1 to kMaxBody; kUnknownLength when there is none. It is not believed before the
/// bytes are there: memory grows with what has come. A shorter body ends early; a longer one (a chunked body decides
/// its own length) is read up to kMaxBody. Throws nothing.
BodyBytes ReadAndRestoreBody(iis::IHttpContext& context, iis::IHttpRequest& request, std::uint32_t declared) noexcept;

}  // namespace qiv
