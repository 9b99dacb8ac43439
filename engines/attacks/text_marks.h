// What a text holds, as bits: one look at it says which rules cannot find anything there.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/ascii.h"

namespace qiv {

/// A bit for each ASCII mark, one for the other control bytes, for line ends, and for bytes above 0x7F.
using TextMarks = std::uint64_t;

inline constexpr TextMarks kCommandMark = TextMarks{1} << 63U;   ///< one of what begins a command behind something
inline constexpr TextMarks kTellingMark = TextMarks{1} << 62U;   ///< a byte of a text in which something can be found
inline constexpr TextMarks kOverlongMark = TextMarks{1} << 61U;  ///< the first byte of what careless decoders misread
inline constexpr TextMarks kNulMark = TextMarks{1} << 60U;

inline constexpr auto kMarkOf = [] {
  std::array<TextMarks, 256> marks{};
  unsigned bit = 0;
  for (unsigned c = '!'; c < 0x7F; ++c) {
    if (IsWordByte(static_cast<char>(c))) continue;
    marks[c] = TextMarks{1} << bit++;
    if (c != '-' && c != ',') marks[c] |= kTellingMark;
  }
  for (unsigned c = 0; c < 0x20; ++c) marks[c] = TextMarks{1} << bit | kTellingMark;
  marks['\t'] &= ~kTellingMark;
  marks['\r'] = marks['\n'] = TextMarks{1} << (bit + 1) | kTellingMark;
  for (unsigned c = 0x80; c < 0x100; ++c) marks[c] = TextMarks{1} << (bit + 2);
  marks[0x7F] = kTellingMark;
  marks[0] |= kNulMark;
  for (const unsigned char c : {';', '|', '&', '('}) marks[c] |= kCommandMark;
  for (const unsigned c : {0xC0U, 0xC1U, 0xE0U, 0xF0U, 0xF8U, 0xFCU}) marks[c] |= kOverlongMark;
  return marks;
}();

constexpr TextMarks MarkOf(char c) { return kMarkOf[static_cast<unsigned char>(c)]; }

constexpr TextMarks MarksOf(std::string_view text) {
  TextMarks marks = 0;
  std::size_t at = 0;
  for (; at + 4 <= text.size(); at += 4) {
    marks |= (MarkOf(text[at]) | MarkOf(text[at + 1])) | (MarkOf(text[at + 2]) | MarkOf(text[at + 3]));
  }
  for (; at < text.size(); ++at) marks |= MarkOf(text[at]);
  return marks;
}

}  // namespace qiv
