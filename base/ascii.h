// Kinds and cases of ASCII bytes, without locale. Bytes above 0x7F are of no kind and have no case.
#pragma once

#include <string_view>

namespace qiv {

/// The six white-space bytes: blank, tab, line feed, vertical tab, form feed, carriage return.
constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
/// ASCII letter, digit or "_".
constexpr bool IsWordByte(char c) { return IsLetter(c) || IsDigit(c) || c == '_'; }

constexpr char LowerByte(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

/// Equal without regard to the case of either.
constexpr bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (LowerByte(a[i]) != LowerByte(b[i])) return false;
  }
  return true;
}

}  // namespace qiv
