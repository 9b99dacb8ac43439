// HTTP/1.x request heads and chunked bodies, as strict as the server's own front end.
//
// Limits and refusals are those of http.sys: 16 KiB for the request line and all headers, a Host in HTTP/1.1, methods
// and names that are tokens, no control bytes, one agreed length. What is refused never reaches a module.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_options.h"

namespace qiv::host {

inline constexpr std::size_t kMaxHeadBytes = 16384;   ///< request line and headers together
inline constexpr std::size_t kMaxSegmentChars = 260;  ///< one piece of the path between slashes
inline constexpr std::size_t kMaxSegments = 255;

struct HeaderView {
  std::string_view name;
  std::string_view value;  ///< without blanks around it
};

/// A parsed head. The views point into the parsed buffer, or into `folded` for joined continuation lines.
struct RequestHead {
  std::string_view method;
  std::string_view raw_url;
  int major_version = 1;
  int minor_version = 1;
  std::vector<HeaderView> headers;
  std::vector<std::unique_ptr<std::string>> folded;
  std::string_view host;  ///< value of Host, empty when absent
  bool has_host = false;
  std::optional<std::uint64_t> content_length;
  bool chunked = false;             ///< wins over content_length when both were sent
  bool length_and_chunked = false;  ///< both were sent: close the connection after the answer
  bool keep_alive = true;
  bool expects_continue = false;
  std::size_t size = 0;  ///< bytes of the buffer that the head takes
};

enum class ParseStatus { kComplete, kNeedMore, kRefused };

struct ParseResult {
  ParseStatus status = ParseStatus::kNeedMore;
  int refusal_status = 0;    ///< 400, 411, 501 or 505
  const char* refusal = "";  ///< a short English text for the answer's body
};

/// Parses the head at the start of `buffer`. To be called again with more bytes after kNeedMore; the search for the
/// head's end costs no more than a look at the bytes. Not more than kMaxHeadBytes are ever needed.
ParseResult ParseRequestHead(std::string_view buffer, const HostOptions& options, RequestHead* head);

/// Takes chunked coding apart, byte for byte as it arrives.
class CChunkedDecoder {
 public:
  enum class Status { kMore, kDone, kMalformed };

  /// Consumes bytes from the front of `input` and writes at most `room` body bytes to `output`; `got` says how many.
  /// Stops when the input is used up, the room is full, or the body and its trailers are over.
  Status Decode(std::string_view* input, char* output, std::size_t room, std::size_t* got);

 private:
  enum class State { kSize, kExtension, kSizeLf, kData, kDataCr, kDataLf, kTrailerStart, kTrailer, kTrailerLf, kEndLf };
  Status Step(char c);

  State state_ = State::kSize;
  std::uint64_t left_ = 0;  ///< of the chunk's size while reading it, then of its data
  unsigned digits_ = 0;
  std::size_t extra_bytes_ = 0;  ///< extensions and trailers so far, limited to kMaxHeadBytes
  bool done_ = false;
};

}  // namespace qiv::host
