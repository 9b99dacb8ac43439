// Small helpers over bytes, without locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qiv::host {

constexpr char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

constexpr bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
  }
  return true;
}

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Value of a hexadecimal digit, -1 for any other byte.
constexpr int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  const char lower = LowerAscii(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// RFC 9110 token characters: methods and header names.
constexpr bool IsTokenChar(char c) {
  if (IsDigit(c) || (LowerAscii(c) >= 'a' && LowerAscii(c) <= 'z')) return true;
  return std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

/// Without leading and trailing blanks and tabs.
constexpr std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

/// Takes the next item off a comma-separated list, trimmed. False when the list is used up.
inline bool NextListItem(std::string_view* list, std::string_view* item) {
  if (list->empty()) return false;
  const std::size_t comma = list->find(',');
  *item = TrimBlanks(list->substr(0, comma));
  *list = comma == std::string_view::npos ? std::string_view() : list->substr(comma + 1);
  return true;
}

/// Whether a comma-separated list holds `word`, without regard to case.
inline bool ListHolds(std::string_view list, std::string_view word) {
  std::string_view item;
  while (NextListItem(&list, &item)) {
    if (EqualsIgnoreCase(item, word)) return true;
  }
  return false;
}

/// A whole text of decimal digits as a number; false for anything else or more than 64 bits.
inline bool ParseDecimal(std::string_view text, std::uint64_t* value) {
  if (text.empty()) return false;
  std::uint64_t result = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return false;
    const std::uint64_t digit = static_cast<std::uint64_t>(c - '0');
    if (result > (~std::uint64_t{0} - digit) / 10) return false;
    result = result * 10 + digit;
  }
  *value = result;
  return true;
}

}  // namespace qiv::host
