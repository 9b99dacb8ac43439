#include "common/text.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "common/char_set.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Value of `digits` hexadecimal digits at `pos`, or -1.
int HexNumber(std::string_view text, std::size_t pos, std::size_t digits) {
  if (text.size() < pos + digits) return -1;
  int value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const int digit = HexValue(text[pos + i]);
    if (digit < 0) return -1;
    value = value * 16 + digit;
  }
  return value;
}

// The UTF-16 unit of a "%uXXXX" at `pos`, or -1.
int EscapedUnit(std::string_view text, std::size_t pos) {
  if (pos + 6 > text.size() || text[pos] != '%' || (text[pos + 1] != 'u' && text[pos + 1] != 'U')) return -1;
  return HexNumber(text, pos + 2, 4);
}

std::string_view Reference(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

constexpr char LowerByte(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

constexpr bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

}  // namespace

bool EqualNoCase(std::string_view text, std::string_view lower) {
  return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                    [](char a, char b) { return LowerByte(a) == b; });
}

bool BeginsNoCase(std::string_view text, std::string_view lower) {
  return EqualNoCase(text.substr(0, lower.size()), lower);
}

std::size_t FindNoCase(std::string_view text, std::string_view lower, std::size_t from) {
  if (from >= text.size()) return std::string_view::npos;
  const auto found = std::search(text.begin() + static_cast<std::ptrdiff_t>(from), text.end(), lower.begin(),
                                 lower.end(), [](char a, char b) { return LowerByte(a) == b; });
  return found == text.end() ? std::string_view::npos : static_cast<std::size_t>(found - text.begin());
}

void AppendAll(std::string* text, std::initializer_list<std::string_view> pieces) {
  for (const std::string_view piece : pieces) *text += piece;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view TrimBytes(std::string_view text, std::string_view bytes) {
  const std::size_t first = text.find_first_not_of(bytes);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(bytes) - first + 1);
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  if (text.empty()) return parts;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t end = CCharSet::FindCharacter(text, separator, begin);
    if (end == std::string_view::npos) break;
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  parts.push_back(text.substr(begin));
  return parts;
}

std::vector<std::string_view> Split(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  if (text.empty()) return parts;
  std::size_t begin = 0;
  std::size_t pos = 0;  // always a character boundary
  while (pos < text.size() && !separator.empty()) {
    const std::size_t candidate = text.find(separator, pos);
    if (candidate == std::string_view::npos) break;
    while (pos < candidate) pos += CCharSet::CharacterLength(text, pos);
    if (pos != candidate) continue;  // the candidate began inside a character
    parts.push_back(text.substr(begin, pos - begin));
    pos += separator.size();
    begin = pos;
  }
  parts.push_back(text.substr(begin));
  return parts;
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  if (from.empty()) return result.assign(text);
  std::size_t begin = 0;
  for (std::size_t pos; (pos = text.find(from, begin)) != std::string_view::npos; begin = pos + from.size()) {
    result.append(text.substr(begin, pos - begin)).append(to);
  }
  return result.append(text.substr(begin));
}

std::string PercentDecode(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t percent = std::min(text.find('%', pos), text.size());
    result.append(text.substr(pos, percent - pos));
    pos = percent;
    if (pos == text.size()) break;
    if (const int byte = HexNumber(text, pos + 1, 2); byte >= 0) {
      result.push_back(static_cast<char>(byte));
      pos += 3;
      continue;
    }
    std::u16string units;  // a run is converted as a whole, so that surrogate pairs stay pairs
    for (int unit; (unit = EscapedUnit(text, pos)) >= 0; pos += 6) units.push_back(static_cast<char16_t>(unit));
    if (units.empty()) {
      result.push_back(text[pos++]);
    } else {
      result.append(Utf16ToGbk(units));
    }
  }
  return result;
}

std::string HtmlEscape(std::string_view text) {
  const bool utf8 = CCharSet::IsValidUtf8(text);
  std::string result;
  result.reserve(text.size() + text.size() / 8);
  std::size_t pos = 0;
  while (pos < text.size()) {
    const char c = text[pos];
    if (static_cast<unsigned char>(c) >= 0x80) {
      const std::size_t length = utf8 ? 1 : CCharSet::CharacterLength(text, pos);
      if (!utf8 && length == 1 && CCharSet::IsLeadByte(static_cast<unsigned char>(c))) {
        result.push_back('?');
      } else {
        result.append(text.substr(pos, length));
      }
      pos += length;
      continue;
    }
    if (const std::string_view reference = Reference(c); !reference.empty()) {
      result.append(reference);
    } else {
      result.push_back(IsControl(c) && c != '\t' && c != '\n' ? '?' : c);
    }
    ++pos;
  }
  return result;
}

namespace {

// A place becomes the place of what its text became; what lies between places is changed on its own.
template <typename Change>
void ChangeMarked(MarkedText* marked, const Change& change) {
  if (marked->places.empty()) {
    marked->text = change(std::move(marked->text));
    return;
  }
  std::string result;
  result.reserve(marked->text.size());
  std::size_t done = 0;
  const auto change_until = [&](std::size_t end) {
    result += change(marked->text.substr(done, end - done));
    done = end;
  };
  for (TextPlace& place : marked->places) {
    const std::size_t end = place.offset + place.length;
    change_until(place.offset);
    place.offset = result.size();
    change_until(end);
    place.length = result.size() - place.offset;
  }
  change_until(marked->text.size());
  marked->text = std::move(result);
}

void PercentDecodeMarked(MarkedText* marked) {
  if (marked->text.find('%') == std::string::npos) return;
  ChangeMarked(marked, [](std::string text) { return PercentDecode(text); });
}

void ToLocalMarked(MarkedText* marked) {
  if (marked->places.empty()) {
    marked->text = CCharSet::ToLocal(std::move(marked->text));
  } else if (marked->text.size() >= 3 && CCharSet::IsValidUtf8(marked->text)) {
    ChangeMarked(marked, [](std::string text) { return CCharSet::Utf8ToLocal(text); });
  }
}

void NormalizeSteps(MarkedText* marked, bool lower) {
  PercentDecodeMarked(marked);
  ToLocalMarked(marked);
  PercentDecodeMarked(marked);
  if (marked->text.find('&') != std::string::npos) {
    if (lower) CCharSet::LowerAscii(&marked->text);
    ChangeMarked(marked, [](std::string text) { return DecodeHtmlEntities(text); });
  }
  std::replace(marked->text.begin(), marked->text.end(), '+', ' ');
}

}  // namespace

std::string NormalizeText(std::string text) {
  MarkedText marked{std::move(text), {}};
  NormalizeSteps(&marked, true);
  return std::move(marked.text);
}

void NormalizeMarked(MarkedText* marked) { NormalizeSteps(marked, false); }

void TrimMarked(MarkedText* marked) {
  const std::string_view trimmed = Trim(marked->text);
  const auto front = static_cast<std::size_t>(trimmed.data() - marked->text.data());
  const std::size_t size = trimmed.size();
  if (size == marked->text.size()) return;
  marked->text.resize(front + size);
  marked->text.erase(0, front);
  for (TextPlace& place : marked->places) {
    const std::size_t begin = std::max(place.offset, front) - front;
    const std::size_t end = std::max(place.offset + place.length, front) - front;
    place = {std::min(begin, size), std::min(end, size) - std::min(begin, size)};
  }
}

void DecodeBodyMarked(MarkedText* marked) {
  PercentDecodeMarked(marked);
  ToLocalMarked(marked);
  TrimMarked(marked);
}

std::string DecodeBody(std::string_view raw) {
  MarkedText marked{PercentDecode(raw), {}};
  ToLocalMarked(&marked);
  TrimMarked(&marked);
  return std::move(marked.text);
}

std::int32_t ToNumber(std::string_view text) {
  std::size_t pos = 0;
  while (pos < text.size() && IsSpace(text[pos])) ++pos;
  const bool negative = pos < text.size() && text[pos] == '-';
  if (pos < text.size() && (text[pos] == '-' || text[pos] == '+')) ++pos;
  constexpr std::int64_t kLimit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  std::int64_t value = 0;
  for (; pos < text.size() && IsDigit(text[pos]); ++pos) value = std::min(value * 10 + (text[pos] - '0'), kLimit);
  if (negative) return static_cast<std::int32_t>(-value);
  return static_cast<std::int32_t>(std::min(value, kLimit - 1));
}

std::uint32_t DigitsToNumber(std::string_view text) {
  std::uint64_t value = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return 0;
    value = value * 10 + static_cast<std::uint64_t>(c - '0');
    if (value > std::numeric_limits<std::uint32_t>::max()) return 0;
  }
  return static_cast<std::uint32_t>(value);
}

std::string_view TaggedPart(std::string_view text, std::string_view name) {
  const std::string open = "<" + std::string(name) + ">";
  const std::string close = "</" + std::string(name) + ">";
  const std::size_t begin = text.find(open);
  if (begin == std::string_view::npos) return {};
  const std::string_view rest = text.substr(begin + open.size());
  const std::size_t end = rest.find(close);
  return end == std::string_view::npos ? std::string_view{} : rest.substr(0, end);
}

bool HasTag(std::string_view text, std::string_view name) {
  return text.find("<" + std::string(name) + ">") != std::string_view::npos;
}

bool IsTagDamaged(std::string_view text, std::string_view name) {
  const std::size_t open = text.find("<" + std::string(name) + ">");
  return (open == std::string_view::npos) !=
         (text.find("</" + std::string(name) + ">", open == text.npos ? 0 : open) == std::string_view::npos);
}

}  // namespace qiv
