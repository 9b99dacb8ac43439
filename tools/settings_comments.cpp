#include "tools/settings_comments.h"

#include <algorithm>

namespace qiv {
namespace {

/// The end of the comment that begins at `begin`; `begin` when none does, or it is not closed.
std::size_t EndOfComment(std::string_view text, std::size_t begin) {
  const std::string_view start = text.substr(begin, 2);
  if (start == "//") return std::min(text.find('\n', begin), text.size());
  if (start != "/*") return begin;
  const std::size_t close = text.find("*/", begin + 2);
  return close == std::string_view::npos ? begin : close + 2;
}

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

std::size_t EndOfString(std::string_view text, std::size_t begin) {
  for (std::size_t i = begin + 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      return i + 1;
    }
  }
  return text.size();
}

std::string BlankComments(std::string_view text, TrailingCommas commas) {
  std::string blanked(text);
  std::size_t comma = text.size();  // one that nothing but blanks and comments follows so far
  char before = '{';                // the last byte that is neither blank nor comment
  bool comments = true;             // false behind one that is not closed, so that it is looked for once
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t end = text[i] == '/' && comments ? EndOfComment(text, i) : i;
    if (end != i) {
      std::replace_if(
          blanked.begin() + static_cast<std::ptrdiff_t>(i), blanked.begin() + static_cast<std::ptrdiff_t>(end),
          [](char c) { return !IsSpace(c); }, ' ');
      i = end;
      continue;
    }
    if (text.substr(i, 2) == "/*") comments = false;
    if (IsSpace(text[i])) {
      ++i;
      continue;
    }
    const bool closes = text[i] == '}' || text[i] == ']';
    if (closes && comma != text.size() && commas == TrailingCommas::kBlank) blanked[comma] = ' ';
    const bool after_value = before != '{' && before != '[' && before != ',' && before != ':';
    comma = text[i] == ',' && after_value ? i : text.size();
    before = text[i];
    i = text[i] == '"' ? EndOfString(text, i) : i + 1;
  }
  return blanked;
}

}  // namespace qiv
