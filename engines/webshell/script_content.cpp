// A mark by chance: random bytes hold "<?" or "<%" once in 32 KiB. Code outside strings and comments has no control
// bytes (compilers refuse them), and of random bytes behind a mark nearly nine in ten hold one before the first quote.
//
// Tested by tests/engines/webshell/script_content_test.cpp.
#include "engines/webshell/script_content.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

constexpr std::size_t kLookAhead = 512;     // what may be needed to tell what stands at a position
constexpr std::size_t kScriptTag = 256;     // of a script element's tag, what is looked at
constexpr std::size_t kBehindMark = 64;     // of what follows a mark
constexpr std::size_t kLongestLabel = 128;  // of a heredoc
// A part is given away when it reaches this; what is added at once then still fits.
constexpr std::size_t kFullPart = CQivLibs::kLongestText - 2 * kLookAhead;

struct Ending {
  std::string_view name;
  ScriptLanguage language;
};

constexpr Ending kEndings[] = {
    {"php", ScriptLanguage::kPhp},     {"php3", ScriptLanguage::kPhp},    {"php4", ScriptLanguage::kPhp},
    {"php5", ScriptLanguage::kPhp},    {"php7", ScriptLanguage::kPhp},    {"php8", ScriptLanguage::kPhp},
    {"phtml", ScriptLanguage::kPhp},   {"pht", ScriptLanguage::kPhp},     {"phps", ScriptLanguage::kPhp},
    {"phar", ScriptLanguage::kPhp},    {"asp", ScriptLanguage::kAsp},     {"asa", ScriptLanguage::kAsp},
    {"cer", ScriptLanguage::kAsp},     {"cdx", ScriptLanguage::kAsp},     {"aspx", ScriptLanguage::kAspx},
    {"ashx", ScriptLanguage::kAspx},   {"asmx", ScriptLanguage::kAspx},   {"ascx", ScriptLanguage::kAspx},
    {"asax", ScriptLanguage::kAspx},   {"master", ScriptLanguage::kAspx}, {"cshtml", ScriptLanguage::kAspx},
    {"vbhtml", ScriptLanguage::kAspx},
};

bool StartsWith(std::string_view text, std::string_view lower) {
  return text.size() >= lower.size() && CCharSet::LowerAscii(text.substr(0, lower.size())) == lower;
}

enum class Mark : std::uint8_t { kNone, kPhp, kPhpShort, kAsp, kPhpElement, kAspElement };

struct Opening {
  Mark mark = Mark::kNone;
  std::size_t length = 0;
};

bool IsControl(char c) { return (static_cast<unsigned char>(c) < 0x20 && !IsSpace(c)) || c == 0x7F; }

// Whether `rest` begins with a quote or a comment: behind it anything may stand.
bool OpensAnything(std::string_view rest) {
  const char c = rest[0];
  return c == '"' || c == '\'' || c == '`' || c == '#' || rest.starts_with("//") || rest.starts_with("/*") ||
         rest.starts_with("<<<") || ((c == 'r' || c == 'R') && StartsWith(rest, "rem"));
}

bool CodeMayFollow(std::string_view rest) {
  rest = rest.substr(0, kBehindMark);
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (OpensAnything(rest.substr(i)) || rest.substr(i).starts_with("?>") || rest.substr(i).starts_with("%>"))
      return true;
    if (IsControl(rest[i])) return false;
  }
  return true;
}

Opening ScriptElement(std::string_view rest) {
  const std::size_t close = rest.substr(0, kScriptTag).find('>');
  if (close == std::string_view::npos) return {};
  const std::string tag = CCharSet::LowerAscii(rest.substr(0, close));
  if (tag.find("php") != std::string::npos) return {Mark::kPhpElement, close + 1};
  if (tag.find("runat") != std::string::npos) return {Mark::kAspElement, close + 1};
  return {};
}

// `rest` begins with "<".
Opening OpeningAt(std::string_view rest, bool every_mark) {
  if (rest.size() < 2) return {};
  switch (rest[1]) {
    case '?':
      if (StartsWith(rest, "<?php")) return {Mark::kPhp, 5};
      if (rest.starts_with("<?=")) return {Mark::kPhp, 3};
      // Two names in a row, "xml version", are no PHP.
      if (StartsWith(rest, "<?xml") || rest.starts_with("<?xpacket")) return {};
      return every_mark || CodeMayFollow(rest.substr(2)) ? Opening{Mark::kPhpShort, 2} : Opening{};
    case '%':
      return every_mark || CodeMayFollow(rest.substr(2)) ? Opening{Mark::kAsp, 2} : Opening{};
    case 's':
    case 'S':
      return StartsWith(rest, "<script") ? ScriptElement(rest) : Opening{};
    default:
      return {};
  }
}

bool Opens(Mark mark, CodeFamily family) {
  switch (mark) {
    case Mark::kNone:
      return false;
    case Mark::kPhp:
    case Mark::kPhpElement:
      return family != CodeFamily::kAsp;
    case Mark::kPhpShort:
      return family == CodeFamily::kPhpShort;
    default:
      return family == CodeFamily::kAsp;
  }
}

bool HoldsWideMark(std::string_view text) {
  const bool big_endian = text[0] == '\xFE';
  for (std::size_t i = 2; i + 3 < text.size(); i += 2) {
    const char first = text[i + (big_endian ? 1 : 0)];
    const char second = text[i + (big_endian ? 3 : 2)];
    if (first == '<' && (second == '?' || second == '%')) return true;
  }
  return false;
}

}  // namespace

ScriptLanguage ScriptLanguageOfName(std::string_view name) {
  const std::string lower = CCharSet::LowerAscii(name.substr(0, name.find(';')));
  std::string_view rest = lower;
  for (std::size_t dot = rest.rfind('.'); dot != std::string_view::npos; dot = rest.rfind('.')) {
    const std::string_view ending = rest.substr(dot + 1);
    for (const Ending& known : kEndings) {
      if (known.name == ending) return known.language;
    }
    rest = rest.substr(0, dot);
  }
  return ScriptLanguage::kNone;
}

bool HoldsServerCode(std::string_view text) {
  if ((text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) && HoldsWideMark(text)) return true;
  for (std::size_t p = text.find('<'); p != std::string_view::npos; p = text.find('<', p + 1)) {
    if (OpeningAt(text.substr(p), false).mark != Mark::kNone) return true;
  }
  return false;
}

CServerCode::CServerCode(CodeFamily family, bool every_mark, OnPart on_part)
    : family_(family), is_php_(family != CodeFamily::kAsp), every_mark_(every_mark), on_part_(std::move(on_part)) {}

bool CServerCode::Add(std::string_view piece) {
  if (!wanted_) return false;
  text_.erase(0, at_);
  at_ = 0;
  text_ += piece;
  Run(false);
  return wanted_;
}

bool CServerCode::End() {
  if (!wanted_) return false;
  Run(true);
  if (!is_php_ && !every_mark_ && state_ == State::kCode) part_.resize(open_block_);
  if (!part_.empty()) Emit(part_.size());
  return wanted_;
}

void CServerCode::Run(bool last) {
  const std::size_t end = last ? text_.size() : text_.size() - std::min(text_.size(), kLookAhead);
  while (wanted_ && at_ < end) {
    switch (state_) {
      case State::kMarkup:
        Markup(last);
        break;
      case State::kCode:
        Code();
        break;
      case State::kString:
        Literal();
        break;
      case State::kHeredoc:
        Heredoc();
        break;
      case State::kLineComment:
      case State::kBlockComment:
        SkipComment();
        break;
    }
  }
}

void CServerCode::Markup(bool last) {
  const std::size_t end = last ? text_.size() : text_.size() - kLookAhead;
  std::size_t open = text_.find('<', at_);
  Opening opening;
  for (; open < end; open = text_.find('<', open + 1)) {
    opening = OpeningAt(std::string_view(text_).substr(open), every_mark_);
    if (Opens(opening.mark, family_)) break;
  }
  if (open >= end) {
    at_ = end;
    return;
  }
  if (part_.size() >= kFullPart) Emit(part_.size());
  at_ = open + opening.length;
  in_element_ = opening.mark == Mark::kPhpElement || opening.mark == Mark::kAspElement;
  saw_short_ = saw_short_ || opening.mark == Mark::kPhpShort;
  anything_ = false;
  state_ = State::kCode;
  open_block_ = part_.size();
  part_ += !is_php_ ? "<% " : text_[at_ - 1] == '=' ? "<?= " : "<?php ";
}

void CServerCode::Close() {
  part_ += is_php_ ? "?>\n" : "%>\n";
  statement_end_ = part_.size();
  state_ = State::kMarkup;
}

bool CServerCode::IsRefused(char c) {
  if (every_mark_) return false;
  if (c == '\n') anything_ = false;
  if (!is_php_ && !anything_) anything_ = OpensAnything(Rest());
  return !anything_ && IsControl(c);
}

void CServerCode::Code() {
  const char c = text_[at_];
  const std::string_view rest = Rest();
  if (IsRefused(c)) {
    part_.resize(open_block_);
    state_ = State::kMarkup;
    return;
  }
  if (!in_element_ && rest.starts_with(is_php_ ? "?>" : "%>")) {
    at_ += 2;
    Close();
  } else if (in_element_ && c == '<' && StartsWith(rest, "</script")) {
    at_ += 8;
    Close();
  } else if (IsSpace(c)) {
    ++at_;
    PutBlank(c);
  } else if (is_php_) {
    PhpCode(c);
  } else {
    ++at_;
    Put(c);
  }
}

void CServerCode::PhpCode(char c) {
  const std::string_view rest = Rest();
  if (rest.starts_with("/*")) {
    at_ += 2;
    state_ = State::kBlockComment;
  } else if (rest.starts_with("//") || (c == '#' && !rest.starts_with("#["))) {
    ++at_;
    state_ = State::kLineComment;
  } else if (c == '<' && OpenHeredoc()) {
    literal_ = 0;
    line_start_ = false;
    state_ = State::kHeredoc;
  } else {
    ++at_;
    Put(c);
    if (c == '"' || c == '\'' || c == '`') {
      quote_ = c;
      literal_ = 0;
      state_ = State::kString;
    } else if (c == ';' || c == '{' || c == '}') {
      statement_end_ = part_.size();
    }
  }
}

void CServerCode::Literal() {
  const char c = text_[at_++];
  if (c == quote_) {
    Put(c);
    state_ = State::kCode;
    return;
  }
  PutLiteral(c);
  if (c == '\\' && at_ < text_.size()) PutLiteral(text_[at_++]);
}

bool CServerCode::OpenHeredoc() {
  const std::string_view rest = Rest();
  if (!rest.starts_with("<<<")) return false;
  std::size_t p = 3;
  while (p < kLongestLabel && p < rest.size() && (rest[p] == ' ' || rest[p] == '\t')) ++p;
  if (p < rest.size() && (rest[p] == '"' || rest[p] == '\'')) ++p;
  const std::size_t begin = p;
  while (p < begin + kLongestLabel && p < rest.size() && (IsWordByte(rest[p]) || (rest[p] & 0x80) != 0)) ++p;
  if (p == begin) return false;
  label_ = rest.substr(begin, p - begin);
  part_ += rest.substr(0, p);
  at_ += p;
  return true;
}

void CServerCode::Heredoc() {
  const std::string_view rest = Rest();
  if (line_start_ && rest.starts_with(label_) &&
      (rest.size() == label_.size() || (!IsWordByte(rest[label_.size()]) && (rest[label_.size()] & 0x80) == 0))) {
    if (part_.back() != '\n') Put('\n');
    part_ += label_;
    at_ += label_.size();
    state_ = State::kCode;
    return;
  }
  const char c = text_[at_++];
  if (c == '\n' || c == '\r') {
    line_start_ = true;
  } else if (c != ' ' && c != '\t') {
    line_start_ = false;
  }
  PutLiteral(c);
}

void CServerCode::SkipComment() {
  const std::string_view rest = Rest();
  if (state_ == State::kBlockComment) {
    const bool ends = rest.starts_with("*/");
    at_ += ends ? 2 : 1;
    if (ends) state_ = State::kCode;
    if (ends) PutBlank(' ');
    return;
  }
  if (rest[0] == '\n' || rest[0] == '\r' || rest.starts_with("?>")) {
    state_ = State::kCode;
  } else {
    ++at_;
  }
}

void CServerCode::Put(char c) {
  part_ += c;
  if (part_.size() < kFullPart) return;
  Emit(statement_end_ > part_.size() / 2 ? statement_end_ : part_.size());
}

// A run of blanks becomes one, a line's end if it holds one.
void CServerCode::PutBlank(char c) {
  const bool is_end = c == '\n' || c == '\r';
  if (part_.empty() || !IsSpace(part_.back())) {
    Put(is_end ? '\n' : ' ');
  } else if (is_end) {
    part_.back() = '\n';
  }
  if (is_end && !is_php_) statement_end_ = part_.size();
}

void CServerCode::PutLiteral(char c) {
  if (literal_++ < kLongestLiteral) Put(c);
}

void CServerCode::Emit(std::size_t size) {
  if (family_ != CodeFamily::kPhpShort || saw_short_) wanted_ = on_part_(std::string_view(part_).substr(0, size));
  const std::string rest = part_.substr(size);
  part_.clear();
  if (state_ != State::kMarkup) part_ = (is_php_ ? "<?php " : "<% ") + rest;
  statement_end_ = 0;
  open_block_ = 0;
}

void ForEachServerCode(std::string_view text, const CServerCode::OnPart& on_part) {
  bool wanted = true;
  const auto pass_on = [&](std::string_view part) { return wanted = on_part(part); };
  for (const CodeFamily family : {CodeFamily::kPhp, CodeFamily::kPhpShort, CodeFamily::kAsp}) {
    CServerCode code(family, false, pass_on);
    if (wanted && code.Add(text)) code.End();
  }
}

}  // namespace qiv
