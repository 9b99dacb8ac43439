// Responses of an upstream, as they are read.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qiv::host {

struct UpstreamHead {
  int status = 0;
  std::string reason;
  std::vector<std::pair<std::string, std::string>> headers;  ///< end-to-end headers, in order, without Content-Length
  std::optional<std::uint64_t> content_length;
  std::string upgrade;  ///< the protocol agreed upon with a status of 101
};

enum class UpstreamParse { kComplete, kNeedMore, kMalformed };

/// Takes one response after the other apart. What it uses of the input goes from the input's front.
class CUpstreamReader {
 public:
  CUpstreamReader();
  ~CUpstreamReader();
  CUpstreamReader(const CUpstreamReader&) = delete;
  CUpstreamReader& operator=(const CUpstreamReader&) = delete;

  /// Begins a response. A response to HEAD has no body, whatever its headers say.
  void Begin(bool to_head_request);

  /// Hop-by-hop headers are taken out and understood.
  UpstreamParse ReadHead(std::string* input, UpstreamHead* head);
  /// After the head: appends what has come of the body, without its coding.
  UpstreamParse ReadBody(std::string* input, std::string* body);
  /// The upstream closed: whether that is a proper end of the response.
  bool EndsHere();
  /// After the body: whether another request may follow on the connection.
  bool keeps_alive() const;

 private:
  struct Parser;
  std::unique_ptr<Parser> parser_;
};

/// Whether a header concerns one connection only and is not passed on. `connection` is the value of Connection, which
/// may name others.
bool IsHopByHop(std::string_view name, std::string_view connection);

}  // namespace qiv::host
