// Request heads, chunked bodies, URLs and upstream heads: nothing out of bounds, and splitting the input changes
// nothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/cooked_url.h"
#include "host/http_parser.h"
#include "host/static_files.h"
#include "host/upstream_response.h"

namespace {

using namespace qiv::host;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string Decode(std::string_view coded, std::size_t step, CChunkedDecoder::Status* status, std::size_t* used) {
  CChunkedDecoder decoder;
  std::string body;
  *used = 0;
  *status = CChunkedDecoder::Status::kMore;
  while (*status == CChunkedDecoder::Status::kMore && *used < coded.size()) {
    const std::string piece(coded.substr(*used, step));
    std::string_view input = piece;
    char room[64];
    std::size_t got = 0;
    *status = decoder.Decode(&input, room, std::min(step, sizeof room), &got);
    Require(got <= step);
    body.append(room, got);
    *used += piece.size() - input.size();
  }
  return body;
}

void CheckChunks(std::string_view coded) {
  CChunkedDecoder::Status status[2];
  std::size_t used[2];
  const std::string bytewise = Decode(coded, 1, &status[0], &used[0]);
  const std::string piecewise = Decode(coded, 61, &status[1], &used[1]);
  Require(bytewise == piecewise && status[0] == status[1] && bytewise.size() <= coded.size());
  Require(status[0] == CChunkedDecoder::Status::kMalformed || used[0] == used[1]);
}

void CheckUrl(std::string_view raw_url) {
  CookedUrl cooked;
  const char* reason = "";
  if (!CookUrl(raw_url, "host:80", false, &cooked, &reason)) return;
  const std::u16string path(cooked.Path());
  Require(!path.empty() && path.front() == u'/');
  for (const char16_t* bad : {u"//", u"/../", u"/./", u"\\"}) Require(path.find(bad) == std::u16string::npos);
  Require(!(path + u"/").ends_with(u"/../"));
  Require(cooked.host_at + cooked.host_length + cooked.path_length + cooked.query_length == cooked.full.size());
}

void CheckHead(std::string_view text, bool fold) {
  HostOptions options;
  options.fold_header_lines = fold;
  RequestHead head;
  const ParseResult result = ParseRequestHead(text, options, &head);
  if (result.status != ParseStatus::kComplete) return;
  Require(head.size <= text.size() && head.size <= kMaxHeadBytes);
  Require(!(head.keep_alive && head.minor_version == 0 && head.chunked));
  // What was accepted needs no byte more, and less is not enough.
  RequestHead again;
  Require(ParseRequestHead(text.substr(0, head.size), options, &again).status == ParseStatus::kComplete);
  Require(ParseRequestHead(text.substr(0, head.size - 1), options, &again).status == ParseStatus::kNeedMore);
  for (const HeaderView& header : head.headers) {
    Require(!header.name.empty() && header.value.find_first_of("\r\n") == std::string_view::npos);
  }
  CheckUrl(head.raw_url);
  if (head.chunked) CheckChunks(text.substr(head.size));
}

struct UpstreamAnswer {
  UpstreamParse parsed = UpstreamParse::kNeedMore;
  std::string body;
};

UpstreamAnswer ReadUpstream(std::string_view text, std::size_t step) {
  UpstreamAnswer answer;
  CUpstreamReader reader;
  UpstreamHead head;
  std::string input;
  bool in_body = false;
  for (std::size_t at = 0; at < text.size() && answer.parsed == UpstreamParse::kNeedMore; at += step) {
    input.append(text.substr(at, step));
    if (!in_body) {
      answer.parsed = reader.ReadHead(&input, &head);
      if (answer.parsed != UpstreamParse::kComplete) continue;
      Require(head.status >= 100 && head.status <= 999);
      in_body = true;
    }
    answer.parsed = reader.ReadBody(&input, &answer.body);
  }
  return answer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckHead(text, false);
  CheckHead(text, true);
  CheckChunks(text);
  CheckUrl(text);
  const UpstreamAnswer whole = ReadUpstream(text, size + 1);
  const UpstreamAnswer pieces = ReadUpstream(text, 7);
  // What is no response is refused at once or when the connection ends, by how it was cut.
  Require((whole.parsed == UpstreamParse::kComplete) == (pieces.parsed == UpstreamParse::kComplete));
  Require(whole.parsed != UpstreamParse::kComplete || (whole.body == pieces.body && whole.body.size() <= size));
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  if (ParseRange(text, 100, &first, &last) == RangeOutcome::kPart) Require(first <= last && last < 100);
  if (IsServablePath(text)) Require(text.find("/..") == std::string_view::npos);
  return 0;
}
