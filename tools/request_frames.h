// Framed requests: many raw requests in one stream, "%% BYTES" on a line of its own before each, a line feed behind it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace qiv {

/// Reads the frames of a stream one by one. Not owned; used by one thread.
class CRequestFrames {
 public:
  /// The largest request of a frame, in bytes: what the server reads at most, and room for its head.
  static constexpr std::size_t kMaxRequest = std::size_t{101} << 20;

  enum class Next { kRequest, kEnd, kMalformed };

  explicit CRequestFrames(std::FILE* input) : input_(input) {}

  /// The next request, at the end of the stream kEnd. After kMalformed nothing more can be read; Problem() says why.
  Next Read(std::string* request);

  /// Number of frames begun so far, from 1.
  std::size_t Number() const { return number_; }
  const std::string& Problem() const { return problem_; }

 private:
  Next Refuse(const char* problem) {
    problem_ = problem;
    return Next::kMalformed;
  }

  std::FILE* input_;
  std::size_t number_ = 0;
  std::string problem_;
};

}  // namespace qiv
