// What a rule for attacks looks for: words in order, and what may stand between and around them.
//
// A pattern is written as text in lower case in which "~" begins what is no plain text, and "%XX" is a byte:
//
//   ~^  the text begins here              ~$  the text ends here
//   ~c  a shell begins a command here     ~C  the same, or the text begins here (blanks, quotes, a path may stand
//   before) ~e  a shell ends a command's name here, or the text ends ~b  no letter, digit or "_" goes on here ~s  up to
//   16 blanks and line ends     ~S  the same, at least one
//   ~.{m,n}    m to n bytes of any kind; alone between two words, n at most 4000
//   ~[a-z_]{m,n}  bytes of a set, "^" first: of none of it; "%XX" in it is a byte; without {m,n} one byte; n at most
//   250
//   ~(name)    one word of a list
//
// A single byte of plain text is a run as well. Runs of bytes are taken as long as they can be, without a second try.
// Of a word that stands several times before the next one, the last two places count. So a text is searched in one
// pass, whatever it holds.
#pragma once

#include <bitset>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// So many bytes of a set.
struct ByteRun {
  std::bitset<256> set;
  std::uint32_t least = 1;
  std::uint32_t most = 1;
};

struct PatternStep {
  std::vector<std::string> words;  ///< any of them
  std::vector<ByteRun> before;     ///< between the step before, or the pattern's begin, and the word
  bool any_before = false;         ///< instead: any bytes, as many as the only run says
  std::size_t least_before = 0;    ///< bytes that they take together
  std::size_t most_before = 0;
  bool edge_before = false;
  bool edge_behind = false;
  bool command_end = false;
};

enum class PatternBegin : std::uint8_t { kAnywhere, kText, kCommand, kTextOrCommand };

struct AttackPattern {
  PatternBegin begin = PatternBegin::kAnywhere;
  std::vector<PatternStep> steps;
  std::vector<ByteRun> behind;
  std::size_t most_behind = 0;  ///< bytes
  bool edge_end = false;
  bool text_end = false;
};

/// Words as they are written, by the list's name.
using WordLists = std::map<std::string, std::vector<std::string>, std::less<>>;

/// Nothing, with a sentence in *fault, when the text is no pattern.
std::optional<AttackPattern> ParsePattern(std::string_view text, const WordLists& lists, std::string* fault);

// How a pattern's parts are found in a text. All look at a bounded number of bytes.

/// Where the runs end that begin at `from`; npos when the text does not hold them.
std::size_t RunsEnd(std::string_view text, const std::vector<ByteRun>& runs, std::size_t from);
/// Where they begin that end at `end`.
std::size_t RunsBegin(std::string_view text, const std::vector<ByteRun>& runs, std::size_t end);
bool IsWordEdge(std::string_view text, std::size_t at);
enum class CommandBegin : std::uint8_t { kNone, kText, kBehindMark };
/// Whether a shell begins a command at `at`, were the text one, or behind what begins one.
CommandBegin CommandBeginAt(std::string_view text, std::size_t at);
bool IsCommandEnd(std::string_view text, std::size_t at);
/// What can stand between a command and what begins it.
inline constexpr std::string_view kBytesBesideCommand = " \t\r\n\f\v\"'({@!\\+";
inline constexpr std::string_view kCommandSeparators = ";|&";
/// What can stand right behind a command.
inline constexpr std::string_view kBytesBehindCommand = " \t\r\n;|&`'\")<>$,}\\/+#";

}  // namespace qiv
