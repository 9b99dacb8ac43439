// One attempt to read a text on as SQL: the part of sql_expression_detector that follows the tokens.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/text.h"
#include "engines/injection/sql_expression_detector.h"
#include "engines/injection/sql_tokens.h"

namespace qiv {

/// What stands before the place where an attempt begins.
enum class SqlBefore {
  kQuote,   ///< a quote that ends a string
  kNumber,  ///< a number or another constant at the start of the value
  kName,    ///< one word at the start of the value, or nothing: it begins with an operator
  kNothing  ///< the value begins with the expression itself
};

/// What an operand was, for comparisons.
enum class SqlOperand { kNone, kConstant, kName, kCall };

/// What the attempts of one value share.
struct SqlValue {
  explicit SqlValue(std::string_view value) : text(value) {}
  CSqlText text;
  std::size_t tokens_read = 0;
};

/// Reads from a place of a value on and says what it is; used once. The value is not owned.
class CSqlExpressionReader {
 public:
  using Finding = std::optional<SqlExpressionFinding>;
  using Before = SqlBefore;

  CSqlExpressionReader(SqlValue* value, std::size_t begin, Before before)
      : value_(*value),
        text_(value->text.Text()),
        begin_(begin),
        before_(before),
        tokens_(&value->text, begin),
        most_(MostTokens(*value)),
        operand_(before == Before::kName ? Operand::kName : Operand::kConstant) {}
  ~CSqlExpressionReader() { value_.tokens_read += static_cast<std::size_t>(read_) + 1; }
  CSqlExpressionReader(const CSqlExpressionReader&) = delete;
  CSqlExpressionReader& operator=(const CSqlExpressionReader&) = delete;

  /// Whether an attempt from `begin` on reads nothing that could lead to a finding.
  static bool IsVain(SqlValue* value, std::size_t begin) {
    constexpr std::size_t kMore = 4;  // read at once behind the last one that is counted
    return value->text.IsBarren(begin, static_cast<std::size_t>(MostTokens(*value)) + kMore);
  }

  Finding Run() {
    // Brackets that the statement had open.
    while (Is(Kind::kClose)) Next();
    if (JustEnds()) return Found(Result::kComment);
    if (before_ == Before::kNothing) return Operands();
    if (Is(Kind::kSemicolon)) return Stacked();
    return Operators();
  }

 private:
  using Kind = SqlTokenKind;
  using Word = SqlWord;
  using Result = SqlExpressionKind;
  using Operand = SqlOperand;

  /// Tokens of one attempt: longer chains than any client sends, and what is left to each when the attempts of one
  /// value have read more tokens than it has bytes. That is a hostile text; enough for "or 1=1-- " is read all the
  /// same.
  static constexpr int kMaxTokens = 40;
  static constexpr int kFewTokens = 10;
  static constexpr std::size_t kFreeTokens = 4096;

  static int MostTokens(const SqlValue& value) {
    return value.tokens_read < kFreeTokens + value.text.Text().size() ? kMaxTokens : kFewTokens;
  }

  bool Is(Kind kind) const { return tokens_.Current().kind == kind; }
  bool Is(Word word) const { return tokens_.Current().kind == Kind::kWord && tokens_.Current().word == word; }
  void Next() {
    tokens_.Advance();
    ++read_;
  }
  bool Skip(Word word) {
    if (!Is(word)) return false;
    Next();
    return true;
  }
  bool IsEnd() const { return Is(Kind::kEnd) || Is(Kind::kComment); }
  Finding Found(Result kind) const {
    if (kind != Result::kUnion && IsDocument() && !(connective_ && (compared_constants_ || called_with_constant_))) {
      return {};
    }
    return SqlExpressionFinding{kind, begin_, tokens_.Current().end};
  }
  /// In a document sentences of several lines stand beside one another; what is read across the end of a line counts
  /// only when it is more than words.
  bool IsDocument() const {
    constexpr std::size_t kShortest = 256;
    if (text_.size() < kShortest) return false;
    const std::string_view read = text_.substr(begin_, tokens_.Current().end - begin_);
    return read.find('\n') != std::string_view::npos;
  }
  std::string_view Text() const {
    return text_.substr(tokens_.Current().begin, tokens_.Current().end - tokens_.Current().begin);
  }

  /// "admin'--": a short name, a quote, a comment with nothing behind it. Prose writes its dashes otherwise.
  bool JustEnds() const {
    constexpr std::size_t kLongestName = 40;
    if (before_ != Before::kQuote || begin_ > kLongestName || !HasShortComment()) return false;
    return text_.substr(0, begin_).find(' ') == std::string_view::npos;
  }

  /// At a comment that ends the value and holds next to nothing.
  bool HasShortComment() const {
    constexpr std::size_t kLongest = 8;
    if (!Is(Kind::kComment)) return false;
    const std::size_t begin = text_.find_last_of("#-*");
    if (begin == std::string_view::npos || text_.size() - begin > kLongest) return false;
    return begin + 1 == text_.size() || text_[begin + 1] <= ' ' || text_[begin + 1] == '+';
  }

  /// Behind an operand.
  Finding Operators();

  /// A word behind an operand. `*goes_on` false: nothing that can stand there, or the result is certain.
  Finding OperatorWord(bool* goes_on);

  void Compare() {
    comparing_ = true;
    left_ = operand_;
    sum_ = sum_ || !connective_;
  }

  /// Where an operand is due.
  Finding Operands();

  bool IsOperandWord() const;

  Finding After(Operand operand) {
    string_ = Is(Kind::kString);
    Next();
    return Behind(operand);
  }

  Finding Behind(Operand operand);

  /// "' or 'a'='a" leaves the last string to the statement's own quote.
  Finding OpenString();

  /// An expression that ends with the value.
  Finding Complete(bool in_string) const;

  /// A chain too long to be followed to its end: what it holds decides.
  Finding Undecided() const {
    return connective_ && (compared_constants_ || calls_) ? Found(Result::kCondition) : Finding();
  }

  /// At "select" where an operand is due. "(select one)" of a form's hint is an operand like others.
  Finding Subquery();

  /// At "select": whether what follows is a list of a query, not the rest of a sentence. `certain`: one name is enough
  /// where the text or the query ends behind it. Else the tokens are left behind the name.
  bool SelectList(bool certain);

  Finding Union();

  /// "order by 5", "group by a,b having": with the end of a probe behind it.
  Finding Ordered(bool order);

  Finding IntoFile() {
    Next();
    if (!Is(Kind::kWord)) return {};
    const bool file = EqualNoCase(Text(), "outfile") || EqualNoCase(Text(), "dumpfile");
    Next();
    return file && (Is(Kind::kString) || Is(Kind::kOpenString) || Is(Kind::kNumber) || Is(Kind::kOpen))
               ? Found(Result::kClause)
               : Finding();
  }

  bool NameAndBracket() {
    if (!Is(Kind::kWord)) return false;
    Next();
    return Is(Kind::kOpen);
  }

  /// At ";": a second statement, or none.
  Finding Stacked() {
    while (Is(Kind::kSemicolon)) Next();
    if (IsEnd()) return before_ == Before::kQuote && HasShortComment() ? Found(Result::kStacked) : Complete(false);
    if (Is(Kind::kOpen)) return Operands();
    return Statement();
  }

  Finding Statement();

  /// "low_priority", "ignore" and the like, between a statement's word and what it works on.
  void SkipModifiers();

  /// Behind "update".
  Finding Updated();

  static bool IsSchemaWord(std::string_view word) {
    for (const std::string_view thing : {"table", "database", "view", "index", "user", "function", "procedure",
                                         "schema", "trigger", "login", "alias", "or", "temporary", "role", "server"}) {
      if (EqualNoCase(word, thing)) return true;
    }
    return false;
  }

  SqlValue& value_;
  const std::string_view text_;
  const std::size_t begin_;
  const Before before_;
  CSqlTokens tokens_;
  const int most_;
  int read_ = 0;

  Operand operand_;                // at first what stands before the attempt
  Operand left_ = Operand::kNone;  // of the comparison
  bool comparing_ = false;
  bool connective_ = false;
  bool list_ = false;  // a bracket is open: commas divide
  bool case_ = false;
  bool called_with_constant_ = false;  // "sleep(5)"; prose writes "user(s)"
  bool sum_ = false;                   // it begins with a comparison: "5 > 3 and 2 < 4" is one's own
  bool comma_ = false;                 // outside brackets
  bool bracket_ = false;               // the operand stands behind an opening bracket
  bool string_ = false;                // the operand was a string
  bool clause_ = false;                // where, having
  bool calls_ = false;                 // a function that injections call, a system variable
  bool constant_word_ = false;         // true, false, null
  bool last_constant_ = false;
  bool short_end_ = false;
  bool compared_constants_ = false;
  bool compared_mixed_ = false;  // a name with a constant
  bool compared_names_ = false;
  bool expects_operator_ = false;
  int arithmetic_ = 0;
};

}  // namespace qiv
