// The encodings that words are looked for and written in, and which of them a text that names none may be in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum class TextEncoding : std::uint8_t { kLocal, kUtf8, kWideLittle, kWideBig };

/// What a text's bytes above 0x7F look like. Counts add up over the pieces of a text.
struct EncodingEvidence {
  std::size_t in_sequences = 0;  ///< in UTF-8 sequences of three bytes and more: those of two are common in GBK too
  std::size_t stray = 0;         ///< in no UTF-8 sequence
  std::size_t high = 0;          ///< all of them

  /// Reads a text as well. Linear.
  void Add(std::string_view text);
  EncodingEvidence& operator+=(const EncodingEvidence& other);
  /// Whether some of it can be GBK: a site that reads GBK sees what it is sent, whatever else there is.
  bool MayBeLocal() const { return high > in_sequences; }
  /// Whether it is GBK as a whole. A stray byte makes no UTF-8 text a GBK text.
  bool IsMostlyLocal() const;
};

/// A text of UTF-8 in that encoding.
std::string EncodeText(std::string_view utf8, TextEncoding encoding);

}  // namespace qiv
