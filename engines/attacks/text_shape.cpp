#include "engines/attacks/text_shape.h"

#include <algorithm>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kWordsOfLine = 3;
constexpr std::size_t kLines = 3;              // with so many words
constexpr std::size_t kWords = 60;             // of one line
constexpr std::size_t kShortestWord = 2;       // letters: single ones are easily strewn in
constexpr std::size_t kBytesOfIdeographs = 6;  // two or three of them are a word

constexpr bool IsWide(char c) { return static_cast<unsigned char>(c) >= 0x80; }

/// Lines of several words, or a paragraph.
bool IsWriting(std::string_view text) {
  std::size_t words = 0;
  std::size_t lines = 0;
  std::size_t of_line = 0;
  std::size_t wide = 0;
  std::size_t letters = 0;  // of this word
  for (const char c : text) {
    if (IsSpace(c)) letters = 0;
    if (c == '\n' || c == '\r') {
      lines += of_line >= kWordsOfLine ? 1 : 0;
      of_line = 0;
    }
    if (IsWide(c) && ++wide % kBytesOfIdeographs == 0) letters = 0;
    if ((!IsWide(c) && !IsLetter(c)) || ++letters != kShortestWord) continue;
    ++of_line;
    if (++words >= kWords) return true;
  }
  return lines + (of_line >= kWordsOfLine ? 1 : 0) >= kLines;
}

/// Where the first word ends; ideographs have no blanks between them.
std::size_t EndOfFirstWord(std::string_view text) {
  std::size_t wide = 0;
  const auto ends = [&wide](char c) { return IsSpace(c) || (IsWide(c) && ++wide > kBytesOfIdeographs); };
  return static_cast<std::size_t>(std::find_if(text.begin(), text.end(), ends) - text.begin());
}

}  // namespace

bool CTextShape::IsWithinWriting(std::size_t at) {
  constexpr std::size_t kMostMarks = 16;  // before what a shell or a script begins with
  if (!begin_) begin_ = IsWriting(text_) ? EndOfFirstWord(text_) : kNoWriting;
  if (*begin_ == kNoWriting) return false;
  const std::size_t least = at > kMostMarks ? at - kMostMarks : 0;
  while (at > least && text_[at - 1] != '\n' && !IsWordByte(text_[at - 1]) && !IsWide(text_[at - 1])) --at;
  return *begin_ < at;
}

}  // namespace qiv
