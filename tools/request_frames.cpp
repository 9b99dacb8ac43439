#include "tools/request_frames.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace qiv {
namespace {

// "%% " and the digits of the longest request.
constexpr std::size_t kLongestMark = 3 + 20;
constexpr std::size_t kPiece = std::size_t{1} << 16;

/// The length that a mark states; false when it is none.
bool ParseMark(std::string_view mark, std::size_t* length) {
  if (mark.ends_with('\r')) mark.remove_suffix(1);
  if (!mark.starts_with("%% ")) return false;
  mark.remove_prefix(3);
  const auto [end, error] = std::from_chars(mark.data(), mark.data() + mark.size(), *length);
  return error == std::errc() && end == mark.data() + mark.size();
}

}  // namespace

CRequestFrames::Next CRequestFrames::Read(std::string* request) {
  request->clear();
  std::string mark;
  int c = std::getc(input_);
  // Blank lines between frames do no harm.
  while (c == '\n' || c == '\r') c = std::getc(input_);
  if (c == EOF) return std::ferror(input_) == 0 ? Next::kEnd : Refuse("cannot be read");
  ++number_;
  for (; c != EOF && c != '\n' && mark.size() < kLongestMark; c = std::getc(input_)) mark += static_cast<char>(c);
  std::size_t length = 0;
  if (c != '\n' || !ParseMark(mark, &length)) return Refuse("does not begin with a line \"%% BYTES\"");
  if (length > kMaxRequest) return Refuse("is larger than 101 MiB");
  // Grown as it comes: a mark alone must not take memory.
  while (request->size() < length) {
    const std::size_t before = request->size();
    request->resize(before + std::min(kPiece, length - before));
    const std::size_t got = std::fread(request->data() + before, 1, request->size() - before, input_);
    if (got != request->size() - before) return Refuse("ends before the length that it states");
  }
  return Next::kRequest;
}

}  // namespace qiv
