#include "engines/webshell/page/script.h"

#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kTag = 512;  // bytes: a longer opening tag is none

constexpr bool IsNameByte(char c) { return IsWordByte(c) || static_cast<unsigned char>(c) >= 0x80; }

int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The value of an attribute of a tag or directive, without quotes; empty if it has none.
std::string_view Attribute(std::string_view tag, std::string_view name) {
  for (std::size_t p = tag.find(name); p != std::string_view::npos; p = tag.find(name, p + 1)) {
    if (p == 0 || IsNameByte(tag[p - 1])) continue;
    std::size_t at = p + name.size();
    while (at < tag.size() && IsSpace(tag[at])) ++at;
    if (at >= tag.size() || tag[at] != '=') continue;
    ++at;
    while (at < tag.size() && (IsSpace(tag[at]) || tag[at] == '"' || tag[at] == '\'')) ++at;
    std::size_t end = at;
    while (end < tag.size() && !IsSpace(tag[end]) && tag[end] != '"' && tag[end] != '\'' && tag[end] != '>' &&
           tag[end] != '%') {
      ++end;
    }
    return tag.substr(at, end - at);
  }
  return {};
}

// Whether half of the lines end as those of a language with braces do.
bool LooksBraced(std::string_view code) {
  std::size_t lines = 0;
  std::size_t braced = 0;
  for (std::size_t at = 0; at < code.size();) {
    const std::size_t end = std::min(code.find('\n', at), code.size());
    const std::string_view line = Trim(code.substr(at, end - at));
    at = end + 1;
    if (line.empty()) continue;
    ++lines;
    braced += line.back() == ';' || line.back() == '{' || line.back() == '}' ? 1 : 0;
  }
  return braced * 2 >= lines && braced > 0;
}

class CCutter {
 public:
  explicit CCutter(std::string_view page) : page_(page) {}

  PageCode Run() {
    for (std::size_t p = page_.find('<'); p != std::string_view::npos;) p = page_.find('<', Cut(p));
    if (!any_) {
      Take(page_, {});
    } else if (handler_ != 0) {
      Take(page_.substr(handler_), {});
    }
    return std::move(code_);
  }

  // Where the code at `wanted` was cut out of; no longer than its piece.
  TextPlace Find(const PageCodePlace& wanted) {
    wanted_ = &wanted;
    Run();
    const std::string_view found = Trim(found_.In(page_));
    return found.empty() ? TextPlace{} : TextPlace{static_cast<std::size_t>(found.data() - page_.data()), found.size()};
  }

 private:
  // Takes the piece of code at `p`, if there is one; where to go on.
  std::size_t Cut(std::size_t p) {
    const std::string_view rest = page_.substr(p);
    if (rest.starts_with("<%")) {
      const std::size_t end = std::min(page_.find("%>", p + 2), page_.size());
      std::string_view piece = page_.substr(p + 2, end - p - 2);
      any_ = true;
      if (const std::size_t first = piece.find_first_not_of(" \t\r\n"); first != piece.npos && piece[first] == '@') {
        Directive(piece.substr(first), end);
      } else {
        Take(piece, language_);
      }
      return end;
    }
    if (!rest.starts_with("<script") && !rest.starts_with("<object")) return p + 1;
    const std::size_t close = rest.substr(0, kTag).find('>');
    if (close == std::string_view::npos || !Holds(rest.substr(0, close), "runat")) return p + 1;
    const std::string_view tag = rest.substr(0, close + 1);
    if (rest.starts_with("<object")) {
      std::string_view made = Attribute(tag, "classid");
      if (made.empty()) made = Attribute(tag, "progid");
      code_.basic.append("set ").append(Attribute(tag, "id")).append("=createobject(\"");
      code_.basic.append(made).append("\")\n");
      return p + close;
    }
    any_ = true;
    const std::size_t end = std::min(page_.find("</script", p + close), page_.size());
    const std::string_view language = Attribute(tag, "language");
    Take(page_.substr(p + close + 1, end - p - close - 1), language.empty() ? language_ : language);
    return end;
  }

  void Directive(std::string_view piece, std::size_t end) {
    if (language_.empty()) language_ = Attribute(piece, "language");
    for (const char c : piece) {
      if (!IsSpace(c) && c != '"' && c != '\'') code_.attributes += c;
    }
    code_.attributes += '\n';
    if (Holds(piece, "webhandler") || Holds(piece, "webservice")) handler_ = end + 2 < page_.size() ? end + 2 : 0;
  }

  void Take(std::string_view piece, std::string_view language) {
    bool braces = false;
    if (language.starts_with("c#") || language.starts_with("cs") || Holds(language, "js") ||
        Holds(language, "javascript")) {
      braces = true;
    } else if (!language.starts_with("vb")) {
      braces = LooksBraced(piece);
    }
    std::string& code = braces ? code_.braces : code_.basic;
    if (piece.starts_with("#")) {
      // What is bound: a field by its name, not code.
      const std::string_view bound = Trim(piece.substr(1));
      if (bound.starts_with("eval(") || bound.starts_with("bind(") || bound.starts_with("databinder.")) return;
    }
    if (piece.starts_with("=") || piece.starts_with("#") || piece.starts_with(":")) {
      // What is shown: an expression of its own.
      piece.remove_prefix(1);
      code.append(braces ? ";" : "\n");
      Note(braces, code.size(), piece);
      code.append(piece).append(braces ? ";\n" : "\n");
    } else {
      Note(braces, code.size(), piece);
      code.append(piece).append("\n");
    }
  }

  // The piece comes to stand at `at` of the code: the first that holds more than blanks of what is wanted is it.
  void Note(bool braces, std::size_t at, std::string_view piece) {
    if (wanted_ == nullptr || braces != (wanted_->syntax == ScriptSyntax::kBraces)) return;
    const std::size_t end = wanted_->place.offset + wanted_->place.length;
    if (at >= end || at + piece.size() <= wanted_->place.offset || found_.length != 0) return;
    const std::size_t begin = std::max(at, wanted_->place.offset);
    const std::string_view part = piece.substr(begin - at, end - begin);
    if (!Trim(part).empty()) found_ = {static_cast<std::size_t>(part.data() - page_.data()), part.size()};
  }

  std::string_view page_;
  const PageCodePlace* wanted_ = nullptr;
  TextPlace found_;
  bool any_ = false;
  std::size_t handler_ = 0;  // where a handler's class begins
  std::string_view language_;
  PageCode code_;
};

}  // namespace

PageCode ServerCode(std::string_view page) { return CCutter(page).Run(); }

TextPlace PlaceInPage(std::string_view page, const PageCodePlace& place) { return CCutter(page).Find(place); }

bool CStatements::Next(std::vector<Token>* tokens, char* closed_by) {
  last_ = goes_on_ && !tokens->empty() ? tokens->back() : Token{};
  tokens->clear();
  strings_.clear();
  if (at_ >= code_.size() && !goes_on_) return false;
  if (!goes_on_) lists_ = 0;
  while (at_ < code_.size()) {
    if (tokens->size() >= kMostTokens) {
      *closed_by = '\0';
      goes_on_ = true;
      return true;
    }
    const char c = code_[at_];
    // "new object[] { a, b }": a list of values, not a block.
    if (!basic_ && c == '{' && (lists_ > 0 || LastMark(*tokens) == ']')) {
      ++lists_;
      ++at_;
      tokens->push_back({Token::kMark, '(', {}});
      continue;
    }
    if (c == '}' && lists_ > 0) {
      --lists_;
      ++at_;
      tokens->push_back({Token::kMark, ')', {}});
      continue;
    }
    if (basic_ ? c == '\n' || c == '\r' || c == ':' : c == ';' || c == '{' || c == '}') {
      ++at_;
      *closed_by = c;
      goes_on_ = false;
      return true;
    }
    Piece(c, tokens);
  }
  *closed_by = '\n';
  goes_on_ = false;
  return true;
}

char CStatements::LastMark(const std::vector<Token>& tokens) const {
  return tokens.empty() ? last_.mark : tokens.back().mark;
}

// A blank, a comment or a token.
void CStatements::Piece(char c, std::vector<Token>* tokens) {
  if (IsSpace(c)) {
    ++at_;
  } else if (c == '"' || (c == '\'' && !basic_)) {
    String(tokens, false);
  } else if (Comment()) {
    return;
  } else if (IsDigit(c) ||
             (basic_ && c == '&' && At(at_ + 1, 'h') && at_ + 2 < code_.size() && HexValue(code_[at_ + 2]) >= 0)) {
    Number(tokens);
  } else if (IsNameByte(c) || c == '\\') {
    Word(tokens);
  } else if (c == '@' && !basic_) {
    ++at_;
    if (At(at_, '"')) {  // a verbatim string: its backslashes stand for themselves
      String(tokens, true);
    }
  } else if (!basic_ && c == '/' && Regex(*tokens)) {
    tokens->push_back({Token::kString, '\0', {}});
  } else {
    Mark(tokens);
  }
}

void CStatements::Word(std::vector<Token>* tokens) {
  const std::size_t begin = at_;
  while (at_ < code_.size() && IsNameByte(code_[at_])) {
    at_ += CCharSet::CharacterLength(code_, at_);
  }
  if (!basic_ && At(at_, '\\') && at_ + 1 < code_.size() && code_[at_ + 1] == 'u') {
    std::string name(code_.substr(begin, at_ - begin));
    while (at_ < code_.size() && (IsNameByte(code_[at_]) || code_[at_] == '\\')) {
      if (code_[at_] != '\\') {
        name += code_[at_++];
        continue;
      }
      const std::size_t next = Escape(at_, &name);
      if (next == at_) break;
      at_ = next;
    }
    tokens->push_back({Token::kName, '\0', names_->Keep(std::move(name))});
    if (At(at_, '\\')) ++at_;
    return;
  }
  if (at_ == begin) {  // a backslash that begins nothing
    ++at_;
    return;
  }
  const std::string_view word = code_.substr(begin, at_ - begin);
  if (basic_ && word == "_") {
    // A joined line.
    std::size_t p = at_;
    while (p < code_.size() && (code_[p] == ' ' || code_[p] == '\t' || code_[p] == '\r')) ++p;
    if (At(p, '\n')) {
      at_ = p + 1;
      return;
    }
  }
  if (basic_ && word == "rem" && tokens->empty() && !goes_on_) {
    at_ = std::min(code_.find('\n', at_), code_.size());
    return;
  }
  tokens->push_back({Token::kName, '\0', word});
}

// The end of the escape sequence at `at`; `at` itself if none is known there.
std::size_t CStatements::Escape(std::size_t at, std::string* text) const {
  if (at + 1 >= code_.size()) return at;
  const char kind = code_[at + 1];
  const std::size_t most = kind == 'u' ? 4 : 2;
  std::uint32_t value = 0;
  std::size_t p = at + 2;
  // "\U00000065" is lower-cased by now; four digits of zeros are its first half.
  std::size_t digits = 0;
  while (p < code_.size() && digits < most && HexValue(code_[p]) >= 0) {
    value = value * 16 + static_cast<std::uint32_t>(HexValue(code_[p++]));
    ++digits;
  }
  if ((kind != 'u' && kind != 'x') || digits < most) return at;
  if (kind == 'u' && value == 0) {
    digits = 0;
    while (p < code_.size() && digits < 4 && HexValue(code_[p]) >= 0) {
      value = value * 16 + static_cast<std::uint32_t>(HexValue(code_[p++]));
      ++digits;
    }
  }
  const char c = value < 0x80 ? static_cast<char>(value) : '?';
  *text += c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
  return p;
}

void CStatements::String(std::vector<Token>* tokens, bool verbatim) {
  const bool doubled = basic_ || verbatim;
  const char quote = code_[at_];
  std::size_t begin = ++at_;
  std::string text;
  bool changed = false;
  for (; at_ < code_.size() && (verbatim || code_[at_] != '\n'); ++at_) {
    if (code_[at_] == quote) {
      if (!doubled || !At(at_ + 1, quote)) break;
      text.append(code_, begin, at_ + 1 - begin);
      changed = true;
      begin = ++at_ + 1;
    } else if (code_[at_] == '\\' && !doubled) {
      text.append(code_, begin, at_ - begin);
      changed = true;
      std::size_t next = Escape(at_, &text);
      if (next == at_) {
        next = std::min(at_ + 2, code_.size());
        const char c = at_ + 1 < code_.size() ? code_[at_ + 1] : ' ';
        text += c == 'n' || c == 'r' ? '\n' : c == 't' ? '\t' : c;
      }
      begin = next;
      at_ = next - 1;
    } else if (static_cast<unsigned char>(code_[at_]) >= 0x80) {
      at_ += CCharSet::CharacterLength(code_, at_) - 1;
    }
  }
  at_ = std::min(at_, code_.size());
  begin = std::min(begin, at_);
  if (changed) {
    text.append(code_, begin, at_ - begin);
    strings_.push_back(std::move(text));
    tokens->push_back({Token::kString, '\0', strings_.back()});
  } else {
    tokens->push_back({Token::kString, '\0', code_.substr(begin, at_ - begin)});
  }
  if (at_ < code_.size() && code_[at_] == quote) ++at_;
}

void CStatements::Number(std::vector<Token>* tokens) {
  const std::size_t begin = at_;
  at_ += code_[at_] == '&' ? 2 : 1;
  while (at_ < code_.size() &&
         (IsWordByte(code_[at_]) || (code_[at_] == '.' && at_ + 1 < code_.size() && IsDigit(code_[at_ + 1])))) {
    ++at_;
  }
  tokens->push_back({Token::kNumber, '\0', code_.substr(begin, at_ - begin)});
}

// Steps over a regular expression, whose quotes are none of the code's.
bool CStatements::Regex(const std::vector<Token>& tokens) {
  if (!tokens.empty() || goes_on_) {
    const Token& before = tokens.empty() ? last_ : tokens.back();
    if (before.kind != Token::kMark || before.mark == ')' || before.mark == ']') return false;
  }
  constexpr std::size_t kLongest = 512;
  const std::size_t most = std::min(code_.size(), at_ + kLongest);
  for (std::size_t p = at_ + 1; p < most && code_[p] != '\n'; ++p) {
    if (code_[p] == '\\') {
      ++p;
    } else if (code_[p] == '/') {
      at_ = p + 1;
      while (at_ < code_.size() && IsLetter(code_[at_])) ++at_;
      return true;
    }
  }
  return false;
}

bool CStatements::Comment() {
  const char c = code_[at_];
  if (basic_) {
    if (c != '\'') return false;
    at_ = std::min(code_.find('\n', at_), code_.size());
    return true;
  }
  if (c != '/' || at_ + 1 >= code_.size()) return false;
  if (code_[at_ + 1] == '*') {
    const std::size_t close = code_.find("*/", at_ + 2);
    at_ = close == std::string_view::npos ? code_.size() : close + 2;
    return true;
  }
  if (code_[at_ + 1] != '/') return false;
  at_ = std::min(code_.find('\n', at_), code_.size());
  return true;
}

void CStatements::Mark(std::vector<Token>* tokens) {
  const char c = code_[at_++];
  const char next = at_ < code_.size() ? code_[at_] : '\0';
  char mark = c;
  if (next == '=' && (c == '=' || c == '!' || c == '<' || c == '>' || c == '+' || c == '&')) {
    mark = c == '=' ? 'e' : c == '!' ? 'n' : c == '<' ? 'l' : c == '>' ? 'g' : 'a';
    ++at_;
    if (At(at_, '=') && (mark == 'e' || mark == 'n')) ++at_;
  } else if ((c == '<' && next == '>') || (c == '=' && next == '>')) {
    mark = c == '<' ? 'n' : 'f';
    ++at_;
  }
  tokens->push_back({Token::kMark, mark, code_.substr(at_ - 1, 1)});
}

}  // namespace qiv
