#include "checks/body_text.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "checks/binary_text.h"
#include "checks/request_values.h"
#include "common/char_set.h"
#include "common/multipart.h"
#include "common/text.h"

namespace qiv {
namespace {

// A NUL this early stands in archives, pictures, films, programs and office documents, and in no text but UTF-16; what
// is compressed or enciphered from the first byte has a share of control bytes that no text has.
constexpr std::size_t kHeadOfBinary = 256;
constexpr std::size_t kShortestFile = 256;  // fewer bytes are not worth leaving out

/// Whether these are the headers of a file as browsers write them, so that no server reads a field: PHP ends a line at
/// a NUL and after some 5,000 bytes, others take the last disposition, or know a backslash as an escape.
bool IsHeadOfFile(std::string_view head) {
  constexpr std::size_t kLongest = 2048;
  constexpr std::string_view kName = "Content-Disposition: form-data; name=\"";
  constexpr std::string_view kFileName = "\"; filename=\"";
  constexpr std::string_view kOthers[] = {"content-type: ", "content-length: ", "content-transfer-encoding: "};
  if (head.size() > kLongest || !head.starts_with(kName)) return false;
  std::string_view line = head.substr(0, head.find("\r\n"));
  std::string_view others = head.substr(line.size());
  line.remove_prefix(kName.size());
  line.remove_prefix(std::min(line.find('"'), line.size()));
  if (!line.starts_with(kFileName)) return false;
  line.remove_prefix(kFileName.size());
  if (line.size() < 2 || line.find('"') != line.size() - 1) return false;
  while (!others.empty()) {
    others.remove_prefix(2);
    const std::string_view other = others.substr(0, others.find("\r\n"));
    if (std::none_of(std::begin(kOthers), std::end(kOthers), [other](auto o) { return BeginsNoCase(other, o); })) {
      return false;
    }
    others.remove_prefix(other.size());
  }
  for (std::size_t at = 0; at < head.size(); ++at) {
    if (head.compare(at, 2, "\r\n") == 0)
      ++at;
    else if (static_cast<unsigned char>(head[at]) < 0x20 || head[at] == '\\')
      return false;
  }
  return true;
}

bool IsBinaryFile(const MultipartPart& part) {
  if (part.content.size() < kShortestFile || part.content.size() != part.late_content.size()) return false;
  // One name in every reading, the encoding none that hides what the content is.
  if (part.head.file_name_count != 1 || part.head.encoding != PartHead::kPlain || !IsHeadOfFile(part.head_text))
    return false;
  const std::string_view begin = part.content.substr(0, kHeadOfBinary);
  return begin.find('\0') != std::string_view::npos || HoldsControlBytes(begin);
}

/// The body without its binary files; null when there is none, or when the body has more readings than one.
std::shared_ptr<const std::string> WithoutFiles(std::string_view content_type, std::string_view body) {
  auto rest = std::make_shared<std::string>();
  std::size_t kept_until = 0;
  std::size_t read_until = 0;
  bool one_reading = true;
  const MultipartFault fault = ForEachPart(content_type, body, [&](const MultipartPart& part) {
    const auto begin = static_cast<std::size_t>(part.text.data() - body.data());
    one_reading = begin >= read_until;
    read_until = begin + part.text.size();
    if (!one_reading || !IsBinaryFile(part)) return one_reading;
    const auto content = static_cast<std::size_t>(part.content.data() - body.data());
    *rest += body.substr(kept_until, content - kept_until);
    kept_until = read_until;
    return true;
  });
  if (fault != MultipartFault::kNone || !one_reading || kept_until == 0) return nullptr;
  *rest += body.substr(kept_until);
  return rest;
}

}  // namespace

void SetBodyText(bool without_files, RequestFacts* facts) {
  facts->text_body = facts->raw_body;
  facts->body_without_files.reset();
  if (without_files && BodyFormOf(facts->content_type, facts->raw_body) == BodyForm::kMultipart) {
    facts->body_without_files = WithoutFiles(facts->content_type, facts->raw_body);
    if (facts->body_without_files) facts->text_body = *facts->body_without_files;
  }
  facts->body = DecodeBody(facts->text_body);
  CCharSet::LowerAscii(&facts->body);
}

}  // namespace qiv
