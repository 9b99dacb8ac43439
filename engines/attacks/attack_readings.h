// The readings of a text: what the programs behind a site may make of it. Each is in lower case.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engines/attacks/text_marks.h"

namespace qiv {

enum AttackReading : std::uint8_t {
  kReadPlain = 1,  ///< the text, and the text with its escapes resolved
  kReadPath = 2,   ///< as a file system reads it: one kind of slash, none doubled, no "/./"
  kReadShell = 4,  ///< as a shell reads it: without quotes, escapes and variables that are not set
};

/// Working memory for the texts of one request, and the walk over the readings of one. Not thread safe.
class CAttackReadings {
 public:
  /// Letters, digits, blanks, "-", "_", ",": in a text of them, and of bytes above 0x7F, nothing can be found.
  static constexpr bool IsPlainByte(char c) {
    return static_cast<unsigned char>(c) < 0x80 && (MarkOf(c) & kTellingMark) == 0;
  }

  /// Calls visit(reading, marks, text) for each reading of a telling text that differs from those before, until it
  /// returns false; whether none did. Linear.
  template <typename Visit>
  bool ForEach(std::string_view text, Visit&& visit) {
    TextMarks marks = MarksOf(text);
    if ((marks & kTellingMark) == 0) return true;
    Lower(text);
    std::string_view base = lowered_;
    if (!visit(kReadPlain, marks, base)) return false;
    bool odd = IsOdd(base, marks);
    if ((marks & kEscapes) != 0 && Resolve(marks)) {
      base = resolved_;
      marks = MarksOf(base);
      odd = true;
      if (!visit(kReadPlain, marks, base)) return false;
    }
    if (odd && MakePath(base) && !visit(kReadPath, MarksOf(path_), std::string_view(path_))) return false;
    return !IsJoined(base, marks) || !MakeShell(base) || visit(kReadShell, MarksOf(shell_), std::string_view(shell_));
  }

 private:
  static constexpr TextMarks kEscapes = MarksOf("%\\&") & ~(kCommandMark | kTellingMark);

  void Lower(std::string_view text);
  bool Resolve(TextMarks marks);
  static bool IsOdd(std::string_view text, TextMarks marks);
  bool MakePath(std::string_view text);
  static bool IsJoined(std::string_view text, TextMarks marks);
  bool MakeShell(std::string_view text);

  std::string lowered_;
  std::string resolved_;
  std::string path_;
  std::string shell_;
};

}  // namespace qiv
