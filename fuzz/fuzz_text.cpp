// Decoders and splitters over any bytes: no read or write out of place, and what each promises about its result.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/char_set.h"
#include "common/text.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

// Whether no byte is the first half of a character that the next byte does not complete.
bool IsWhole(std::string_view text) {
  if (qiv::CCharSet::IsValidUtf8(text)) return true;
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t length = qiv::CCharSet::CharacterLength(text, pos);
    if (length == 1 && qiv::CCharSet::IsLeadByte(static_cast<unsigned char>(text[pos]))) return false;
    pos += length;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Require(qiv::PercentDecode(text).size() <= size);
  Require(qiv::DecodeHtmlEntities(text).size() <= size);
  Require(qiv::NormalizeText(std::string(text)).find('+') == std::string::npos);
  const std::string escaped = qiv::HtmlEscape(text);
  Require(escaped.find_first_of("\"'<>\r") == std::string::npos && IsWhole(escaped));
  for (const std::string_view separator : {"|", "{#}"}) {
    const auto parts = separator.size() == 1 ? qiv::Split(text, separator[0]) : qiv::Split(text, separator);
    std::string joined;
    for (std::size_t i = 0; i < parts.size(); ++i) joined.append(i == 0 ? "" : separator).append(parts[i]);
    Require(joined == text);
  }
  qiv::ToNumber(text);
  qiv::DigitsToNumber(text);
  qiv::TaggedPart(text, "a");
  return 0;
}
