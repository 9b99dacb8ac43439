// Hexadecimal digits and the "%XX" escapes of URLs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/ascii.h"

namespace qiv {

inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";
inline constexpr std::string_view kLowerHexDigits = "0123456789abcdef";

/// Value of a hexadecimal digit of either case, -1 for any other byte.
constexpr int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  const char lower = LowerByte(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Value of the `digits` (at most 7) hexadecimal digits at `pos`, or -1 when there are fewer.
constexpr int HexNumber(std::string_view text, std::size_t pos, std::size_t digits) {
  if (pos > text.size() || text.size() - pos < digits) return -1;
  int value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const int digit = HexValue(text[pos + i]);
    if (digit < 0) return -1;
    value = value * 16 + digit;
  }
  return value;
}

/// Two digits, upper case.
inline void AppendHexByte(char c, std::string* out) {
  const auto byte = static_cast<unsigned char>(c);
  out->append({kHexDigits[byte >> 4], kHexDigits[byte & 15]});
}

/// The byte that the "%XX" at `pos` stands for, or -1 when there is none.
constexpr int EscapedByte(std::string_view text, std::size_t pos) {
  return pos < text.size() && text[pos] == '%' ? HexNumber(text, pos + 1, 2) : -1;
}

/// "%XX".
inline void AppendEscapedByte(char c, std::string* out) {
  out->push_back('%');
  AppendHexByte(c, out);
}

/// A text in which everything but printable ASCII is "%XX", blanks too.
inline std::string EscapeUnprintable(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c > 0x20 && c < 0x7F) {
      escaped.push_back(c);
    } else {
      AppendEscapedByte(c, &escaped);
    }
  }
  return escaped;
}

}  // namespace qiv
