#include "engines/attacks/text_shape.h"

#include <algorithm>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kWordsOfLine = 3;
constexpr std::size_t kLines = 3;              // with so many words
constexpr std::size_t kWords = 60;             // of one line
constexpr std::size_t kBytesOfIdeographs = 6;  // two or three of them are a word

}  // namespace

bool IsWriting(std::string_view text) {
  std::size_t words = 0;
  std::size_t lines = 0;
  std::size_t of_line = 0;
  std::size_t wide = 0;
  bool in_word = false;
  for (const char c : text) {
    if (IsSpace(c)) in_word = false;
    if (c == '\n' || c == '\r') {
      lines += of_line >= kWordsOfLine ? 1 : 0;
      of_line = 0;
    }
    const bool is_wide = static_cast<unsigned char>(c) >= 0x80;
    if (is_wide && ++wide % kBytesOfIdeographs == 0) in_word = false;
    if (in_word || (!is_wide && !IsLetter(c))) continue;
    in_word = true;
    ++of_line;
    if (++words >= kWords) return true;
  }
  return lines + (of_line >= kWordsOfLine ? 1 : 0) >= kLines;
}

bool CTextShape::IsWithinWriting(std::size_t at) {
  constexpr std::size_t kMostMarks = 16;  // before what a shell or a script begins with
  if (!first_blank_) {
    const bool writing = IsWriting(text_);
    first_blank_ = writing ? static_cast<std::size_t>(std::find_if(text_.begin(), text_.end(), IsSpace) - text_.begin())
                           : text_.size();
  }
  const std::size_t least = at > kMostMarks ? at - kMostMarks : 0;
  while (at > least && text_[at - 1] != '\n' && !IsWordByte(text_[at - 1]) &&
         static_cast<unsigned char>(text_[at - 1]) < 0x80) {
    --at;
  }
  return *first_blank_ < at;
}

}  // namespace qiv
