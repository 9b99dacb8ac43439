// Pieces of the protocol's grammar, without locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/ascii.h"

namespace qiv::host {

/// RFC 9110 token characters: methods and header names.
constexpr bool IsTokenChar(char c) {
  if (IsDigit(c) || IsLetter(c)) return true;
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
