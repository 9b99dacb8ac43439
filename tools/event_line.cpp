#include "tools/event_line.h"

#include <chrono>
#include <cstring>

#include "base/hex.h"
#include "common/char_set.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::string_view kFieldNames[] = {
    "time",   "event_id", "site",   "client", "forwarded",  "method",     "url",  "phase", "check", "item",    "reason",
    "detail", "action",   "status", "rule",   "user_agent", "elapsed_us", "kind", "state", "file",  "version",
};
constexpr std::size_t kFieldCount = std::size(kFieldNames);
static_assert(kFieldCount == static_cast<std::size_t>(EventField::kCount));

// Of the field with this name, looked for from `guess` on: lines hold them in one order. kFieldCount for other names.
std::size_t FieldIndex(std::string_view name, std::size_t guess) {
  for (std::size_t tried = 0; tried < kFieldCount; ++tried) {
    const std::size_t index = (guess + tried) % kFieldCount;
    if (kFieldNames[index] == name) return index;
  }
  return kFieldCount;
}

// The number of so many digits; -1 where there are others.
int Digits(std::string_view text) {
  int number = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return -1;
    number = number * 10 + (c - '0');
  }
  return number;
}

bool IsPlainValueByte(char c) {
  return IsDigit(c) || (LowerByte(c) >= 'a' && LowerByte(c) <= 'z') || c == '-' || c == '+' || c == '.';
}

}  // namespace

std::int64_t ParseLogTime(std::string_view text) {
  constexpr std::string_view kShape = "0000-00-00T00:00:00";
  if (text.size() < kShape.size() + 1 || text.back() != 'Z') return -1;
  for (const std::size_t at : {4U, 7U, 10U, 13U, 16U}) {
    if (text[at] != kShape[at]) return -1;
  }
  const int year = Digits(text.substr(0, 4));
  const int month = Digits(text.substr(5, 2));
  const int day = Digits(text.substr(8, 2));
  const int hour = Digits(text.substr(11, 2));
  const int minute = Digits(text.substr(14, 2));
  const int second = Digits(text.substr(17, 2));
  if (year < 1970 || month < 1 || day < 1 || hour < 0 || minute < 0 || second < 0) return -1;
  if (hour > 23 || minute > 59 || second > 60) return -1;
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) return -1;
  const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  return days * 86400 + hour * 3600 + minute * 60 + second;
}

const EventLineFields* CEventLineReader::Read(std::string_view line) {
  if (line.size() > kLongestLine) return nullptr;
  if (!CCharSet::IsValidUtf8(line)) {
    converted_ = CCharSet::LocalToUtf8(line);
    line = converted_;
  }
  text_ = line;
  pos_ = 0;
  fields_.texts.fill({});
  unescaped_.clear();
  unescaped_.reserve(line.size());
  if (!ReadObject()) return nullptr;
  fields_.time = ParseLogTime(fields_[EventField::kTime]);
  const bool about_something = fields_.IsState() || !fields_[EventField::kAction].empty();
  return fields_.time >= 0 && about_something ? &fields_ : nullptr;
}

bool CEventLineReader::ReadObject() {
  SkipBlanks();
  if (!Take('{')) return false;
  std::size_t guess = 0;
  do {
    std::string_view name;
    std::string_view value;
    SkipBlanks();
    if (!Take('"') || !ReadString(&name)) return false;
    SkipBlanks();
    if (!Take(':')) return false;
    SkipBlanks();
    if (!ReadValue(&value)) return false;
    const std::size_t index = FieldIndex(name, guess);
    if (index < kFieldCount) {
      fields_.texts[index] = value;
      guess = index + 1;
    }
    SkipBlanks();
  } while (Take(','));
  if (!Take('}')) return false;
  SkipBlanks();
  return pos_ == text_.size();
}

// A string, or a number or word as it stands; lines hold no lists and no objects.
bool CEventLineReader::ReadValue(std::string_view* value) {
  if (Take('"')) return ReadString(value);
  const std::size_t begin = pos_;
  while (pos_ < text_.size() && IsPlainValueByte(text_[pos_])) ++pos_;
  *value = text_.substr(begin, pos_ - begin);
  return pos_ > begin;
}

// Up to the closing quote, the opening one having been taken.
bool CEventLineReader::ReadString(std::string_view* text) {
  const std::size_t begin = pos_;
  bool has_escapes = false;
  while (true) {
    const std::size_t quote = text_.find('"', pos_);
    if (quote == std::string_view::npos) return false;
    const std::string_view before = text_.substr(pos_, quote - pos_);
    const std::size_t escape = before.find('\\');
    if (escape == std::string_view::npos) {
      pos_ = quote + 1;
      const std::string_view raw = text_.substr(begin, quote - begin);
      if (has_escapes) return Unescape(raw, text);
      *text = raw;
      return true;
    }
    has_escapes = true;
    pos_ += escape + 2;  // what is escaped ends no string
    if (pos_ > text_.size()) return false;
  }
}

bool CEventLineReader::Unescape(std::string_view escaped, std::string_view* text) {
  const std::size_t begin = unescaped_.size();
  std::size_t pos = 0;
  while (pos < escaped.size()) {
    const std::size_t next = std::min(escaped.find('\\', pos), escaped.size());
    unescaped_.append(escaped.substr(pos, next - pos));
    pos = next;
    if (pos < escaped.size() && !ReadCharacter(escaped, &pos)) return false;
  }
  *text = std::string_view(unescaped_).substr(begin);
  return true;
}

// The escape at *pos, which is moved behind it.
bool CEventLineReader::ReadCharacter(std::string_view escaped, std::size_t* pos) {
  constexpr std::string_view kLetters = "\"\\/bfnrt";
  constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
  const char letter = *pos + 1 < escaped.size() ? escaped[*pos + 1] : '\0';
  if (const std::size_t known = kLetters.find(letter); known != std::string_view::npos) {
    unescaped_ += kMeanings[known];
    *pos += 2;
    return true;
  }
  int unit = letter == 'u' ? HexNumber(escaped, *pos + 2, 4) : -1;
  if (unit < 0 || (unit >= 0xDC00 && unit < 0xE000)) return false;
  *pos += 6;
  if (unit >= 0xD800 && unit < 0xDC00) {
    const int low = escaped.substr(*pos, 2) == "\\u" ? HexNumber(escaped, *pos + 2, 4) : -1;
    if (low < 0xDC00 || low >= 0xE000) return false;
    unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    *pos += 6;
  }
  AppendUtf8(static_cast<char32_t>(unit), &unescaped_);
  return true;
}

void CEventLineReader::SkipBlanks() {
  while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\r')) ++pos_;
}

bool CEventLineReader::Take(char c) {
  if (pos_ >= text_.size() || text_[pos_] != c) return false;
  ++pos_;
  return true;
}

}  // namespace qiv
