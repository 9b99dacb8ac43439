// The tokens of SQL in the middle of a text that may be none.
//
// What a database undoes is undone here: any run of blanks, control bytes and comments divides like one blank, the
// contents of a version comment ("/*!50000union*/") count, letters have no case. Dialects differ; where they do, the
// reading that attackers use is taken: "#" and "--" begin a comment, "`x`" and "[x]" are names, 0xA0 is a blank.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace qiv {

enum class SqlTokenKind : std::uint8_t {
  kEnd,         ///< of the text
  kComment,     ///< a line comment, or a block comment without its end, that reaches the end of the text
  kNumber,      ///< decimal, hexadecimal, with fraction and exponent
  kString,      ///< quoted, with its end
  kOpenString,  ///< quoted, without its end: it reaches the end of the text
  kWord,        ///< keyword or name; `keyword` says which
  kOpen,
  kClose,
  kComma,
  kSemicolon,
  kCompare,     ///< = == <> != < > <= >= <=> and "like" and its kin
  kConnective,  ///< and or xor && ||
  kOperator,    ///< arithmetic and bits: + - * / % & | ^ << >> div mod
  kNot,         ///< ! ~ not, and others that stand before an operand
  kOther,       ///< nothing that stands in a statement
  kCut,         ///< the window ends
};

/// The words that the detector asks for.
enum class SqlWord : std::uint8_t {
  kName,      ///< any other word
  kConstant,  ///< true false null
  kFunction,  ///< a function that injections call
  kAll,
  kAlter,
  kAs,
  kBetween,
  kBy,
  kCall,
  kCase,
  kCollate,
  kCreate,
  kDeclare,
  kDelete,
  kDrop,
  kElse,
  kEnd,
  kExecute,
  kFrom,
  kGrant,
  kGroup,
  kHaving,
  kIn,
  kInsert,
  kInto,
  kIs,
  kLimit,
  kOrder,
  kProcedure,
  kSelect,
  kSet,
  kShutdown,
  kTable,
  kThen,
  kTruncate,
  kUnion,
  kUpdate,
  kValues,
  kWaitfor,
  kWhen,
  kWhere,
};

struct SqlToken {
  SqlTokenKind kind = SqlTokenKind::kEnd;
  SqlWord word = SqlWord::kName;  ///< of a kWord
  std::size_t begin = 0;          ///< offset into the text
  std::size_t end = 0;            ///< behind it
};

/// A text, and what its readers have found out about it: where block comments end, in one pass when first asked for,
/// and the tokens read last, since readers that begin side by side read the same ones. The text is not owned.
class CSqlText {
 public:
  explicit CSqlText(std::string_view text) : text_(text) {}

  std::string_view Text() const { return text_; }
  /// Offset behind the first "*/" at or after `from`; npos when there is none.
  std::size_t BehindComment(std::size_t from);
  /// First quote of that kind at or after `from` without a backslash before it; npos when there is none. Asked from
  /// place to place on, it costs a few steps each.
  std::size_t PlainQuote(char quote, std::size_t from);
  /// First line feed at or after `from`; npos when there is none. Asked from place to place on, it costs a few steps
  /// each.
  std::size_t LineEnd(std::size_t from);

  /// Whether the next tokens from `from` on, so many, hold nothing without which no reading comes to a finding: a
  /// connective, a word of SQL, a semicolon, a comment, the end of the text. Asked from place to place on, it costs a
  /// few steps each. Always false in a short text, of which nothing is kept.
  bool IsBarren(std::size_t from, std::size_t tokens);

  /// Where the run of name bytes ends that the place is in. Asked from place to place on, it costs a few steps each.
  std::size_t NameEnd(std::size_t from);

 private:
  friend class CSqlTokens;

  // A token as it is read from `at`, blanks before it included.
  struct Read {
    std::uint32_t at = 0xFFFFFFFF;
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    std::uint32_t barren = 0;  // so many tokens from here on are known to hold nothing that tells
    std::uint32_t resume = 0;  // behind them
    std::uint16_t spent = 0;   // of the window
    SqlTokenKind kind = SqlTokenKind::kEnd;
    SqlWord word = SqlWord::kName;
  };
  // A comment or a mark of one, with the blanks behind it, of a run of them; what the run before it takes of a window.
  struct Comment {
    std::uint32_t begin;
    std::uint32_t spent;
  };
  static constexpr std::size_t kMostComments = 2048;  // more than a window can hold
  static constexpr std::size_t kKept = 2048;          // a power of two; the bytes of a window
  static constexpr std::size_t kKeptOfShort = 1024;   // of shorter texts than kShort, for their memory's sake
  static constexpr std::size_t kShort = 16 * 1024;
  static constexpr std::size_t kReadsUnkept = 128;  // of a text with few quotes

  Read& KeptAt(std::size_t at) { return kept_[at & (kept_.size() - 1)]; }
  /// The token at `at` as it was kept; null when it tells, or could not be kept.
  Read* BarrenAt(std::size_t at);
  /// From the comment at *at as far on in the run it is in as a window with more than *room allows.
  void PassComments(std::size_t* at, std::size_t* room) const;
  /// Behind the one at `begin`, which took so much of the window, the run goes on at `next`.
  void KeepComment(std::size_t begin, std::size_t spent, std::size_t next);

  std::string_view text_;
  // For places in [from, to] what is asked for is at `to`.
  struct Span {
    std::size_t from = 1;
    std::size_t to = 0;
    bool Holds(std::size_t place) const { return place >= from && place <= to; }
  };
  std::array<Span, 3> plain_quotes_;  // of each kind the last one asked for
  Span name_;
  Span line_;
  bool ends_known_ = false;
  std::vector<std::size_t> ends_;
  std::size_t reads_ = 0;
  std::vector<Read> kept_;         // by place, the last one of each remainder
  std::vector<Comment> comments_;  // the last run; the last of them may be none, but what is behind it
};

/// Reads tokens from a place of a text on, kWindow bytes far (blanks and block comments not counted), so that many
/// readers over one text stay cheap. The text is not owned.
class CSqlTokens {
 public:
  static constexpr std::size_t kWindow = 2048;

  CSqlTokens(CSqlText* text, std::size_t begin) : text_(text->Text()), shared_(*text), at_(begin), room_(kWindow) {
    Advance();
  }

  const SqlToken& Current() const { return current_; }
  /// The next one. At the end it stays there.
  void Advance();
  /// Reads on from another place of the text.
  void Continue(std::size_t at) {
    at_ = at;
    Advance();
  }

 private:
  enum class Blanks { kDone, kMore, kToEnd, kTooFar };
  /// The token at hand, as an earlier reader found it; false when none is known.
  bool Recall();
  void Keep(std::size_t at, std::size_t room);
  void Read();
  /// Past blanks and comments; kToEnd when a comment reaches the end of the text.
  Blanks SkipBlanks();
  /// Past one comment, or the mark of one; kMore when it did, kDone when there is none.
  Blanks SkipComment();
  void ReadString(char quote);
  void ReadNumber();
  void ReadWord();
  void ReadSign();
  char At(std::size_t i) const { return i < text_.size() ? text_[i] : '\0'; }
  void Take(SqlTokenKind kind, std::size_t length);
  /// First `c` at or after `from` within the window; npos when there is none.
  std::size_t FindNear(char c, std::size_t from) const;

  std::string_view text_;
  CSqlText& shared_;
  std::size_t at_;
  std::size_t room_;  ///< bytes of the window that are left
  SqlToken current_;
};

}  // namespace qiv
