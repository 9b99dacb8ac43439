#include "engines/injection/sql_expression_detector.h"

#include <algorithm>
#include <array>

#include "common/text.h"
#include "engines/injection/sql_tokens.h"

namespace qiv {
namespace {

using Finding = std::optional<SqlExpressionFinding>;
using Kind = SqlTokenKind;
using Word = SqlWord;
using Result = SqlExpressionKind;

/// Tokens of one attempt: longer chains than any client sends, and what is left to each when the attempts of one value
/// have read more tokens than it has bytes. That is a hostile text; enough for "or 1=1-- " is read all the same.
constexpr int kMaxTokens = 40;
constexpr int kFewTokens = 10;
constexpr std::size_t kFreeTokens = 4096;

/// What stands before the place where an attempt begins.
enum class Before {
  kQuote,   ///< a quote that ends a string
  kNumber,  ///< a number or another constant at the start of the value
  kName,    ///< one word at the start of the value, or nothing: it begins with an operator
  kNothing  ///< the value begins with the expression itself
};

/// What an operand was, for comparisons.
enum class Operand { kNone, kConstant, kName, kCall };

/// What the attempts of one value share.
struct CValue {
  explicit CValue(std::string_view value) : text(value), comments(value) {}
  const std::string_view text;
  CCommentEnds comments;
  std::size_t tokens_read = 0;
};

class CAttempt {
 public:
  CAttempt(CValue* value, std::size_t begin, Before before)
      : value_(*value),
        text_(value->text),
        begin_(begin),
        before_(before),
        tokens_(value->text, begin, &value->comments),
        most_(value->tokens_read < kFreeTokens + value->text.size() ? kMaxTokens : kFewTokens) {}
  ~CAttempt() { value_.tokens_read += static_cast<std::size_t>(read_) + 1; }
  CAttempt(const CAttempt&) = delete;
  CAttempt& operator=(const CAttempt&) = delete;

  Finding Run() {
    // Brackets that the statement had open.
    while (Is(Kind::kClose)) Next();
    if (JustEnds()) return Found(Result::kComment);
    if (before_ == Before::kNothing) return Operands();
    if (Is(Kind::kSemicolon)) return Stacked();
    return Operators();
  }

 private:
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
  Finding Found(Result kind) const { return SqlExpressionFinding{kind, begin_, tokens_.Current().end}; }
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
  Finding Operators() {
    while (read_ < most_) {
      const SqlToken token = tokens_.Current();
      switch (token.kind) {
        case Kind::kEnd:
        case Kind::kComment:
          return Complete(false);
        case Kind::kCut:
          return Undecided();
        case Kind::kClose:
          Next();
          continue;
        case Kind::kConnective:
          connective_ = true;
          comparing_ = false;
          break;
        case Kind::kCompare:
          Compare();
          break;
        case Kind::kOperator:
          ++arithmetic_;
          break;
        case Kind::kComma:
          comma_ = comma_ || !list_;
          break;
        case Kind::kSemicolon:
          return Stacked();
        case Kind::kNot:
          // "not in", "not like", "not between"
          Next();
          if (!Is(Kind::kCompare) && !Is(Word::kIn) && !Is(Word::kBetween)) return {};
          continue;
        case Kind::kOpen:  // "1) (select ..."
          while (Is(Kind::kOpen) && read_ < most_) Next();
          return Is(Word::kSelect) && SelectList(false) ? Found(Result::kSubquery) : Finding();
        case Kind::kOpenString:
          // Strings side by side are one.
          if (string_ && connective_) return OpenString();
          return {};
        case Kind::kWord: {
          bool goes_on = false;
          const Finding found = OperatorWord(&goes_on);
          if (found || !goes_on) return found;
          if (expects_operator_) continue;
          return Operands();
        }
        default:
          return {};
      }
      Next();
      return Operands();
    }
    return Undecided();
  }

  /// A word behind an operand. `*goes_on` false: nothing that can stand there, or the result is certain.
  Finding OperatorWord(bool* goes_on) {
    const Word word = tokens_.Current().word;
    expects_operator_ = false;
    *goes_on = true;
    switch (word) {
      case Word::kUnion:
        *goes_on = false;
        return Union();
      case Word::kHaving:
      case Word::kWhere:
        clause_ = connective_ = true;
        comparing_ = false;
        break;
      case Word::kAs:
        Next();
        if (!Is(Kind::kWord) && !Is(Kind::kString)) *goes_on = false;
        expects_operator_ = true;
        break;
      case Word::kSelect:  // "if(1=1) select"
        *goes_on = false;
        return calls_ && compared_constants_ ? Found(Result::kStacked) : Finding();
      case Word::kIs:
        Next();
        while (Is(Kind::kNot)) Next();
        if (!Is(Word::kConstant)) break;
        compared_names_ = true;
        expects_operator_ = true;
        break;
      case Word::kBetween:
        Compare();
        break;
      case Word::kIn:
        Compare();
        Next();
        if (Is(Kind::kWord) && EqualNoCase(Text(), "boolean")) {  // "in boolean mode)"
          Next();
          comparing_ = false;
          expects_operator_ = true;
          break;
        }
        if (!Is(Kind::kOpen)) *goes_on = false;
        list_ = true;
        break;
      case Word::kOrder:
      case Word::kGroup:
        *goes_on = false;
        return Ordered(word == Word::kOrder);
      case Word::kProcedure:
        *goes_on = false;
        Next();
        return NameAndBracket() ? Found(Result::kClause) : Finding();
      case Word::kInto:
        *goes_on = false;
        return IntoFile();
      case Word::kWaitfor:
        *goes_on = false;
        return Statement();
      case Word::kLimit:
        Next();
        if (!Is(Kind::kNumber)) *goes_on = false;
        expects_operator_ = true;
        break;
      case Word::kCollate:
        Next();
        expects_operator_ = true;
        break;
      case Word::kWhen:
      case Word::kThen:
      case Word::kElse:
        *goes_on = case_;
        break;
      case Word::kEnd:
        *goes_on = case_;
        expects_operator_ = true;
        break;
      default:
        *goes_on = false;
        return {};
    }
    if (*goes_on && !(word == Word::kIs && !expects_operator_)) Next();
    return {};
  }

  void Compare() {
    comparing_ = true;
    left_ = operand_;
  }

  /// Where an operand is due.
  Finding Operands() {
    bool after_call = false;
    while (read_ < most_) {
      switch (tokens_.Current().kind) {
        case Kind::kNumber:
        case Kind::kString:
          return After(Operand::kConstant);
        case Kind::kOpenString:
          return OpenString();
        case Kind::kCompare:  // "like('a','b')"
          if (!IsLetter(Text().front())) return {};
          Next();
          if (!Is(Kind::kOpen)) return {};
          calls_ = true;
          continue;
        case Kind::kNot:
        case Kind::kOpen:
          bracket_ = Is(Kind::kOpen);
          list_ = list_ || bracket_;
          after_call = false;
          Next();
          continue;
        case Kind::kClose:  // "f()"
          if (!after_call) return {};
          Next();
          return Operators();
        case Kind::kOperator:
          if (Text() != "-" && Text() != "+" && !(Text() == "*" && after_call)) return {};
          if (Text() == "*") return After(Operand::kName);
          Next();
          continue;
        case Kind::kWord:
          if (Is(Word::kSelect)) return bracket_ ? Subquery() : Finding();
          if (Skip(Word::kCase)) {
            case_ = true;
            if (Is(Word::kWhen)) Next();
            continue;
          }
          if (Is(Word::kConstant)) {
            constant_word_ = true;
            return After(Operand::kConstant);
          }
          if (!IsOperandWord()) return {};
          {
            const bool function = Is(Word::kFunction);
            const bool system = Text().starts_with("@@");
            Next();
            if (system) calls_ = true;
            if (!Is(Kind::kOpen)) return Behind(Operand::kName);
            calls_ = calls_ || function;
            list_ = after_call = bracket_ = true;
            Next();
            continue;
          }
        case Kind::kCut:
          return Undecided();
        default:
          return {};
      }
    }
    return Undecided();
  }

  bool IsOperandWord() const {
    switch (tokens_.Current().word) {
      case Word::kName:
      case Word::kFunction:
      case Word::kSet:
      case Word::kValues:
        return true;
      default:
        return false;
    }
  }

  Finding After(Operand operand) {
    string_ = Is(Kind::kString);
    Next();
    return Behind(operand);
  }

  Finding Behind(Operand operand) {
    if (comparing_) {
      const bool constants = left_ != Operand::kName && operand != Operand::kName;
      const bool names = left_ == Operand::kName && operand == Operand::kName;
      compared_constants_ = compared_constants_ || constants;
      // In "id > 0" the name stands first; prose writes "4 = four".
      compared_mixed_ = compared_mixed_ || (!constants && !names && left_ == Operand::kName);
      compared_names_ = compared_names_ || (!constants && !names);
      compared_names_ = compared_names_ || names;
    }
    operand_ = operand;
    last_constant_ = operand == Operand::kConstant;
    return Operators();
  }

  /// "' or 'a'='a" leaves the last string to the statement's own quote.
  Finding OpenString() {
    constexpr std::size_t kShort = 3;
    const bool is_short = tokens_.Current().end - tokens_.Current().begin <= kShort;
    if (comparing_) {
      (left_ == Operand::kName ? compared_mixed_ : compared_constants_) = true;
    } else if (connective_) {
      short_end_ = is_short;
    }
    if (before_ != Before::kQuote && !calls_) return {};
    tokens_.Advance();
    return Complete(true);
  }

  /// An expression that ends with the value.
  Finding Complete(bool in_string) const {
    const bool commented = Is(Kind::kComment);
    const bool balanced = commented || in_string;
    const bool compared = compared_constants_ || compared_mixed_ || compared_names_;
    switch (before_) {
      case Before::kQuote: {
        constexpr std::size_t kShortValue = 24;
        if (comma_ && !calls_) return {};  // the next item of a list
        if (balanced && (calls_ || (compared && (connective_ || text_.size() <= kShortValue))))
          return Found(Result::kCondition);
        if (commented && connective_ && (last_constant_ || constant_word_)) return Found(Result::kCondition);
        if (in_string && connective_ && !clause_ && short_end_) return Found(Result::kCondition);
        if (in_string && arithmetic_ > 0 && begin_ <= 1 && text_.size() <= 8) return Found(Result::kCondition);
        if (connective_ && (compared_constants_ || calls_)) return Found(Result::kCondition);
        return {};
      }
      case Before::kNumber:
        if (connective_ && (compared_constants_ || compared_mixed_ || calls_ || constant_word_))
          return Found(Result::kCondition);
        if (calls_ && (arithmetic_ > 0 || comparing_)) return Found(Result::kCondition);
        if (connective_ && last_constant_ && HasShortComment()) return Found(Result::kCondition);
        return {};
      case Before::kName:
        if (connective_ && (compared_constants_ || calls_)) return Found(Result::kCondition);
        return {};
      case Before::kNothing:
        if (calls_ && (compared_constants_ || case_)) return Found(Result::kCondition);
        return {};
    }
    return {};
  }

  /// A chain too long to be followed to its end: what it holds decides.
  Finding Undecided() const {
    return connective_ && (compared_constants_ || calls_) ? Found(Result::kCondition) : Finding();
  }

  /// At "select" where an operand is due.
  Finding Subquery() {
    const bool certain = before_ != Before::kName && (connective_ || arithmetic_ > 0 || comparing_);
    return SelectList(certain) ? Found(Result::kSubquery) : Finding();
  }

  /// At "select": whether what follows is a list of a query, not the rest of a sentence. `certain`: one name is enough.
  bool SelectList(bool certain) {
    Next();
    while (Is(Kind::kNot) || Is(Word::kAll)) Next();
    while (Is(Kind::kOpen)) Next();
    switch (tokens_.Current().kind) {
      case Kind::kNumber:
      case Kind::kString:
      case Kind::kOpenString:
      case Kind::kOperator:
        return true;
      case Kind::kCompare: {  // "like('a','b')"
        const bool word = IsLetter(Text().front());
        Next();
        return word && Is(Kind::kOpen);
      }
      case Kind::kWord:
        break;
      default:
        return false;
    }
    if (Is(Word::kConstant) || Is(Word::kCase) || Is(Word::kSelect) || Text().starts_with("@@")) return true;
    Next();
    if (Is(Kind::kOpen) || Is(Word::kFrom) || Is(Word::kWhere) || Is(Kind::kNumber)) return true;  // "top 1" as well
    if (Is(Kind::kComma)) {
      Next();
      return Is(Kind::kNumber) || Is(Kind::kString) || Is(Kind::kWord);
    }
    if (!certain) return false;
    const bool at_end = before_ == Before::kQuote ? Is(Kind::kComment) : IsEnd();
    return at_end || Is(Kind::kClose) || Is(Kind::kConnective);
  }

  Finding Union() {
    Next();
    while (Is(Word::kAll) || Is(Kind::kNot)) Next();  // all, distinct
    while (Is(Kind::kOpen)) Next();
    if (Is(Word::kValues) || Is(Word::kTable)) {
      Next();
      return Is(Kind::kOpen) || Is(Kind::kWord) ? Found(Result::kUnion) : Finding();
    }
    if (!Is(Word::kSelect)) return {};
    return SelectList(before_ == Before::kQuote || before_ == Before::kNumber) ? Found(Result::kUnion) : Finding();
  }

  /// "order by 5", "group by a,b having": with the end of a probe behind it.
  Finding Ordered(bool order) {
    Next();
    if (!Skip(Word::kBy)) return {};
    const bool number = Is(Kind::kNumber);
    if (before_ == Before::kName && !number) return {};
    if (!number && !Is(Kind::kWord)) return Is(Kind::kOpen) || Is(Kind::kNot) ? Operands() : Finding();
    Next();
    if (Is(Kind::kOpen) && !number) return Found(Result::kClause);
    while (Is(Kind::kComma) && read_ < most_) {
      Next();
      const bool function = Is(Word::kFunction);
      Next();
      if (function && Is(Kind::kOpen)) return Found(Result::kClause);
    }
    if (Is(Word::kHaving) || Is(Word::kUnion)) return Operators();
    if (Is(Kind::kComment)) return Found(Result::kClause);
    return number && order && Is(Kind::kEnd) && before_ != Before::kName ? Found(Result::kClause) : Finding();
  }

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

  Finding Statement() {
    const Word word = tokens_.Current().kind == Kind::kWord ? tokens_.Current().word : Word::kName;
    if (word == Word::kSelect) return SelectList(false) ? Found(Result::kStacked) : Finding();
    const std::string_view first = Text();
    Next();
    const bool name = Is(Kind::kWord);
    const std::string_view second = name ? Text() : std::string_view();
    switch (word) {
      case Word::kInsert:
        return Is(Word::kInto) ? Found(Result::kStacked) : Finding();
      case Word::kDelete:
        return Is(Word::kFrom) ? Found(Result::kStacked) : Finding();
      case Word::kCreate:
        if (Is(Kind::kConnective)) return Found(Result::kStacked);  // "or replace"
        [[fallthrough]];
      case Word::kDrop:
      case Word::kAlter:
      case Word::kTruncate:
        return name && IsSchemaWord(second) ? Found(Result::kStacked) : Finding();
      case Word::kUpdate:
        Next();
        return name && Is(Word::kSet) ? Found(Result::kStacked) : Finding();
      case Word::kWaitfor:
        return EqualNoCase(second, "delay") || EqualNoCase(second, "time") ? Found(Result::kStacked) : Finding();
      case Word::kDeclare:
        return second.starts_with('@') ? Found(Result::kStacked) : Finding();
      case Word::kShutdown:
        return IsEnd() || Is(Kind::kSemicolon) || EqualNoCase(second, "with") ? Found(Result::kStacked) : Finding();
      case Word::kExecute:
        return Is(Kind::kOpen) || Is(Kind::kString) || second.find('_') != std::string_view::npos ||
                       second.starts_with('@')
                   ? Found(Result::kStacked)
                   : Finding();
      case Word::kCall:
        Next();
        return name && Is(Kind::kOpen) ? Found(Result::kStacked) : Finding();
      case Word::kFunction:  // "; if(1=1) waitfor ..."
        if (Is(Kind::kOpen) && (EqualNoCase(first, "if") || EqualNoCase(first, "iif"))) return Found(Result::kStacked);
        return Is(Kind::kOpen) && !first.empty() ? Operands() : Finding();
      case Word::kSet:
        return second.starts_with('@') ? Found(Result::kStacked) : Finding();
      default:  // "begin dbms_lock.sleep(5)"
        return EqualNoCase(first, "begin") && second.find('.') != std::string_view::npos ? Found(Result::kStacked)
                                                                                         : Finding();
    }
  }

  static bool IsSchemaWord(std::string_view word) {
    for (const std::string_view thing : {"table", "database", "view", "index", "user", "function", "procedure",
                                         "schema", "trigger", "login", "alias", "or", "temporary", "role", "server"}) {
      if (EqualNoCase(word, thing)) return true;
    }
    return false;
  }

  CValue& value_;
  const std::string_view text_;
  const std::size_t begin_;
  const Before before_;
  CSqlTokens tokens_;
  const int most_;
  int read_ = 0;

  Operand operand_ = Operand::kConstant;  // what stands before the attempt is one
  Operand left_ = Operand::kNone;         // of the comparison
  bool comparing_ = false;
  bool connective_ = false;
  bool list_ = false;  // a bracket is open: commas divide
  bool case_ = false;
  bool comma_ = false;          // outside brackets
  bool bracket_ = false;        // the operand stands behind an opening bracket
  bool string_ = false;         // the operand was a string
  bool clause_ = false;         // where, having
  bool calls_ = false;          // a function that injections call, a system variable
  bool constant_word_ = false;  // true, false, null
  bool last_constant_ = false;
  bool short_end_ = false;
  bool compared_constants_ = false;
  bool compared_mixed_ = false;  // a name with a constant
  bool compared_names_ = false;
  bool expects_operator_ = false;
  int arithmetic_ = 0;
};

/// Attempts from the start of the value.
Finding AtStart(CValue* value) {
  if (Finding found = CAttempt(value, 0, Before::kNothing).Run()) return found;
  CSqlTokens tokens(value->text, 0, &value->comments);
  const auto is = [&](Kind kind) { return tokens.Current().kind == kind; };
  const auto at = [&](Before before) { return CAttempt(value, tokens.Current().begin, before).Run(); };
  // The value is appended to what stands in the statement.
  const auto is_clause = [&] {
    if (!is(Kind::kWord)) return false;
    const Word word = tokens.Current().word;
    return word == Word::kUnion || word == Word::kOrder || word == Word::kGroup || word == Word::kHaving ||
           word == Word::kWhere;
  };
  if (is(Kind::kConnective) || is(Kind::kSemicolon) || is(Kind::kClose) || is(Kind::kOperator) || is(Kind::kComma) ||
      is_clause()) {
    if (Finding found = at(Before::kName)) return found;
  }
  while (is(Kind::kOpen) || is(Kind::kClose) || is(Kind::kNot) ||
         (is(Kind::kOperator) && value->text[tokens.Current().begin] != '*'))
    tokens.Advance();
  const bool constant = is(Kind::kWord) && tokens.Current().word == Word::kConstant;
  if (is(Kind::kNumber) || is(Kind::kString) || constant) {
    tokens.Advance();
    return at(Before::kNumber);
  }
  if (!is(Kind::kWord) || tokens.Current().word != Word::kName) return {};
  tokens.Advance();
  return at(Before::kName);
}

}  // namespace

Finding FindSqlExpression(std::string_view text) {
  CValue value(text);
  if (Finding found = AtStart(&value)) return found;
  // The next of each kind of quote.
  constexpr std::array<char, 3> kQuotes = {'\'', '"', '`'};
  std::array<std::size_t, 3> next{};
  for (std::size_t i = 0; i < kQuotes.size(); ++i) next[i] = text.find(kQuotes[i]);
  for (;;) {
    auto* const first = std::min_element(next.begin(), next.end());
    if (*first == std::string_view::npos) return {};
    const std::size_t behind = *first + 1;
    if (Finding found = CAttempt(&value, behind, Before::kQuote).Run()) return found;
    *first = text.find(kQuotes[static_cast<std::size_t>(first - next.begin())], behind);
  }
}

}  // namespace qiv
