// Encodings: UTF-8 validity, GBK character boundaries, and conversion between UTF-8 and the local code page (GBK).
//
// Texts inside the system are byte strings in GBK. A GBK character is one byte below 0x80 (or a stray high byte) or a
// lead byte 0x81-0xFE followed by a trail byte 0x40-0xFE except 0x7F. Trail bytes include "A"-"Z", "a"-"z", "\\", "|",
// "@", "[", "^", "`", "{" and "~": whatever searches for, splits at or changes one of those bytes must step over
// characters, not bytes. All functions are thread safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qiv {

class CCharSet {
 public:
  static constexpr bool IsLeadByte(unsigned char c) { return c >= 0x81 && c <= 0xFE; }
  static constexpr bool IsTrailByte(unsigned char c) { return c >= 0x40 && c <= 0xFE && c != 0x7F; }

  /// Bytes of the character at `pos` (pos < text.size()): 2 for a lead byte with its trail byte, else 1.
  static std::size_t CharacterLength(std::string_view text, std::size_t pos) {
    return pos + 1 < text.size() && IsLeadByte(static_cast<unsigned char>(text[pos])) &&
                   IsTrailByte(static_cast<unsigned char>(text[pos + 1]))
               ? 2
               : 1;
  }

  static bool IsAscii(std::string_view text);

  /// Strict (RFC 3629: no overlong form, no surrogate, nothing above U+10FFFF). True for ASCII and for empty text.
  static bool IsValidUtf8(std::string_view text);

  /// UTF-8 to GBK when the text is valid UTF-8 of at least 3 bytes, else the text as it is. ASCII is returned unchanged
  /// without a conversion call.
  static std::string ToLocal(std::string text);

  /// GBK to UTF-8, unconditionally.
  static std::string LocalToUtf8(std::string_view text);
  /// UTF-8 to GBK, unconditionally.
  static std::string Utf8ToLocal(std::string_view text);

  /// Whether a UTF-8 text comes back unchanged from GBK: it is valid, and each of its characters has a GBK form. What
  /// has none becomes "?" in Utf8ToLocal and ToLocal.
  static bool Survives(std::string_view utf8);

  /// "A"-"Z" to "a"-"z" in place, leaving trail bytes alone.
  static void LowerAscii(std::string* text);
  static std::string LowerAscii(std::string_view text);
  /// "A"-"Z" to "a"-"z" in every byte, trail bytes too: for UTF-8, and for texts that are searched for words. There a
  /// stray high byte must not hide the letter behind it (a database may read "\xA0UNION" as a blank and a keyword).
  static std::string LowerBytes(std::string_view text);
  /// The same into room for as many bytes; it may be the text itself.
  static void LowerBytes(std::string_view text, char* lower);

  /// First position at or after `from` where the single byte `c` stands as a character of its own (not as a trail
  /// byte), or npos. `from` must be a character boundary.
  static std::size_t FindCharacter(std::string_view text, char c, std::size_t from = 0);

  /// Longest prefix of at most `limit` bytes that ends at a character boundary.
  static std::string_view Prefix(std::string_view text, std::size_t limit);
};

}  // namespace qiv
