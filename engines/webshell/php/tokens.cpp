#include "engines/webshell/php/tokens.h"

#include <algorithm>
#include <array>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::array<bool, 256> kNameBytes = [] {
  std::array<bool, 256> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = i >= 0x80 || IsWordByte(static_cast<char>(i));
  return bytes;
}();

constexpr bool IsNameByte(char c) { return kNameBytes[static_cast<unsigned char>(c)]; }

// Bytes of the operator that begins with these.
std::size_t OperatorLength(char a, char b, char c) {
  switch (a) {
    case '=':
      return b == '=' ? (c == '=' ? 3 : 2) : b == '>' ? 2 : 1;
    case '!':
      return b == '=' ? (c == '=' ? 3 : 2) : 1;
    case '<':
      if (b == '=') return c == '>' ? 3 : 2;
      return b == '<' ? (c == '=' ? 3 : 2) : b == '>' ? 2 : 1;
    case '>':
      return b == '>' ? (c == '=' ? 3 : 2) : b == '=' ? 2 : 1;
    case '*':
      return b == '*' ? (c == '=' ? 3 : 2) : b == '=' ? 2 : 1;
    case '.':
      return b == '.' && c == '.' ? 3 : b == '=' ? 2 : 1;
    case '?':
      if (b == '-') return c == '>' ? 3 : 1;
      return b == '?' ? (c == '=' ? 3 : 2) : 1;
    case '-':
      return b == '>' || b == '=' || b == '-' ? 2 : 1;
    case ':':
      return b == ':' ? 2 : 1;
    case '&':
    case '|':
    case '+':
      return b == a || b == '=' ? 2 : 1;
    case '/':
    case '%':
    case '^':
      return b == '=' ? 2 : 1;
    default:
      return 1;
  }
}

constexpr std::size_t kScriptTag = 64;  // bytes: a longer opening tag is none for PHP

bool StartsWithNoCase(std::string_view text, std::string_view lower) {
  return text.size() >= lower.size() && std::equal(lower.begin(), lower.end(), text.begin(), [](char a, char b) {
           return a == (b >= 'A' && b <= 'Z' ? static_cast<char>(b | 0x20) : b);
         });
}

int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  c = static_cast<char>(c | 0x20);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// A hexadecimal or octal escape at text[at], behind the backslash; bytes consumed, 0 for none.
std::size_t NumericEscape(std::string_view text, std::size_t at, char* byte) {
  std::size_t p = at;
  int value = 0;
  if (text[p] == 'x' && p + 1 < text.size() && HexValue(text[p + 1]) >= 0) {
    for (++p; p < text.size() && p < at + 3 && HexValue(text[p]) >= 0; ++p) value = value * 16 + HexValue(text[p]);
  } else {
    for (; p < text.size() && p < at + 3 && text[p] >= '0' && text[p] <= '7'; ++p) value = value * 8 + (text[p] - '0');
  }
  *byte = static_cast<char>(value);
  return p - at;
}

}  // namespace

bool CPhpLexer::Next(PhpToken* token) {
  token_ = token;
  for (made_ = false; !made_ && at_ < source_.size();) {
    if (in_code_) {
      Code();
    } else {
      Markup();
    }
  }
  return made_;
}

void CPhpLexer::Add(PhpTokenKind kind, std::size_t begin, std::size_t end, std::uint32_t code) {
  *token_ = {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(end - begin) & 0xFFFFFFU, kind, code};
  made_ = true;
}

void CPhpLexer::Markup() {
  const std::size_t begin = at_;
  std::size_t open = source_.size();
  std::size_t code = open;
  for (std::size_t p = source_.find('<', at_); p != std::string_view::npos; p = source_.find('<', p + 1)) {
    const std::string_view rest = source_.substr(p);
    std::size_t length = 0;
    if (StartsWithNoCase(rest, "<?php")) {
      length = 5;
    } else if (rest.starts_with("<?=")) {
      length = 3;
    } else if (rest.starts_with("<?") && !StartsWithNoCase(rest, "<?xml")) {
      length = 2;
    } else if (StartsWithNoCase(rest, "<script")) {
      const std::size_t close = rest.substr(0, kScriptTag).find('>');
      if (close == std::string_view::npos) continue;
      std::string tag(rest.substr(0, close));
      std::transform(tag.begin(), tag.end(), tag.begin(),
                     [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
      if (tag.find("php") == std::string::npos || tag.find("language") == std::string::npos) continue;
      length = close + 1;
      script_ = true;
    } else {
      continue;
    }
    open = p;
    code = p + length;
    break;
  }
  Add(PhpTokenKind::kMarkup, begin, open);
  at_ = code;
  in_code_ = true;
}
bool CPhpLexer::AtClosingTag() const {
  return (source_[at_] == '?' && Ahead(1) == '>') ||
         (script_ && source_[at_] == '<' && StartsWithNoCase(Rest(), "</script"));
}

void CPhpLexer::Close() {
  const bool tag = Rest().starts_with("?>");
  Add(PhpTokenKind::kOperator, at_, at_, PhpOperator(";"));
  at_ += tag ? 2 : 8;
  in_code_ = false;
  script_ = false;
}

void CPhpLexer::LineComment() {
  while (at_ < source_.size() && source_[at_] != '\n' && source_[at_] != '\r' && !AtClosingTag()) ++at_;
}

void CPhpLexer::Code() {
  const char c = source_[at_];
  switch (c) {
    case '(':
    case ')':
    case '[':
    case ']':
    case '{':
    case '}':
    case ';':
    case ',':
      Add(PhpTokenKind::kOperator, at_, at_ + 1, static_cast<unsigned char>(c));
      ++at_;
      return;
    case '\0':
      ++at_;
      return;
    case '$':
      if (at_ + 1 >= source_.size() || !IsNameByte(source_[at_ + 1])) return Operator();
      Add(PhpTokenKind::kVariable, at_ + 1, NameEnd(at_ + 1));
      at_ = token_->End();
      return;
    case '\'':
    case '"':
    case '`':
      return Quoted(c);
    case '?':
      return AtClosingTag() ? Close() : Operator();
    case '<':
      if (AtClosingTag()) return Close();
      return Ahead(1) == '<' && Ahead(2) == '<' ? HereDocument() : Operator();
    case '#':
      return Ahead(1) != '[' ? LineComment() : Operator();
    case '/':
      if (Ahead(1) == '/') return LineComment();
      if (Ahead(1) == '*') {
        const std::size_t end = source_.find("*/", at_ + 2);
        at_ = end == std::string_view::npos ? source_.size() : end + 2;
        return;
      }
      return Operator();
    case '\\':
      return at_ + 1 < source_.size() && IsNameByte(source_[at_ + 1]) ? Name() : Operator();
    default:
      break;
  }
  if (IsSpace(c)) {
    ++at_;
  } else if (IsNameByte(c)) {
    Name();
  } else {
    Operator();
  }
}

std::size_t CPhpLexer::NameEnd(std::size_t at) const {
  while (at < source_.size() && IsNameByte(source_[at])) ++at;
  return at;
}

// A name with its namespace, or a number; of the namespace only the last part is kept.
void CPhpLexer::Name() {
  std::size_t begin = at_;
  if (source_[begin] == '\\') ++begin;
  std::size_t end = NameEnd(begin);
  while (end + 1 < source_.size() && source_[end] == '\\' && IsNameByte(source_[end + 1])) {
    begin = end + 1;
    end = NameEnd(begin);
  }
  if (IsDigit(source_[begin]) && end + 1 < source_.size() && source_[end] == '.' && IsDigit(source_[end + 1])) {
    end = NameEnd(end + 1);
  }
  Add(PhpTokenKind::kName, begin, end);
  at_ = end;
}

void CPhpLexer::Quoted(char quote) {
  std::size_t p = at_ + 1;
  bool variables = false;
  while (p < source_.size() && source_[p] != quote) {
    if (source_[p] == '\\') {
      ++p;
    } else if (source_[p] == '$' && quote != '\'' && p + 1 < source_.size() &&
               (IsNameByte(source_[p + 1]) || source_[p + 1] == '{')) {
      variables |= !IsDigit(source_[p + 1]);
    }
    ++p;
  }
  const std::size_t end = std::min(p, source_.size());
  const PhpTokenKind kind = quote == '`' ? PhpTokenKind::kCommand
                            : variables  ? PhpTokenKind::kTemplate
                                         : PhpTokenKind::kString;
  Add(kind, at_ + 1, end, static_cast<unsigned char>(quote));
  at_ = std::min(end + 1, source_.size());
}

void CPhpLexer::HereDocument() {
  std::size_t p = at_ + 3;
  while (p < source_.size() && (source_[p] == ' ' || source_[p] == '\t')) ++p;
  const char quote = p < source_.size() && (source_[p] == '\'' || source_[p] == '"') ? source_[p++] : '\0';
  const std::size_t name_end = NameEnd(p);
  const std::string_view name = source_.substr(p, name_end - p);
  if (name.empty() || last_line_) return Operator();
  std::size_t line = source_.find('\n', name_end);
  last_line_ = line == std::string_view::npos;  // none is looked for again
  if (last_line_) return Operator();
  const std::size_t begin = line + 1;
  std::size_t end = source_.size();
  std::size_t after = end;
  // The closing name stands first on its line, perhaps behind blanks.
  while (line != std::string_view::npos) {
    std::size_t q = line + 1;
    while (q < source_.size() && (source_[q] == ' ' || source_[q] == '\t')) ++q;
    if (source_.substr(q).starts_with(name) && NameEnd(q) == q + name.size()) {
      end = std::max(begin, line);
      after = q + name.size();
      break;
    }
    line = source_.find('\n', line + 1);
  }
  const bool variables = quote != '\'' && source_.substr(begin, end - begin).find('$') != std::string_view::npos;
  Add(variables ? PhpTokenKind::kTemplate : PhpTokenKind::kString, begin, end, quote == '\'' ? 'n' : '<');
  at_ = after;
}

void CPhpLexer::Operator() {
  const std::size_t length = OperatorLength(source_[at_], Ahead(1), Ahead(2));
  Add(PhpTokenKind::kOperator, at_, at_ + length, PhpOperator(source_.substr(at_, length)));
  at_ += length;
}

std::string PhpUnquote(std::string_view inner, char quote, bool* escapes) {
  std::string text;
  if (quote == 'n') return std::string(inner);
  text.reserve(inner.size());
  for (std::size_t i = 0; i < inner.size(); ++i) {
    if (inner[i] != '\\' || i + 1 == inner.size()) {
      text += inner[i];
      continue;
    }
    const char next = inner[i + 1];
    char byte = next;
    std::size_t used = 1;
    if (quote == '\'') {
      if (next != '\'' && next != '\\') used = 0;
    } else if (next == 'x' || (next >= '0' && next <= '7')) {
      used = NumericEscape(inner, i + 1, &byte);
      if (used != 0 && escapes != nullptr && (IsLetter(byte) || byte == '_')) *escapes = true;
    } else if (next == 'u' && i + 2 < inner.size() && inner[i + 2] == '{') {
      std::size_t p = i + 3;
      int value = 0;
      for (; p < inner.size() && p < i + 11 && HexValue(inner[p]) >= 0; ++p)
        value = (value * 16 + HexValue(inner[p])) & 0xFFFFFF;
      byte = value < 0x80 ? static_cast<char>(value) : '?';
      used = p < inner.size() && inner[p] == '}' ? p - i : 0;
      if (used != 0 && escapes != nullptr && IsLetter(byte)) *escapes = true;
    } else if (const std::size_t at = std::string_view("nrtv$\"\\`").find(next); at != std::string_view::npos) {
      byte = "\n\r\t\v$\"\\`"[at];
    } else {
      used = 0;
    }
    text += used == 0 ? '\\' : byte;
    i += used;
  }
  return text;
}

}  // namespace qiv
