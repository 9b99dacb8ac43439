#include "engines/injection/sql_tokens.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "common/text.h"

namespace qiv {
namespace {

using Kind = SqlTokenKind;
using Word = SqlWord;

struct WordRow {
  std::string_view text;
  Kind kind;
  Word word;
};

// Sorted by text. The functions are those of sqlmap's payloads and of public lists of injections, for MySQL, MariaDB,
// PostgreSQL, SQL Server, Oracle, SQLite and Access.
constexpr WordRow kWords[] = {
    {"all", Kind::kWord, Word::kAll},
    {"alter", Kind::kWord, Word::kAlter},
    {"and", Kind::kConnective, Word::kName},
    {"any", Kind::kNot, Word::kName},
    {"as", Kind::kWord, Word::kAs},
    {"ascii", Kind::kWord, Word::kFunction},
    {"benchmark", Kind::kWord, Word::kFunction},
    {"between", Kind::kWord, Word::kBetween},
    {"bin", Kind::kWord, Word::kFunction},
    {"binary", Kind::kNot, Word::kName},
    {"by", Kind::kWord, Word::kBy},
    {"call", Kind::kWord, Word::kCall},
    {"case", Kind::kWord, Word::kCase},
    {"cast", Kind::kWord, Word::kFunction},
    {"char", Kind::kWord, Word::kFunction},
    {"char_length", Kind::kWord, Word::kFunction},
    {"chr", Kind::kWord, Word::kFunction},
    {"coalesce", Kind::kWord, Word::kFunction},
    {"collate", Kind::kWord, Word::kCollate},
    {"concat", Kind::kWord, Word::kFunction},
    {"concat_ws", Kind::kWord, Word::kFunction},
    {"conv", Kind::kWord, Word::kFunction},
    {"convert", Kind::kWord, Word::kFunction},
    {"count", Kind::kWord, Word::kFunction},
    {"crc32", Kind::kWord, Word::kFunction},
    {"create", Kind::kWord, Word::kCreate},
    {"current_database", Kind::kWord, Word::kFunction},
    {"current_user", Kind::kWord, Word::kFunction},
    {"database", Kind::kWord, Word::kFunction},
    {"dbms_pipe.receive_message", Kind::kWord, Word::kFunction},
    {"dbms_utility.sqlid_to_sqlhash", Kind::kWord, Word::kFunction},
    {"declare", Kind::kWord, Word::kDeclare},
    {"delete", Kind::kWord, Word::kDelete},
    {"distinct", Kind::kNot, Word::kName},
    {"div", Kind::kOperator, Word::kName},
    {"drop", Kind::kWord, Word::kDrop},
    {"else", Kind::kWord, Word::kElse},
    {"elt", Kind::kWord, Word::kFunction},
    {"end", Kind::kWord, Word::kEnd},
    {"exec", Kind::kWord, Word::kExecute},
    {"execute", Kind::kWord, Word::kExecute},
    {"exists", Kind::kNot, Word::kName},
    {"exp", Kind::kWord, Word::kFunction},
    {"extractvalue", Kind::kWord, Word::kFunction},
    {"false", Kind::kWord, Word::kConstant},
    {"field", Kind::kWord, Word::kFunction},
    {"find_in_set", Kind::kWord, Word::kFunction},
    {"floor", Kind::kWord, Word::kFunction},
    {"from", Kind::kWord, Word::kFrom},
    {"generate_series", Kind::kWord, Word::kFunction},
    {"get_lock", Kind::kWord, Word::kFunction},
    {"glob", Kind::kCompare, Word::kName},
    {"grant", Kind::kWord, Word::kGrant},
    {"greatest", Kind::kWord, Word::kFunction},
    {"group", Kind::kWord, Word::kGroup},
    {"group_concat", Kind::kWord, Word::kFunction},
    {"gtid_subset", Kind::kWord, Word::kFunction},
    {"gtid_subtract", Kind::kWord, Word::kFunction},
    {"having", Kind::kWord, Word::kHaving},
    {"hex", Kind::kWord, Word::kFunction},
    {"if", Kind::kWord, Word::kFunction},
    {"ifnull", Kind::kWord, Word::kFunction},
    {"iif", Kind::kWord, Word::kFunction},
    {"ilike", Kind::kCompare, Word::kName},
    {"in", Kind::kWord, Word::kIn},
    {"insert", Kind::kWord, Word::kInsert},
    {"instr", Kind::kWord, Word::kFunction},
    {"into", Kind::kWord, Word::kInto},
    {"is", Kind::kWord, Word::kIs},
    {"isnull", Kind::kWord, Word::kFunction},
    {"json_keys", Kind::kWord, Word::kFunction},
    {"least", Kind::kWord, Word::kFunction},
    {"left", Kind::kWord, Word::kFunction},
    {"len", Kind::kWord, Word::kFunction},
    {"length", Kind::kWord, Word::kFunction},
    {"like", Kind::kCompare, Word::kName},
    {"limit", Kind::kWord, Word::kLimit},
    {"load_file", Kind::kWord, Word::kFunction},
    {"locate", Kind::kWord, Word::kFunction},
    {"lower", Kind::kWord, Word::kFunction},
    {"lpad", Kind::kWord, Word::kFunction},
    {"make_set", Kind::kWord, Word::kFunction},
    {"md5", Kind::kWord, Word::kFunction},
    {"mid", Kind::kWord, Word::kFunction},
    {"mod", Kind::kOperator, Word::kName},
    {"not", Kind::kNot, Word::kName},
    {"null", Kind::kWord, Word::kConstant},
    {"nullif", Kind::kWord, Word::kFunction},
    {"nvl", Kind::kWord, Word::kFunction},
    {"or", Kind::kConnective, Word::kName},
    {"ord", Kind::kWord, Word::kFunction},
    {"order", Kind::kWord, Word::kOrder},
    {"pg_sleep", Kind::kWord, Word::kFunction},
    {"position", Kind::kWord, Word::kFunction},
    {"procedure", Kind::kWord, Word::kProcedure},
    {"rand", Kind::kWord, Word::kFunction},
    {"randomblob", Kind::kWord, Word::kFunction},
    {"regexp", Kind::kCompare, Word::kName},
    {"repeat", Kind::kWord, Word::kFunction},
    {"replace", Kind::kWord, Word::kFunction},
    {"right", Kind::kWord, Word::kFunction},
    {"rlike", Kind::kCompare, Word::kName},
    {"row", Kind::kWord, Word::kFunction},
    {"schema", Kind::kWord, Word::kFunction},
    {"select", Kind::kWord, Word::kSelect},
    {"set", Kind::kWord, Word::kSet},
    {"sha1", Kind::kWord, Word::kFunction},
    {"shutdown", Kind::kWord, Word::kShutdown},
    {"sleep", Kind::kWord, Word::kFunction},
    {"some", Kind::kNot, Word::kName},
    {"sqlite_version", Kind::kWord, Word::kFunction},
    {"strcmp", Kind::kWord, Word::kFunction},
    {"substr", Kind::kWord, Word::kFunction},
    {"substring", Kind::kWord, Word::kFunction},
    {"sys_eval", Kind::kWord, Word::kFunction},
    {"table", Kind::kWord, Word::kTable},
    {"then", Kind::kWord, Word::kThen},
    {"true", Kind::kWord, Word::kConstant},
    {"truncate", Kind::kWord, Word::kTruncate},
    {"typeof", Kind::kWord, Word::kFunction},
    {"unhex", Kind::kWord, Word::kFunction},
    {"unicode", Kind::kWord, Word::kFunction},
    {"union", Kind::kWord, Word::kUnion},
    {"update", Kind::kWord, Word::kUpdate},
    {"updatexml", Kind::kWord, Word::kFunction},
    {"upper", Kind::kWord, Word::kFunction},
    {"user", Kind::kWord, Word::kFunction},
    {"user_name", Kind::kWord, Word::kFunction},
    {"utl_inaddr.get_host_address", Kind::kWord, Word::kFunction},
    {"values", Kind::kWord, Word::kValues},
    {"version", Kind::kWord, Word::kFunction},
    {"waitfor", Kind::kWord, Word::kWaitfor},
    {"when", Kind::kWord, Word::kWhen},
    {"where", Kind::kWord, Word::kWhere},
    {"xmltype", Kind::kWord, Word::kFunction},
    {"xor", Kind::kConnective, Word::kName},
};
constexpr std::size_t kLongestWord = 29;
static_assert(std::is_sorted(std::begin(kWords), std::end(kWords),
                             [](const WordRow& a, const WordRow& b) { return a.text < b.text; }));

/// Per first letter, the lengths of its words as bits: most names are told from words by it.
constexpr std::array<std::uint32_t, 26> kLengths = [] {
  std::array<std::uint32_t, 26> lengths{};
  for (const WordRow& row : kWords) lengths[static_cast<std::size_t>(row.text[0] - 'a')] |= 1U << row.text.size();
  return lengths;
}();

/// Per first letter, where its words begin; behind the last one, where they end.
constexpr std::array<std::uint8_t, 27> kBegins = [] {
  static_assert(std::size(kWords) < 256);
  std::array<std::uint8_t, 27> begins{};
  for (const WordRow& row : kWords) ++begins[static_cast<std::size_t>(row.text[0] - 'a') + 1];
  for (std::size_t i = 1; i < begins.size(); ++i) begins[i] = static_cast<std::uint8_t>(begins[i] + begins[i - 1]);
  return begins;
}();

/// The row of a word in any case; null for a name.
const WordRow* FindWord(std::string_view text) {
  if (text.size() > kLongestWord || !IsLetter(text[0])) return nullptr;
  const auto letter = static_cast<std::size_t>(LowerByte(text[0]) - 'a');
  if ((kLengths[letter] >> text.size() & 1U) == 0) return nullptr;
  char lowered[kLongestWord];
  std::transform(text.begin(), text.end(), lowered, LowerByte);
  const std::string_view word(lowered, text.size());
  const WordRow* const end = kWords + kBegins[letter + 1];
  const WordRow* const row = std::find_if(kWords + kBegins[letter], end, [word](const WordRow& known) {
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
    } else if (IsNameByte(c) || c == '[') {
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
  while (text_[end - 1] == '.') --end;
  const WordRow* const row = FindWord(text_.substr(at_, end - at_));
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
    {"::", Kind::kOperator}, {"||", Kind::kConnective}, {"&&", Kind::kConnective},
};
constexpr std::string_view kSecondBytes = "=<>:|&";  // of these

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
