// One attempt to read a text on as SQL: the part of sql_expression_detector that follows the tokens.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/ascii.h"
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
        operand_(before == Before::kName ? Operand::kName : Operand::kConstant),
        operand_text_(text_.substr(0, before == Before::kQuote ? 0 : begin)) {}
  ~CSqlExpressionReader() { value_.tokens_read += static_cast<std::size_t>(read_) + 1; }
  CSqlExpressionReader(const CSqlExpressionReader&) = delete;
  CSqlExpressionReader& operator=(const CSqlExpressionReader&) = delete;

  /// Whether an attempt from `begin` on reads nothing that could lead to a finding.
  static bool IsVain(SqlValue* value, std::size_t begin) {
    constexpr std::size_t kMore = 4;  // read at once behind the last one that is counted
    return value->text.IsBarren(begin, static_cast<std::size_t>(MostTokens(*value)) + kMore);
  }

  static bool IsStatementWord(SqlWord word);

  Finding Run() {
    // Brackets that the statement had open.
    while (Is(Kind::kClose)) Next();
    if (JustEnds()) return Found(Result::kComment);
    if (before_ == Before::kNothing) return Operands();
    if (Is(Kind::kSemicolon)) return Stacked();
    if (Is(Kind::kWord) && before_ != Before::kName) {
      if (Finding found = FollowingStatement()) return found;
    }
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
    return value_.text.LineEnd(begin_) < tokens_.Current().end;
  }
  std::string_view Text() const {
    return text_.substr(tokens_.Current().begin, tokens_.Current().end - tokens_.Current().begin);
  }

  /// "admin'--": a short name, a quote, a comment with nothing behind it. Prose writes its dashes otherwise.
  bool JustEnds() const {
    constexpr std::size_t kLongestName = 40;
    constexpr std::size_t kShortValue = 24;
    if (!Is(Kind::kComment)) return false;
    // "1)-- "
    if (before_ == Before::kNumber) return read_ > 0 && text_.size() <= kShortValue && HasShortComment("-");
    if (before_ != Before::kQuote || begin_ > kLongestName) return false;
    if (HasShortComment()) return text_.substr(0, begin_).find(' ') == std::string_view::npos;
    // "1'--sp_password"
    return text_.substr(begin_).starts_with("--") && IsBehindName() && text_.find(' ') == std::string_view::npos;
  }

  bool IsBehindWord() const { return before_ == Before::kNumber || before_ == Before::kName; }

  /// Whether the operands are the same text; the left one may be what the value begins with.
  bool IsSame(std::string_view left, std::string_view right) const {
    if (IsBehindWord() && left.data() == text_.data()) {
      left = Trim(left);
      left.remove_prefix(left.find_last_of(" (") + 1);  // npos + 1: all of it
    }
    return !left.empty() && EqualsIgnoreCase(left, right);
  }

  static bool EndsInComment(std::string_view text) {
    constexpr std::size_t kLongestEnd = 8;
    const std::string_view end = Trim(text.substr(text.size() - std::min(text.size(), kLongestEnd)));
    return end.ends_with("--") || end.ends_with("--+") || end.ends_with('#') ||
           end.find("-- ") != std::string_view::npos;
  }

  /// What stands before the quote is one name or number, or nothing.
  bool IsBehindName() const {
    constexpr std::size_t kLongestName = 40;
    if (before_ != Before::kQuote || begin_ > kLongestName) return false;
    const std::string_view head = text_.substr(0, begin_ - 1);
    return std::all_of(head.begin(), head.end(),
                       [](char c) { return IsWordByte(c) || c == '.' || c == '-' || c == '@' || c == '%'; });
  }

  /// At a comment that ends the value and holds next to nothing; `marks`: one of these begins it.
  bool HasShortComment(std::string_view marks = "#-*") const {
    constexpr std::size_t kLongest = 8;
    if (!Is(Kind::kComment)) return false;
    const std::string_view end = text_.substr(text_.size() - std::min(text_.size(), kLongest));
    const std::size_t begin = end.find_last_of(marks);
    if (begin == std::string_view::npos) return false;
    return begin + 1 == end.size() || end[begin + 1] <= ' ' || end[begin + 1] == '+';
  }

  /// Behind an operand.
  Finding Operators();

  /// A word behind an operand. `*goes_on` false: nothing that can stand there, or the result is certain.
  Finding OperatorWord(bool* goes_on);

  void Compare() {
    comparing_ = true;
    left_ = operand_;
    left_text_ = operand_text_;
    sum_ = sum_ || !connective_;
  }

  /// At a name where an operator is due: "similar to", "sounds like", "notnull", or what divides arguments of a call,
  /// as in "substring(name from 2)".
  bool NamedOperator();

  /// At a sign that leads into a value or gives it a type: "name->'$.a'", "name::text".
  bool Path();

  /// Where an operand is due.
  Finding Operands();

  /// A word as an operand: a name, a call. `*after_call`: it stands first in the arguments of a call, or does so now.
  /// Nothing, with `*goes_on`: an operand is due as before.
  Finding OperandWord(bool* after_call, bool* goes_on);

  bool IsOperandWord() const;

  Finding After(Operand operand) {
    string_ = Is(Kind::kString);
    operand_text_ = Text();
    Next();
    return Behind(operand);
  }

  Finding Behind(Operand operand);

  /// "' or 'a'='a" leaves the last string to the statement's own quote.
  Finding OpenString();

  /// An expression that ends with the value.
  Finding Complete(bool in_string) const { return IsComplete(in_string) ? Found(Result::kCondition) : Finding(); }
  bool IsComplete(bool in_string) const;
  bool IsCompleteBehindQuote(bool in_string) const;
  bool IsCompleteBehindNumber() const;
  bool IsCompleteBehindName() const;
  /// "'-'", "' * id - '0", "'-id-- ": arithmetic with the literal.
  bool IsSum(bool in_string) const;
  bool IsCompared() const { return compared_constants_ || compared_mixed_ || compared_names_; }

  /// The value ends where an operand is due: the statement's next string is taken for it.
  bool IsCutOff() const;

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
    if (IsEnd()) {
      const bool ends =
          before_ == Before::kQuote && (HasShortComment() || (begin_ > 1 && read_ == 1 && IsBehindName()));
      return ends ? Found(Result::kStacked) : Complete(false);
    }
    if (Is(Kind::kOpen)) return Operands();
    return Statement();
  }

  Finding Statement();
  /// Statements whose first words alone tell nothing.
  bool IsLongStatement();
  /// "1 drop table t--": some databases want no ";" between statements. Prose may go on so: it needs the comment.
  Finding FollowingStatement();

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
  char open_quote_ = '\0';
  bool same_ = false;       // what was compared is the same on both sides
  bool repeated_ = false;   // "1 or 1"
  bool negated_ = false;    // "or not 0"
  bool null_ = false;       // "is not null"
  bool nested_ = false;     // next to stand in a known function's brackets
  bool call_ = false;       // any name with a bracket directly behind it
  bool arguments_ = false;  // a call with a constant, or more than one argument
  bool case_ended_ = false;
  bool cast_ = false;
  bool constant_ = false;  // among the operands
  bool expects_operator_ = false;
  int arithmetic_ = 0;
  std::string_view operand_text_;
  std::string_view left_text_;    // of the comparison
  std::string_view joined_text_;  // the operand before the last "or"
};

}  // namespace qiv
