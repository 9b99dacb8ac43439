#include "engines/injection/sql_tokens.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "common/text.h"
#include "engines/injection/sql_words.h"

namespace qiv {
namespace {

using Kind = SqlTokenKind;
using Word = SqlWord;

/// False for most names.
inline bool MayBeWord(std::string_view text) {
  if (text.size() > kLongestSqlWord || !IsLetter(text[0])) return false;
  return (kSqlWordLengths[static_cast<std::size_t>(LowerByte(text[0]) - 'a')] >> text.size() & 1U) != 0;
}

/// The row of a word in any case; null for a name.
const SqlWordRow* FindWord(std::string_view text) {
  if (!MayBeWord(text)) return nullptr;
  const auto letter = static_cast<std::size_t>(LowerByte(text[0]) - 'a');
  char lowered[kLongestSqlWord];
  std::transform(text.begin(), text.end(), lowered, LowerByte);
  const std::string_view word(lowered, text.size());
  const SqlWordRow* const end = kSqlWords + kSqlWordBegins[letter + 1];
  const SqlWordRow* const row = std::find_if(kSqlWords + kSqlWordBegins[letter], end, [word](const SqlWordRow& known) {
    return known.text.size() == word.size() && known.text == word;
  });
  return row == end ? nullptr : row;
}

/// All that no server shows as a letter, and what databases take for blanks.
constexpr bool IsBlank(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte <= 0x20 || byte == 0x7F || byte == 0xA0;
}

/// Where a blank or a comment may begin.
constexpr auto kMayDivide = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c) table[c] = IsBlank(static_cast<char>(c));
  for (const char c : {'#', '-', '/', '*'}) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

constexpr bool IsNameByte(char c) {
  return IsWordByte(c) || c == '$' || c == '@' || (static_cast<unsigned char>(c) >= 0x80 && !IsBlank(c));
}

/// The first byte apart.
constexpr bool IsOfName(char c) { return IsNameByte(c) || c == '.' || c == '`'; }

constexpr bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

}  // namespace

std::size_t CSqlText::NameEnd(std::size_t from) {
  if (name_.Holds(from)) return name_.to;
  std::size_t end = from;
  while (end < text_.size() && IsOfName(text_[end]) && !name_.Holds(end)) ++end;
  name_ = {from, name_.Holds(end) ? name_.to : end};
  return name_.to;
}

void CSqlTokens::Take(SqlTokenKind kind, std::size_t length) {
  current_.kind = kind;
  at_ += length;
  room_ -= std::min(room_, length);
}

std::size_t CSqlTokens::FindNear(char c, std::size_t from) const {
  return text_.substr(0, std::min(text_.size(), at_ + room_)).find(c, from);
}

CSqlTokens::Blanks CSqlTokens::SkipBlanks() {
  constexpr std::size_t kNone = std::string_view::npos;
  std::size_t comment = kNone;  // the last one, not yet kept
  std::size_t spent = 0;
  while (at_ < text_.size() && room_ > 0) {
    if (IsBlank(text_[at_])) {
      ++at_;  // costs nothing: however many there are
      continue;
    }
    if (comment != kNone) shared_.KeepComment(comment, spent, at_);
    comment = kNone;
    if (!kMayDivide[static_cast<unsigned char>(text_[at_])]) return Blanks::kDone;
    shared_.PassComments(&at_, &room_);
    const std::size_t begin = at_;
    const std::size_t room = room_;
    const Blanks blanks = SkipComment();
    if (blanks != Blanks::kMore) return blanks;
    comment = begin;
    spent = room - room_;
  }
  return at_ < text_.size() ? Blanks::kTooFar : Blanks::kDone;
}

CSqlTokens::Blanks CSqlTokens::SkipComment() {
  if (text_[at_] == '#' || text_.compare(at_, 2, "--") == 0) {
    const std::size_t line_end = FindNear('\n', at_);
    if (line_end == std::string_view::npos) return text_.size() - at_ <= room_ ? Blanks::kToEnd : Blanks::kTooFar;
    Take(Kind::kEnd, line_end + 1 - at_);
  } else if (text_.compare(at_, 3, "/*!") == 0) {
    Take(Kind::kEnd, 3);  // its end is skipped when it comes
    for (int digits = 0; digits < 6 && IsDigit(At(at_)); ++digits) ++at_;
  } else if (text_.compare(at_, 2, "/*") == 0) {
    const std::size_t end = shared_.BehindComment(at_ + 2);
    if (end == std::string_view::npos) return Blanks::kToEnd;
    at_ = end;
    room_ -= std::min<std::size_t>(room_, 4);
  } else if (text_.compare(at_, 2, "*/") == 0) {
    Take(Kind::kEnd, 2);
  } else {
    return Blanks::kDone;
  }
  return Blanks::kMore;
}

namespace {

bool IsTelling(const SqlToken& token) {
  switch (token.kind) {
    case Kind::kEnd:
    case Kind::kComment:
    case Kind::kOpenString:
    case Kind::kConnective:
    case Kind::kSemicolon:
    case Kind::kCut:
      return true;
    case Kind::kWord:
      return token.word != Word::kName;
    default:
      return false;
  }
}

}  // namespace

bool CSqlTokens::Recall() {
  const CSqlText::Read& known = shared_.KeptAt(at_);
  // Less of the window is left than the token took: it may be cut.
  if (known.at != at_ || known.spent >= room_) return false;
  current_ = {known.kind, known.word, known.begin, known.end};
  room_ -= known.spent;
  at_ = known.end;
  return true;
}

void CSqlTokens::Keep(std::size_t at, std::size_t room) {
  // The window's end decides what these are.
  if (room_ == 0 || current_.kind == Kind::kCut || current_.kind == Kind::kComment || text_.size() >= UINT32_MAX)
    return;
  CSqlText::Read& read = shared_.KeptAt(at);
  read.at = static_cast<std::uint32_t>(at);
  read.begin = static_cast<std::uint32_t>(current_.begin);
  read.end = read.resume = static_cast<std::uint32_t>(current_.end);
  read.spent = static_cast<std::uint16_t>(room - room_);
  read.kind = current_.kind;
  read.word = current_.word;
  read.barren = IsTelling(current_) ? 0 : 1;
}

void CSqlTokens::Advance() {
  if (shared_.kept_.empty()) {
    Read();
    if (++shared_.reads_ > CSqlText::kReadsUnkept)
      shared_.kept_.resize(text_.size() < CSqlText::kShort ? CSqlText::kKeptOfShort : CSqlText::kKept);
    return;
  }
  if (Recall()) return;
  const std::size_t at = at_;
  const std::size_t room = room_;
  Read();
  Keep(at, room);
}

void CSqlTokens::Read() {
  current_ = SqlToken{};
  const Blanks blanks = SkipBlanks();
  current_.kind = Kind::kEnd;
  current_.begin = at_;
  if (blanks == Blanks::kToEnd) {
    current_.kind = Kind::kComment;
    at_ = text_.size();
  } else if (blanks == Blanks::kTooFar) {
    current_.kind = Kind::kCut;
  } else if (at_ < text_.size()) {
    const char c = text_[at_];
    if (c == '\'' || c == '"' || c == '`') {
      ReadString(c);
    } else if (IsDigit(c) || (c == '.' && IsDigit(At(at_ + 1)))) {
      ReadNumber();
    } else if ((IsNameByte(c) && !(c == '@' && At(at_ + 1) == '>')) || c == '[') {
      ReadWord();
    } else {
      ReadSign();
    }
  }
  current_.end = at_;
}

void CSqlTokens::ReadString(char quote) {
  // More quotes in one string are no client's; without a limit a run of quotes is dear.
  constexpr int kMostDoubled = 8;
  int doubled = 0;
  std::size_t end = at_ + 1;
  const std::size_t limit = std::min(text_.size(), at_ + room_);
  for (;; ++end) {
    end = shared_.PlainQuote(quote, end);
    if (end >= limit)
      return text_.size() - at_ <= room_ ? Take(Kind::kOpenString, text_.size() - at_) : Take(Kind::kCut, 0);
    if (At(end + 1) != quote) break;
    // Doubled: part of the string.
    if (++doubled > kMostDoubled) return Take(Kind::kOther, 1);
    ++end;
  }
  // "`name`" is a name.
  Take(quote == '`' ? Kind::kWord : Kind::kString, end + 1 - at_);
}

void CSqlTokens::ReadNumber() {
  std::size_t end = at_;
  const std::size_t limit = at_ + room_;
  if (At(end) == '0' && (At(end + 1) == 'x' || At(end + 1) == 'X') && IsHexDigit(At(end + 2))) {
    end += 2;
    while (end < limit && IsHexDigit(At(end))) ++end;
  } else if (At(end) == '0' && LowerByte(At(end + 1)) == 'b' && (At(end + 2) == '0' || At(end + 2) == '1')) {
    end += 2;
    while (end < limit && IsDigit(At(end))) ++end;
  } else {
    while (end < limit && IsDigit(At(end))) ++end;
    if (At(end) == '.') ++end;
    while (end < limit && IsDigit(At(end))) ++end;
    if (At(end) == 'e' || At(end) == 'E') {
      const std::size_t digits = end + (At(end + 1) == '-' || At(end + 1) == '+' ? 2 : 1);
      if (IsDigit(At(digits))) {
        end = digits;
        while (end < limit && IsDigit(At(end))) ++end;
      }
    } else if (At(end) == 'd' || At(end) == 'D' || At(end) == 'f' || At(end) == 'F') {
      // "1dunion": a suffix, and the next word.
      std::size_t word_end = end + 1;
      while (word_end - end <= kLongestSqlWord && IsLetter(At(word_end))) ++word_end;
      if (word_end > end + 1 && FindWord(text_.substr(end + 1, word_end - end - 1))) ++end;
    }
  }
  Take(Kind::kNumber, end - at_);
}

void CSqlTokens::ReadWord() {
  std::size_t end = at_;
  if (text_[at_] == '[') {
    // "[a name]" of SQL Server; its like in other texts is none.
    constexpr std::size_t kLongestName = 64;
    while (end < text_.size() && end - at_ < kLongestName && text_[end] != ']' && text_[end] != '\n') ++end;
    return At(end) == ']' ? Take(Kind::kWord, end + 1 - at_) : Take(Kind::kOther, 1);
  }
  const std::size_t limit = std::min(text_.size(), at_ + room_);
  end = std::min(shared_.NameEnd(at_), limit);
  // "select@@version", "select`name`from": a word of SQL ends there. None holds such a mark itself, so the first counts.
  const std::size_t longest = std::min(end, at_ + kLongestSqlWord + 1);
  std::size_t mark = at_ + 1;
  while (mark < longest && text_[mark] != '@' && text_[mark] != '`') ++mark;
  if (mark < longest && FindWord(text_.substr(at_, mark - at_)) != nullptr) end = mark;
  while (text_[end - 1] == '.') --end;
  const std::string_view word = text_.substr(at_, end - at_);
  const SqlWordRow* const row = FindWord(word);
  if (row) current_.word = row->word;
  Take(row ? row->kind : Kind::kWord, end - at_);
}

namespace {

struct Sign {
  std::string_view text;
  Kind kind;
};
// Longer ones first.
constexpr Sign kLongSigns[] = {
    {"<=>", Kind::kCompare}, {"<>", Kind::kCompare},    {"!=", Kind::kCompare},    {"<=", Kind::kCompare},
    {">=", Kind::kCompare},  {"==", Kind::kCompare},    {"!<", Kind::kCompare},    {"!>", Kind::kCompare},
    {"^=", Kind::kCompare},  {":=", Kind::kCompare},    {"<<", Kind::kOperator},   {">>", Kind::kOperator},
    {"::", Kind::kOperator}, {"||", Kind::kConnective}, {"&&", Kind::kConnective}, {"->>", Kind::kOperator},
    {"->", Kind::kOperator}, {"!~*", Kind::kNot},       {"!~", Kind::kNot},        {"~*", Kind::kNot},
};
constexpr std::string_view kSecondBytes = "=<>:|&~*";  // of these

constexpr auto kSigns = [] {
  std::array<Kind, 256> kinds{};
  kinds.fill(Kind::kOther);
  for (const char c : {'=', '<', '>'}) kinds[static_cast<unsigned char>(c)] = Kind::kCompare;
  for (const char c : {'+', '-', '*', '/', '%', '&', '|', '^'}) kinds[static_cast<unsigned char>(c)] = Kind::kOperator;
  for (const char c : {'!', '~'}) kinds[static_cast<unsigned char>(c)] = Kind::kNot;
  kinds['('] = Kind::kOpen;
  kinds[')'] = Kind::kClose;
  kinds[','] = Kind::kComma;
  kinds[';'] = Kind::kSemicolon;
  return kinds;
}();

}  // namespace

void CSqlTokens::ReadSign() {
  const std::string_view rest = text_.substr(at_, 3);
  if (rest.starts_with("@>")) return Take(Kind::kCompare, 2);
  if (rest.starts_with("<@") && (rest.size() == 2 || !IsNameByte(rest[2]))) return Take(Kind::kCompare, 2);
  if (rest.starts_with("\\N")) {  // null
    current_.word = Word::kConstant;
    return Take(Kind::kWord, 2);
  }
  if (rest.size() > 1 && kSecondBytes.find(rest[1]) != std::string_view::npos) {
    for (const Sign& sign : kLongSigns) {
      if (sign.text[0] == rest[0] && rest.starts_with(sign.text)) return Take(sign.kind, sign.text.size());
    }
  }
  Take(kSigns[static_cast<unsigned char>(rest[0])], 1);
}

}  // namespace qiv
