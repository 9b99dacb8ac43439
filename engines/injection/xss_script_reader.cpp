#include "engines/injection/xss_script_reader.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

constexpr bool IsNameByte(char c) { return IsWordByte(c) || c == '$' || static_cast<unsigned char>(c) >= 0x80; }
constexpr bool IsQuote(char c) { return c == '\'' || c == '"' || c == '`'; }
constexpr bool IsNameStart(char c) { return IsNameByte(c) && !IsDigit(c); }

// Words before an operand or a statement; behind the first ones a bracket belongs to the word.
constexpr std::size_t kWithBracket = 7;
constexpr std::array<std::string_view, 27> kKeywords = {
    "if",      "for",   "while", "with",    "switch", "catch", "function", "async",  "await",
    "case",    "class", "const", "default", "delete", "do",    "else",     "export", "extends",
    "finally", "let",   "new",   "return",  "static", "throw", "try",      "typeof", "var"};
constexpr std::array<std::string_view, 2> kMoreKeywords = {"void", "yield"};
constexpr std::array<std::string_view, 3> kWordOperators = {"in", "instanceof", "of"};
constexpr std::array<std::string_view, 10> kKnownCalls = {
    "alert", "atob", "confirm", "constructor", "eval", "fetch", "import", "setinterval", "prompt", "settimeout"};

template <typename List>
bool Holds(const List& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

}  // namespace

CScriptReader::CScriptReader(std::string_view text, std::size_t pos, char quote)
    : text_(text), begin_(pos), pos_(pos), quote_(quote) {}

bool CScriptReader::Runs(ScriptStart start) {
  start_ = start;
  blank_is_plus_ = start == ScriptStart::kBehindString && text_.find('+') == kNone;  // of holes there may be many
  operand_ = start != ScriptStart::kBehindString;
  previous_ = operand_ ? Previous::kSemicolon : Previous::kLiteral;
  while (!complete_) {
    const Gap gap = SkipGap();
    if (gap == Gap::kComment) return start_ == ScriptStart::kWhole ? known_call_ : does_something_;
    if (gap == Gap::kEnd)
      return start_ == ScriptStart::kWhole ? known_call_ && depth_ == 0 && previous_ != Previous::kOperator
                                           : does_something_ && start_ == ScriptStart::kStatement;
    if (does_something_ && (start_ == ScriptStart::kStatement || text_.substr(pos_, 8) == "</script")) return true;
    if (!(operand_ ? ReadOperand() : ReadOperator()))
      return start_ != ScriptStart::kWhole && known_call_ && EndsSomewhere();
  }
  return does_something_;
}

// White space and comments.
CScriptReader::Gap CScriptReader::SkipGap() {
  const std::size_t begin = pos_;
  newline_ = false;
  for (;;) {
    while (pos_ < text_.size() && (IsSpace(text_[pos_]))) {
      newline_ = newline_ || text_[pos_] == '\n' || text_[pos_] == '\r';
      ++pos_;
    }
    if (newline_ && one_line_) return Gap::kEnd;
    one_blank_ = pos_ == begin + 1 && text_[begin] == ' ';
    if (pos_ >= text_.size()) return Gap::kEnd;
    const std::string_view rest = text_.substr(pos_, 4);
    if (rest.starts_with("/*")) {
      const std::size_t end = text_.find("*/", pos_ + 2);
      if (end == kNone) return EndInComment();
      pos_ = end + 2;
    } else if (rest.starts_with("//") || rest == "<!--") {
      const std::size_t end = text_.find_first_of("\r\n", pos_);
      if (end == kNone) return EndInComment();
      pos_ = end;
    } else {
      return Gap::kText;
    }
  }
}

CScriptReader::Gap CScriptReader::EndInComment() {
  pos_ = text_.size();  // or each "${" of a text of comments would read the rest of it again
  return Gap::kComment;
}

bool CScriptReader::Expect(Previous previous, bool operand) {
  previous_ = previous;
  operand_ = operand;
  return true;
}

bool CScriptReader::ReadOperand() {
  const char c = text_[pos_];
  if (IsNameStart(c) || (c == '\\' && At(pos_ + 1) == 'u')) return ReadWordOperand();
  if (IsDigit(c) || (c == '.' && IsDigit(At(pos_ + 1)))) return ReadNumber();
  switch (c) {
    case '\'':
    case '"':
    case '`':
      return ReadString(c);
    case '/':
      return ReadRegex();
    case '(':
      return Open(keyword_bracket_);
    case '[':
    case '{':
      return Open(false);
    case ')':
    case ']':
    case '}':
      return previous_ != Previous::kOperator && Close();
    case '+':
    case '-':
    case '!':
    case '~':
      ++pos_;
      return Expect(Previous::kOperator, true);
    case '.':
      if (text_.substr(pos_, 3) != "...") return false;
      pos_ += 3;
      return Expect(Previous::kOperator, true);
    case ';':
      ++pos_;
      return previous_ != Previous::kOperator && Expect(Previous::kSemicolon, true);
    case ',':
      ++pos_;
      return previous_ == Previous::kOpen;
    case '#':  // a private name
      return ++pos_ < text_.size() && IsNameStart(text_[pos_]) && previous_ == Previous::kOpen;
    default:
      return false;
  }
}

std::string_view CScriptReader::Word() {
  const std::size_t begin = pos_;
  while (pos_ < text_.size()) {
    if (IsNameByte(text_[pos_])) {
      ++pos_;
    } else if (text_[pos_] == '\\' && At(pos_ + 1) == 'u') {
      pos_ += 2;
      if (At(pos_) == '{') pos_ = std::min(text_.find('}', pos_), text_.size() - 1) + 1;
    } else {
      break;
    }
  }
  return text_.substr(begin, pos_ - begin);
}

bool CScriptReader::ReadWordOperand() {
  assignable_ = newline_ || (previous_ != Previous::kOperator && previous_ != Previous::kLiteral);
  word_ = Word();
  const auto keyword = std::find(kKeywords.begin(), kKeywords.end(), word_);
  if (keyword != kKeywords.end() || Holds(kMoreKeywords, word_)) {
    keyword_bracket_ = keyword < kKeywords.begin() + kWithBracket;
    class_ahead_ = class_ahead_ || word_ == "class";
    return Expect(Previous::kKeyword, true);
  }
  keyword_bracket_ = keyword_bracket_ && previous_ == Previous::kKeyword;  // function name(...)
  return !(word_ == "in" || word_ == "instanceof") && Expect(Previous::kName, false);
}

bool CScriptReader::ReadNumber() {
  bool dot = false;
  while (pos_ < text_.size() && (IsWordByte(text_[pos_]) || (text_[pos_] == '.' && !dot))) {
    dot = dot || text_[pos_] == '.';
    ++pos_;
  }
  return Expect(Previous::kLiteral, false);
}

bool CScriptReader::ReadString(char quote) {
  const std::size_t begin = pos_++;
  while (pos_ < text_.size() && text_[pos_] != quote) pos_ += text_[pos_] == '\\' ? 2 : 1;
  if (pos_ >= text_.size()) {
    pos_ = text_.size();
    return complete_ = quote == quote_;  // the page's own quote ends it
  }
  ++pos_;
  if (quote == '`') {
    const std::string_view string = text_.substr(begin, pos_ - begin);
    const std::size_t hole = string.find("${");
    does_something_ = does_something_ || (hole != kNone && string.find_first_of("(=", hole) != kNone);
  }
  return Expect(Previous::kLiteral, false);
}

bool CScriptReader::ReadRegex() {
  bool in_class = false;
  for (++pos_; pos_ < text_.size() && text_[pos_] != '\n' && (in_class || text_[pos_] != '/'); ++pos_) {
    if (text_[pos_] == '\\')
      ++pos_;
    else if (text_[pos_] == '[' || text_[pos_] == ']')
      in_class = text_[pos_] == '[';
  }
  if (At(pos_) != '/') return false;
  ++pos_;
  Word();  // its flags
  return Expect(Previous::kLiteral, false);
}

bool CScriptReader::Open(bool keyword) {
  // Function("code"): a parameter is no string.
  if (keyword && word_ == "function" && std::string_view("'\"`").find(At(pos_ + 1)) != kNone)
    known_call_ = does_something_ = true;
  keyword_brackets_ = keyword_brackets_ << 1U | (keyword && text_[pos_] == '(' ? 1U : 0U);
  keyword_bracket_ = false;
  class_ahead_ = false;
  ++depth_;
  ++pos_;
  return Expect(Previous::kOpen, true);
}

bool CScriptReader::Close() {
  const char c = text_[pos_++];
  if (depth_ == 0) {
    if (start_ == ScriptStart::kHole && c == '}') complete_ = true;
    return Expect(c == '}' ? Previous::kBlock : Previous::kClose, false);
  }
  const bool keyword = (keyword_brackets_ & 1U) != 0;
  keyword_brackets_ >>= 1U;
  --depth_;
  if (c == ')' && keyword) return Expect(Previous::kSemicolon, true);  // a statement follows
  return Expect(c == '}' ? Previous::kBlock : Previous::kClose, false);
}

bool CScriptReader::Call() {
  const bool called = previous_ == Previous::kName || previous_ == Previous::kClose || previous_ == Previous::kBlock;
  if (called && !keyword_bracket_) {
    does_something_ = true;
    known_call_ = known_call_ || (previous_ == Previous::kName && Holds(kKnownCalls, word_));
  }
  return called;
}

bool CScriptReader::ReadOperator() {
  const char c = text_[pos_];
  if (pos_ == begin_ + 1 && (IsNameByte(c) || IsQuote(c) || c == '(' || c == '[' || c == '{'))
    one_line_ = IsBlankPlus();
  const bool statement = newline_ || previous_ == Previous::kBlock;  // no semicolon is needed
  switch (c) {
    case '(':
      Call();
      return Open(keyword_bracket_);
    case '[':
      return Open(false);
    case '`':
      // The page's own "`" ends a template, but calls nothing: `word` stands so in every second page of documentation.
      if (Call()) return ReadString(c) && !complete_ && Expect(Previous::kClose, false);
      return (statement || IsBlankPlus()) && ReadString(c);
    case '{':
      return (previous_ == Previous::kClose || previous_ == Previous::kBlock || class_ahead_) && Open(false);
    case '.':
      return ReadDot();
    case ')':
    case ']':
    case '}':
      return Close();
    case ',':
    case ';':
      ++pos_;
      return Expect(Previous::kSemicolon, true);
    case ':':
      if (previous_ == Previous::kLiteral && depth_ == 0 && !does_something_) return false;
      ++pos_;
      return Expect(Previous::kSemicolon, true);
    default:
      break;
  }
  if (std::string_view("?=+-*/%&|^<>!").find(c) != kNone) return ReadSign(c);
  if (IsNameStart(c)) {
    const std::size_t begin = pos_;
    if (Holds(kWordOperators, Word())) return Expect(Previous::kOperator, true);
    pos_ = begin;
  }
  return (statement || IsBlankPlus()) && ReadOperand();
}

// Whether the blank before this was a "+": behind the string that the value ended, before the one that ends it, or
// between two others.
bool CScriptReader::IsBlankPlus() {
  if (!blank_is_plus_ || !one_blank_ || quote_ == '`') return false;
  if (pos_ == begin_ + 1) return true;
  const bool string = IsQuote(text_[pos_]);
  return string && ((one_line_ && text_[pos_] == quote_) || IsQuote(text_[pos_ - 2]));
}

// Operators of one to four of these.
bool CScriptReader::ReadSign(char c) {
  const bool settable = previous_ == Previous::kName || previous_ == Previous::kClose || previous_ == Previous::kBlock;
  const char next = At(pos_ + 1);
  if (c == '?' && next == '.' && !IsDigit(At(pos_ + 2))) {
    ++pos_;
    return ReadDot();
  }
  if ((c == '+' || c == '-') && next == c && settable) {
    pos_ += 2;
    return true;
  }
  ++pos_;
  if (c == '=') {
    if (next == '>') {
      ++pos_;
      return settable && Expect(Previous::kClose, true);  // of arrow functions: a block or an expression
    }
    if (next == '=') {
      pos_ += At(pos_ + 1) == '=' ? 2 : 1;
      return Expect(Previous::kOperator, true);
    }
    does_something_ = does_something_ || (settable && assignable_);
    return settable && Expect(Previous::kOperator, true);
  }
  if (c == '!') return next == '=' && (pos_ += At(pos_ + 1) == '=' ? 2 : 1) != 0 && Expect(Previous::kOperator, true);
  if (std::string_view("?*&|<>").find(c) != kNone) {
    for (int more = 0; more < 2 && At(pos_) == c; ++more) ++pos_;
  }
  if (At(pos_) == '=') {
    ++pos_;
    const bool compares = (c == '<' || c == '>') && next == '=';
    if (!compares && !settable) return false;
    does_something_ = does_something_ || (!compares && assignable_);
  }
  return Expect(Previous::kOperator, true);
}

// ".name", "?.name", "?.(", "?.[": what comes then is read as behind a name.
bool CScriptReader::ReadDot() {
  const bool optional = pos_ > 0 && text_[pos_ - 1] == '?';
  ++pos_;
  if (SkipGap() != Gap::kText) return false;
  if (optional && (text_[pos_] == '(' || text_[pos_] == '[' || text_[pos_] == '`')) return true;
  if (text_[pos_] == '#') ++pos_;
  word_ = Word();
  return !word_.empty() && Expect(Previous::kName, false);
}

// Whether the page's script may go on somewhere behind.
bool CScriptReader::EndsSomewhere() const {
  if (start_ != ScriptStart::kBehindString) return true;
  const std::string_view rest = text_.substr(std::min(pos_, text_.size()));
  return rest.find("//") != kNone || rest.find("/*") != kNone || rest.find("<!--") != kNone ||
         rest.find(quote_) != kNone;
}

}  // namespace qiv
