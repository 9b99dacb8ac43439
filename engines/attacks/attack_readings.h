// The readings of a text: what the programs behind a site may make of it. Each is in lower case.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum AttackReading : std::uint8_t {
  kReadPlain = 1,  ///< the text, and the text with its escapes resolved
  kReadPath = 2,   ///< as a file system reads it: one kind of slash, none doubled, no "/./"
  kReadShell = 4,  ///< as a shell reads it: without quotes, escapes and variables that are not set
};

/// Working memory for the texts of one request, and the walk over the readings of one. Not thread safe.
class CAttackReadings {
 public:
  /// False for a text in which nothing can be found: letters, digits, blanks, "-", "_", ",", and bytes above 0x7F.
  static bool IsTelling(std::string_view text);

  /// Calls visit(reading, text) for each reading that differs from those before, until it returns false; whether none
  /// did. Linear.
  template <typename Visit>
  bool ForEach(std::string_view text, Visit&& visit) {
    unsigned marks = Lower(text);
    if (!visit(kReadPlain, std::string_view(lowered_))) return false;
    std::string_view base = lowered_;
    if ((marks & (kEscapes | kEntities)) != 0 && Resolve(marks)) {
      base = resolved_;
      marks |= kOdd;
      if (!visit(kReadPlain, base)) return false;
    }
    if ((marks & kOdd) != 0 && MakePath(base) && !visit(kReadPath, std::string_view(path_))) return false;
    return (marks & (kQuoting | kEscapes)) == 0 || !MakeShell(base) || visit(kReadShell, std::string_view(shell_));
  }

 private:
  // What was seen in a text.
  enum : unsigned { kEscapes = 1, kEntities = 2, kQuoting = 4, kOdd = 8 };

  unsigned Lower(std::string_view text);
  bool Resolve(unsigned marks);
  bool MakePath(std::string_view text);
  bool MakeShell(std::string_view text);

  std::string lowered_;
  std::string resolved_;
  std::string path_;
  std::string shell_;
};

}  // namespace qiv
