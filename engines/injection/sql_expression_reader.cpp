#include "engines/injection/sql_expression_reader.h"

#include <algorithm>

namespace qiv {

CSqlExpressionReader::Finding CSqlExpressionReader::Operators() {
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
        joined_text_ = LowerByte(Text().front()) == 'a' || Text().front() == '&' ? std::string_view() : operand_text_;
        break;
      case Kind::kCompare:
        Compare();
        break;
      case Kind::kOperator:
        if (Path()) continue;
        ++arithmetic_;
        break;
      case Kind::kComma:
        comma_ = comma_ || !list_;
        arguments_ = arguments_ || call_;
        break;
      case Kind::kSemicolon:
        return Stacked();
      case Kind::kNot:
        if (Text().find('~') != std::string_view::npos) {  // matching
          Compare();
          break;
        }
        // "not in", "not like", "not between", "not similar to"
        Next();
        if (!Is(Kind::kCompare) && !Is(Word::kIn) && !Is(Word::kBetween) && !Is(Word::kName)) return {};
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
      case Kind::kOther:
        if (before_ != Before::kName || !connective_ || Text() != "?") return {};
        Compare();
        break;
      default:
        return {};
    }
    Next();
    return Operands();
  }
  return Undecided();
}

CSqlExpressionReader::Finding CSqlExpressionReader::OperatorWord(bool* goes_on) {
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
      if (Is(Word::kFrom)) {  // "is distinct from"
        Compare();
        Next();
      }
      if (!Is(Word::kConstant) && !EqualNoCase(Text(), "unknown")) {
        if (IsBehindName()) Compare();  // with anything, in SQLite
        break;
      }
      null_ = LowerByte(Text().front()) == 'n';
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
      list_ = bracket_ = true;
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
      case_ended_ = expects_operator_ = true;
      break;
    case Word::kFrom:
    case Word::kFunction:
    case Word::kName:
      *goes_on = NamedOperator();
      return {};
    default:
      *goes_on = false;
      return {};
  }
  if (*goes_on && !(word == Word::kIs && !expects_operator_)) Next();
  return {};
}

bool CSqlExpressionReader::NamedOperator() {
  struct Operator {
    std::string_view first;
    std::string_view second;
  };
  constexpr std::string_view kFirstLetters = "fimnpsu";
  if (kFirstLetters.find(LowerByte(Text().front())) == std::string_view::npos) return false;
  constexpr Operator kOperators[] = {{"similar", "to"}, {"sounds", "like"}, {"member", "of"}};
  if (EqualNoCase(Text(), "notnull") || EqualNoCase(Text(), "isnull")) {
    null_ = compared_names_ = expects_operator_ = true;
    Next();
    return true;
  }
  if (EqualNoCase(Text(), "for")) {  // "for update"
    Next();
    expects_operator_ = Skip(Word::kUpdate);
    return expects_operator_ || (call_ && list_);
  }
  if (call_ && list_) {
    for (const std::string_view divider : {"from", "placing", "using"}) {
      if (!EqualNoCase(Text(), divider)) continue;
      Next();
      return true;
    }
  }
  for (const Operator& known : kOperators) {
    if (!EqualNoCase(Text(), known.first)) continue;
    Next();
    if (!EqualNoCase(Text(), known.second)) return false;
    Compare();
    Next();
    return true;
  }
  return false;
}

bool CSqlExpressionReader::Path() {
  const bool cast = Text() == "::";
  if (!cast && !Text().starts_with("->")) return false;
  Next();
  if (cast ? !Is(Kind::kWord) : !Is(Kind::kString) && !Is(Kind::kNumber)) return true;
  cast_ = cast_ || cast;
  if (!cast) operand_ = Operand::kName;
  Next();
  return true;
}

CSqlExpressionReader::Finding CSqlExpressionReader::Operands() {
  bool after_call = false;
  nested_ = false;
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
        negated_ = negated_ || (!bracket_ && connective_ && !comparing_);
        after_call = false;
        nested_ = nested_ && bracket_;
        Next();
        continue;
      case Kind::kClose:  // "f()"
        if (!after_call) return {};
        Next();
        return Behind(Operand::kCall);
      case Kind::kOperator:
        if (Text() != "-" && Text() != "+" && !(Text() == "*" && after_call)) return {};
        if (Text() == "*") return After(Operand::kName);
        Next();
        continue;
      case Kind::kWord: {
        bool goes_on = false;
        const Finding found = OperandWord(&after_call, &goes_on);
        if (found || !goes_on) return found;
        continue;
      }
      case Kind::kCut:
        return Undecided();
      case Kind::kComment:  // "--1", a number to MySQL
        if (Text().size() < 3 || !Text().starts_with("--") || static_cast<unsigned char>(Text()[2]) <= ' ') return {};
        tokens_.Continue(tokens_.Current().begin + 2);
        ++read_;
        continue;
      case Kind::kEnd:
        return IsCutOff() ? Found(Result::kCondition) : Finding();
      default:
        return {};
    }
  }
  return Undecided();
}

namespace {

/// "x'41'", "n'a'", "_utf8'a'", "date'2020-01-01'"
bool IsStringPrefix(std::string_view word) {
  if (word.size() == 1) return std::string_view("bnxe").find(LowerByte(word[0])) != std::string_view::npos;
  return word[0] == '_' || EqualNoCase(word, "date") || EqualNoCase(word, "time") || EqualNoCase(word, "timestamp");
}

}  // namespace

CSqlExpressionReader::Finding CSqlExpressionReader::OperandWord(bool* after_call, bool* goes_on) {
  *goes_on = false;
  if (Is(Word::kSelect)) {
    if (bracket_) return Subquery();
    // "and select *": no database takes it, and no sentence goes on so.
    Next();
    return connective_ && (Text() == "*" || EndsInComment(text_)) ? Found(Result::kSubquery) : Finding();
  }
  if (Skip(Word::kCase)) {
    case_ = *goes_on = true;
    if (Is(Word::kWhen)) Next();
    return {};
  }
  if (Is(Word::kAll) && comparing_) {
    Next();
    *goes_on = true;
    return {};
  }
  if (Is(Word::kConstant)) {
    constant_word_ = true;
    return After(Operand::kConstant);
  }
  if (!IsOperandWord()) return {};
  const bool function = Is(Word::kFunction);
  operand_text_ = Text();
  if (operand_text_.starts_with("@@")) calls_ = true;
  const std::size_t end = tokens_.Current().end;
  Next();
  const bool adjacent = tokens_.Current().begin == end;
  if (adjacent && (Is(Kind::kString) || Is(Kind::kOpenString)) && IsStringPrefix(operand_text_)) {
    return Is(Kind::kString) ? After(Operand::kConstant) : OpenString();
  }
  if (adjacent && Is(Kind::kWord) && Text().front() == '[') Next();  // "array[1]"
  if (!Is(Kind::kOpen)) return Behind(Operand::kName);
  // "and ascii(substring(": no sentence goes on so, whatever follows.
  if (nested_ && adjacent && connective_ && IsBehindWord()) return Found(Result::kCondition);
  nested_ = function && adjacent;
  calls_ = calls_ || function;
  call_ = call_ || adjacent;
  list_ = bracket_ = true;
  *after_call = *goes_on = true;
  Next();
  return {};
}

bool CSqlExpressionReader::IsOperandWord() const {
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

CSqlExpressionReader::Finding CSqlExpressionReader::Behind(Operand operand) {
  const bool constant = operand == Operand::kConstant;
  if (comparing_) {
    const bool constants = left_ != Operand::kName && operand != Operand::kName;
    const bool names = left_ == Operand::kName && operand == Operand::kName;
    compared_constants_ = compared_constants_ || constants;
    // In "id > 0" the name stands first; prose writes "4 = four".
    compared_mixed_ = compared_mixed_ || (!constants && !names && left_ == Operand::kName);
    compared_names_ = compared_names_ || !constants;
    same_ = same_ || IsSame(left_text_, operand_text_);
  } else if (constant || operand_text_.starts_with('@')) {
    repeated_ = repeated_ || IsSame(joined_text_, operand_text_);
  }
  operand_ = operand;
  last_constant_ = constant;
  constant_ = constant_ || constant;
  called_with_constant_ = called_with_constant_ || (calls_ && constant);
  arguments_ = arguments_ || (call_ && constant);
  return Operators();
}

CSqlExpressionReader::Finding CSqlExpressionReader::OpenString() {
  constexpr std::size_t kShort = 3;
  const std::string_view content = Trim(Text().substr(1));
  const bool is_short = EqualNoCase(content, "true") ||
                        (content.size() < kShort && std::all_of(content.begin(), content.end(), IsWordByte));
  if (comparing_) {
    (left_ == Operand::kName ? compared_mixed_ : compared_constants_) = true;
  } else if (connective_) {
    short_end_ = is_short;
  }
  if (content.empty() && IsCutOff()) return Found(Result::kCondition);
  if (before_ != Before::kQuote && !calls_ && !(connective_ && compared_constants_)) return {};
  open_quote_ = Text().front();
  tokens_.Advance();
  return Complete(true);
}

bool CSqlExpressionReader::IsComplete(bool in_string) const {
  switch (before_) {
    case Before::kQuote:
      return IsCompleteBehindQuote(in_string);
    case Before::kNumber:
      return IsCompleteBehindNumber();
    case Before::kName:
      return IsCompleteBehindName();
    case Before::kNothing:
      return (calls_ && (compared_constants_ || case_)) || (case_ended_ && constant_) || (cast_ && arguments_);
  }
  return false;
}

bool CSqlExpressionReader::IsCompleteBehindQuote(bool in_string) const {
  constexpr std::size_t kShortValue = 24;
  const bool commented = Is(Kind::kComment);
  const bool balanced = commented || in_string;
  // "',(case when 1=1 then ...)", "1,if(1=1,...)"
  if (comma_ && compared_constants_ && (case_ || calls_)) return true;
  if (comma_ && IsCompared() && IsBehindName() && HasShortComment()) return true;  // "',admin=1-- "
  if (comma_ && !calls_) return false;                                             // the next item of a list
  if (connective_ && HasShortComment()) return true;
  if (balanced && (calls_ || (IsCompared() && (connective_ || text_.size() <= kShortValue)))) return true;
  if (balanced && connective_ && arguments_) return true;
  if (commented && connective_ && (last_constant_ || constant_word_)) return true;
  if (in_string && connective_ && !clause_ && short_end_) return true;
  // "x'or'y": prose writes blanks
  if (in_string && !joined_text_.empty() && IsBehindName() && text_.find(' ') == std::string_view::npos) return true;
  if (balanced && (arithmetic_ > 0 || IsCompared()) && IsSum(in_string)) return true;
  if (begin_ <= 1 && connective_ && compared_mixed_) return true;  // the value begins with the quote
  return connective_ && (compared_constants_ || calls_);
}

bool CSqlExpressionReader::IsSum(bool in_string) const {
  constexpr int kFew = 16;  // tokens
  if (read_ > kFew || !IsBehindName()) return false;
  if (in_string && open_quote_ != text_[begin_ - 1]) return false;
  if (IsCompared()) return true;
  if (!in_string) return HasShortComment();
  // Not "div" and "mod" alone, which are words in quotes as well.
  return arithmetic_ > 1 || !IsLetter(Trim(text_.substr(begin_)).front());
}

bool CSqlExpressionReader::IsCompleteBehindNumber() const {
  if (connective_) {
    if (calls_ || null_ || (same_ && !sum_) || (call_ && arguments_)) return true;
    if (!sum_ && (compared_constants_ || compared_mixed_ || constant_word_)) return true;
    if (repeated_ && HasShortComment()) return true;
    if (last_constant_ && (HasShortComment() || (arithmetic_ == 0 && !sum_ && (repeated_ || negated_)))) return true;
    if (last_constant_ && text_.find("/*") != std::string_view::npos) return true;  // blanks as nobody writes them
  }
  if (calls_ && (arithmetic_ > 0 || comparing_)) return true;
  if (IsCompared() && HasShortComment()) return true;
  if (arithmetic_ > 0 && ((same_ && list_) || HasShortComment("-*"))) return true;  // "1^(2=2)", "1*1-- "
  return compared_constants_ && !connective_ && !list_ && IsLetter(text_[begin_]);  // "42 like 42"
}

bool CSqlExpressionReader::IsCompleteBehindName() const {
  if (comma_ && compared_constants_ && (case_ || calls_ || same_)) return true;
  if (!connective_) return false;
  if (compared_constants_ || called_with_constant_ || same_) return true;
  if (calls_ && compared_mixed_) return true;
  if (clause_ && list_ && (repeated_ || constant_word_)) return true;  // "having (1 or 1)"
  return HasShortComment() && (calls_ || IsCompared() || last_constant_);
}

bool CSqlExpressionReader::IsCutOff() const {
  if (!connective_) return false;
  if (before_ == Before::kQuote) return begin_ <= 1 && (comparing_ || arithmetic_ > 0);
  const bool opened = bracket_ || Is(Kind::kOpenString);
  return before_ == Before::kName && comparing_ && (left_ == Operand::kConstant || opened) &&
         Trim(text_.substr(0, begin_)).empty();
}

}  // namespace qiv
