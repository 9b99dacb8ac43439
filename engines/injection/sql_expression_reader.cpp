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
      expects_operator_ = true;
      break;
    default:
      *goes_on = false;
      return {};
  }
  if (*goes_on && !(word == Word::kIs && !expects_operator_)) Next();
  return {};
}

CSqlExpressionReader::Finding CSqlExpressionReader::Operands() {
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
  if (comparing_) {
    const bool constants = left_ != Operand::kName && operand != Operand::kName;
    const bool names = left_ == Operand::kName && operand == Operand::kName;
    compared_constants_ = compared_constants_ || constants;
    // In "id > 0" the name stands first; prose writes "4 = four".
    compared_mixed_ = compared_mixed_ || (!constants && !names && left_ == Operand::kName);
    compared_names_ = compared_names_ || !constants;
  }
  operand_ = operand;
  last_constant_ = operand == Operand::kConstant;
  called_with_constant_ = called_with_constant_ || (calls_ && last_constant_);
  return Operators();
}

CSqlExpressionReader::Finding CSqlExpressionReader::OpenString() {
  constexpr std::size_t kShort = 3;
  const std::string_view content = Text().substr(1);
  const bool is_short = EqualNoCase(content, "true") ||
                        (content.size() < kShort && std::all_of(content.begin(), content.end(), IsWordByte));
  if (comparing_) {
    (left_ == Operand::kName ? compared_mixed_ : compared_constants_) = true;
  } else if (connective_) {
    short_end_ = is_short;
  }
  if (before_ != Before::kQuote && !calls_ && !(connective_ && compared_constants_)) return {};
  tokens_.Advance();
  return Complete(true);
}

CSqlExpressionReader::Finding CSqlExpressionReader::Complete(bool in_string) const {
  const bool commented = Is(Kind::kComment);
  const bool balanced = commented || in_string;
  const bool compared = compared_constants_ || compared_mixed_ || compared_names_;
  // "',(case when 1=1 then ...)", "1,if(1=1,...)"
  const bool chooses = comma_ && compared_constants_ && (case_ || calls_);
  switch (before_) {
    case Before::kQuote: {
      constexpr std::size_t kShortValue = 24;
      if (chooses) return Found(Result::kCondition);
      if (comma_ && !calls_) return {};  // the next item of a list
      if (connective_ && HasShortComment()) return Found(Result::kCondition);
      if (balanced && (calls_ || (compared && (connective_ || text_.size() <= kShortValue))))
        return Found(Result::kCondition);
      if (commented && connective_ && (last_constant_ || constant_word_)) return Found(Result::kCondition);
      if (in_string && connective_ && !clause_ && short_end_) return Found(Result::kCondition);
      // "'-'", "'*'": the whole value. Not "div" and "mod", which are words in quotes as well.
      if (in_string && arithmetic_ > 0 && begin_ <= 1 && text_.size() <= 8 && !IsLetter(text_[begin_]))
        return Found(Result::kCondition);
      if (connective_ && (compared_constants_ || calls_)) return Found(Result::kCondition);
      return {};
    }
    case Before::kNumber:
      if (connective_ && (calls_ || (!sum_ && (compared_constants_ || compared_mixed_ || constant_word_))))
        return Found(Result::kCondition);
      if (calls_ && (arithmetic_ > 0 || comparing_)) return Found(Result::kCondition);
      if (connective_ && last_constant_ && HasShortComment()) return Found(Result::kCondition);
      return {};
    case Before::kName:
      if (chooses) return Found(Result::kCondition);
      if (connective_ && (compared_constants_ || called_with_constant_)) return Found(Result::kCondition);
      return {};
    case Before::kNothing:
      if (calls_ && (compared_constants_ || case_)) return Found(Result::kCondition);
      return {};
  }
  return {};
}

}  // namespace qiv
