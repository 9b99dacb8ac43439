#include "engines/attacks/attack_readings.h"

#include <algorithm>

#include "base/hex.h"
#include "common/char_set.h"
#include "common/text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr int kMostRounds = 3;  // a text may be encoded several times

constexpr unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

/// The character of the escape at `at`: "%XX", "%uXXXX", "\xXX", "\uXXXX", "\u{XX}", "\NNN" in octal; -1: none.
int Escape(std::string_view text, std::size_t at, std::size_t* length) {
  const char kind = at + 1 < text.size() ? text[at + 1] : '\0';
  const auto take = [&](std::size_t skip, std::size_t digits) {
    *length = skip + digits;
    return HexNumber(text, at + skip, digits);
  };
  if (text[at] == '%') return kind == 'u' ? take(2, 4) : take(1, 2);
  if (kind == 'x') return take(2, 2);
  if (kind == 'u' && text.substr(at + 2).starts_with('{')) {
    const std::size_t close = text.substr(at, 10).find('}');
    if (close == kEnd || close < 4) return -1;
    const int value = HexNumber(text, at + 3, close - 3);
    *length = close + 1;
    return value;
  }
  if (kind == 'u') return take(2, 4);
  const auto octal = [&](std::size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '7'; };
  if (kind > '1' || !octal(at + 1) || !octal(at + 2) || !octal(at + 3)) return -1;
  *length = 4;
  return (kind - '0') * 64 + (text[at + 2] - '0') * 8 + (text[at + 3] - '0');
}

/// One round; whether there was an escape.
bool ResolveOnce(std::string_view text, std::string* resolved) {
  bool any = false;
  resolved->clear();
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t next = std::min(text.find_first_of("%\\", at), text.size());
    resolved->append(text, at, next - at);
    at = next;
    if (at == text.size()) break;
    std::size_t length = 1;
    const int character = Escape(text, at, &length);
    if (character < 0) {
      *resolved += text[at++];
      continue;
    }
    any = true;
    if (character < 0x100) {
      *resolved += LowerByte(static_cast<char>(character));
    } else {
      AppendUtf8(static_cast<char32_t>(character), resolved);
    }
    at += length;
  }
  return any;
}

/// "/" or "." from bytes that careless decoders take for it (overlong UTF-8, full-width forms, slashes of mathematics)
/// and from "0x2f", "%2%f" and their like; the number of bytes, 0 when it is none.
std::size_t CarelessMark(std::string_view text, std::size_t at, char* mark) {
  struct Form {
    std::string_view bytes;
    char mark;
  };
  static constexpr Form kForms[] = {
      {"0x2e", '.'},         {"0x2f", '/'},         {"0x5c", '/'},         {"%2%e", '.'},         {"%2%f", '/'},
      {"%5%c", '/'},         {"%bg%qf", '/'},       {"\xC0\x2E", '.'},     {"\xC0\x5E", '.'},     {"\xC0\xFE", '.'},
      {"\xC0\xEE", '.'},     {"\xC0\xAE", '.'},     {"\xC0\xAF", '/'},     {"\xC1\x9C", '/'},     {"\xC0\x2F", '/'},
      {"\xC0\x5C", '/'},     {"\xC1\x1C", '/'},     {"\xC0\x25", '/'},     {"\xC1\x25", '/'},     {"\xEF\xBC\x8E", '.'},
      {"\xEF\xBC\x8F", '/'}, {"\xEF\xBC\xBC", '/'}, {"\xE2\x88\x95", '/'}, {"\xE2\x88\x96", '/'}, {"\xEF\xBB\x88", '/'},
      {"\xEF\x80\xA5", '/'},
  };
  for (const Form& form : kForms) {
    if (text[at] != form.bytes[0] || text.compare(at, form.bytes.size(), form.bytes) != 0) continue;
    *mark = form.mark;
    // "\xC0%9v": the overlong form of a slash, spelled in digits that are none.
    const bool spelled = form.bytes[1] == '%' && form.bytes.size() == 2;
    return form.bytes.size() + (spelled && at + 4 <= text.size() ? 2 : 0);
  }
  // Overlong forms of three to six bytes: a lead byte without bits, 0x80 without bits, the last one.
  const unsigned char lead = Byte(text[at]);
  const std::size_t length = lead == 0xE0 ? 3 : lead == 0xF0 ? 4 : lead == 0xF8 ? 5 : lead == 0xFC ? 6 : 0;
  if (length == 0 || text.size() - at < length) return 0;
  for (std::size_t i = 1; i + 1 < length; ++i) {
    if (Byte(text[at + i]) != 0x80) return 0;
  }
  const unsigned char last = Byte(text[at + length - 1]);
  *mark = last == 0xAE ? '.' : '/';
  return last == 0xAE || last == 0xAF ? length : 0;
}

/// A variable that is not set, an empty substitution, "${IFS}": its bytes, and whether it stands for a blank. 0: none.
std::size_t ShellNothing(std::string_view text, std::size_t at, bool* blank) {
  *blank = false;
  const std::string_view rest = text.substr(at);
  if (rest.starts_with("$ifs")) {
    *blank = true;
    return rest.starts_with("$ifs$9") ? 6 : 4;
  }
  if (rest.starts_with("${ifs")) {
    *blank = true;
    return std::min(rest.find('}'), rest.size() - 1) + 1;
  }
  if (rest.starts_with("$()") || rest.starts_with("$''") || rest.starts_with("$\"\"")) return 3;
  if (rest.starts_with("``")) return 2;
  if (rest.size() < 2 || at == 0 || !IsLetter(text[at - 1])) return 0;
  // "c$@at": within a word a variable of one letter or sign.
  constexpr std::string_view kSigns = "@*#?!-$";
  const bool sign = kSigns.find(rest[1]) != kEnd;
  const bool letter = IsWordByte(rest[1]) && (rest.size() < 3 || !IsWordByte(rest[2]));
  return sign || letter ? 2 : 0;
}

}  // namespace

void CAttackReadings::Lower(std::string_view text) {
  lowered_.resize(text.size());
  CCharSet::LowerBytes(text, lowered_.data());
}

bool CAttackReadings::Resolve(TextMarks marks) {
  std::string_view text = lowered_;
  bool any = false;
  if ((marks & MarkOf('&') & kEscapes) != 0 && text.find(';') != kEnd) {
    path_ = CCharSet::LowerBytes(DecodeHtmlEntities(text));
    any = path_ != text;
    if (any) text = path_;
  }
  for (int round = 0; round < kMostRounds && ResolveOnce(text, &resolved_); ++round) {
    any = true;
    path_.swap(resolved_);
    text = path_;
  }
  if (any) resolved_ = text;
  return any;
}

/// Whether a file system may read the text in another way than it stands there.
bool CAttackReadings::IsOdd(std::string_view text, TextMarks marks) {
  constexpr TextMarks kOddBytes = (MarkOf('\\') & ~kTellingMark) | kNulMark | kOverlongMark;
  if ((marks & kOddBytes) != 0) return true;
  if ((marks & MarkOf('/') & ~kTellingMark) != 0) {
    for (std::size_t at = text.find('/'); at != kEnd; at = text.find('/', at + 1)) {
      const std::string_view next = text.substr(at + 1, 2);
      if (next == "./" || (next.starts_with('/') && (at == 0 || text[at - 1] != ':'))) return true;
    }
  }
  // What CarelessMark reads though it is no escape: "%2%f", "%bg%qf".
  for (std::size_t at = text.find('%'); at != kEnd && text.size() - at > 3; at = text.find('%', at + 1)) {
    if (text[at + 2] == '%' || text[at + 3] == '%') return true;
  }
  // Slashes of other alphabets that are sent as they are.
  if ((marks & MarkOf('\x80')) != 0 && text.find("..") != kEnd) return true;
  return text.find("0x") != kEnd;
}

bool CAttackReadings::MakePath(std::string_view text) {
  path_.clear();
  const auto append = [this](char c) {
    if (c == '/' && path_.ends_with('/')) return;
    if (c == '/' && path_.ends_with("/.")) return path_.pop_back();
    path_ += c;
  };
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    char mark = '\0';
    const bool careless = c == '0' || c == '%' || Byte(c) >= 0xC0;
    if (const std::size_t length = careless ? CarelessMark(text, at, &mark) : 0; length != 0) {
      append(mark);
      at += length;
      continue;
    }
    ++at;
    if (c != '\0') append(c == '\\' ? '/' : c);
  }
  return path_ != text;
}

/// Whether a shell may read the text in another way than it stands there: words that it joins, and that stand where a
/// command can be: behind what begins one, or first.
bool CAttackReadings::IsJoined(std::string_view text, TextMarks marks) {
  constexpr TextMarks kBare = ~(kCommandMark | kTellingMark);
  constexpr std::string_view kQuoting = "'\"\\^`${";
  constexpr TextMarks kBegins = MarksOf(";|&$<>{") & kBare;
  if ((marks & MarksOf(kQuoting) & kBare) == 0) return false;
  if ((marks & kBegins) == 0 && text.find_first_of("'\"\\^`") > text.find(' ')) return false;
  if ((marks & MarksOf("^${") & kBare) != 0) return true;
  // Quotes join within a word; a sentence has blanks between the two.
  std::size_t open[2] = {kEnd, kEnd};
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (IsSpace(c)) {
      open[0] = open[1] = kEnd;
    } else if (c == '\'' || c == '"') {
      std::size_t& of_kind = open[c == '"' ? 1 : 0];
      if (of_kind != kEnd) return true;
      of_kind = at;
    } else if ((c == '`' && next == '`') || (c == '\\' && next > ' ' && next != '\\')) {
      return true;
    }
  }
  return false;
}

bool CAttackReadings::MakeShell(std::string_view text) {
  shell_.clear();
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    bool blank = false;
    const std::size_t nothing = c == '$' || c == '`' ? ShellNothing(text, at, &blank) : 0;
    if (nothing != 0) {
      if (blank) shell_ += ' ';
      at += nothing;
      continue;
    }
    ++at;
    if (c == '\'' || c == '"' || c == '\\' || c == '^') continue;
    shell_ += c == '{' || c == '}' ? ' ' : c;
  }
  return shell_ != text;
}

}  // namespace qiv
