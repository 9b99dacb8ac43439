#include "checks/body_text.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "checks/request_values.h"
#include "common/char_set.h"
#include "common/multipart.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::string_view kFileName = "; filename=\"";
// A NUL this early stands in archives, pictures, films, programs and office documents, and in no text but UTF-16; what
// is compressed or enciphered from the first byte has a share of control bytes that no text has.
constexpr std::size_t kHeadOfBinary = 256;
constexpr std::size_t kControlShare = 16;
constexpr std::size_t kShortestFile = 256;  // fewer bytes are not worth leaving out

bool IsBinaryFile(const MultipartPart& part) {
  if (part.content.size() < kShortestFile || part.content.size() != part.late_content.size()) return false;
  const PartHead& head = part.head;
  if (head.file_name_count != 1 || head.file_names[0].empty() || head.hidden_file_name || part.head_too_long)
    return false;
  if (head.encoding != PartHead::kPlain) return false;
  // As every client writes it: one name in double quotes and no escapes.
  const std::size_t name = part.head_text.find(kFileName);
  if (name == std::string_view::npos || part.head_text.find('\\') != std::string_view::npos) return false;
  const std::string_view begin = part.content.substr(0, kHeadOfBinary);
  const auto odd = std::count_if(begin.begin(), begin.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x20 && !IsSpace(c); });
  return begin.find('\0') != std::string_view::npos || static_cast<std::size_t>(odd) * kControlShare > begin.size();
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
