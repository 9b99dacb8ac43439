#include "common/text_encoding.h"

#include <algorithm>

#include "common/char_set.h"
#include "port/code_page.h"

namespace qiv {

void EncodingEvidence::Add(std::string_view text) {
  if (CCharSet::IsAscii(text)) return;
  for (std::size_t at = 0; at < text.size();) {
    if (static_cast<unsigned char>(text[at]) < 0x80) {
      ++at;
      continue;
    }
    char32_t code = 0;
    const std::size_t length = DecodeUtf8(text, at, &code);
    const std::size_t used = std::max<std::size_t>(length, 1);
    if (length > 2) in_sequences += length;
    if (length == 0) ++stray;
    high += used;
    at += used;
  }
}

EncodingEvidence& EncodingEvidence::operator+=(const EncodingEvidence& other) {
  in_sequences += other.in_sequences;
  stray += other.stray;
  high += other.high;
  return *this;
}

bool EncodingEvidence::IsMostlyLocal() const {
  constexpr std::size_t kMuch = 8;
  return MayBeLocal() && (in_sequences == 0 || stray * kMuch > in_sequences);
}

std::string EncodeText(std::string_view utf8, TextEncoding encoding) {
  if (encoding == TextEncoding::kUtf8) return std::string(utf8);
  if (encoding == TextEncoding::kLocal) return CCharSet::Utf8ToLocal(utf8);
  std::string bytes;
  for (const char16_t unit : Utf8ToUtf16(utf8)) {
    const char halves[] = {static_cast<char>(unit & 0xFFU), static_cast<char>(unit >> 8U)};
    const bool little = encoding == TextEncoding::kWideLittle;
    bytes += halves[little ? 0 : 1];
    bytes += halves[little ? 1 : 0];
  }
  return bytes;
}

}  // namespace qiv
