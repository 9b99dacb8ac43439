// Responses of an upstream, as they are read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qiv::host {

struct UpstreamHead {
  int status = 0;
  int minor_version = 1;
  std::string reason;
  std::vector<std::pair<std::string, std::string>> headers;  ///< end-to-end headers, in order, without Content-Length
  std::optional<std::uint64_t> content_length;
  std::string upgrade;  ///< the protocol agreed upon with a status of 101
  bool chunked = false;
  bool keep_alive = true;
  std::size_t size = 0;  ///< bytes of the buffer that the head takes
};

enum class UpstreamParse { kComplete, kNeedMore, kMalformed };

/// Parses the head at the front of `buffer`. Hop-by-hop headers are taken out and understood.
UpstreamParse ParseUpstreamHead(std::string_view buffer, UpstreamHead* head);

/// Whether a header concerns one connection only and is not passed on. `connection` is the value of Connection, which
/// may name others.
bool IsHopByHop(std::string_view name, std::string_view connection);

}  // namespace qiv::host
