// HTML character references. The names are those of the HTML Living Standard's entity list (section 13.5) that stand
// for ASCII characters, in lower case, and the no-break space, which reads as a blank here because GBK has none.
// Names are compared without case: several of them ("&Tab;", "&NewLine;", "&Hat;") are written with capitals, and texts
// are lower-cased before they come here.
#include "common/html_entities.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

struct Entity {
  std::string_view name;
  char character;
  bool bare = false;  // also known without ";"
};

constexpr std::array kEntities = {
    Entity{"amp", '&', true},
    Entity{"apos", '\''},
    Entity{"ast", '*'},
    Entity{"bsol", '\\'},
    Entity{"colon", ':'},
    Entity{"comma", ','},
    Entity{"commat", '@'},
    Entity{"diacriticalgrave", '`'},
    Entity{"dollar", '$'},
    Entity{"equals", '='},
    Entity{"excl", '!'},
    Entity{"grave", '`'},
    Entity{"gt", '>', true},
    Entity{"hat", '^'},
    Entity{"lbrace", '{'},
    Entity{"lbrack", '['},
    Entity{"lcub", '{'},
    Entity{"lowbar", '_'},
    Entity{"lpar", '('},
    Entity{"lsqb", '['},
    Entity{"lt", '<', true},
    Entity{"midast", '*'},
    Entity{"nbsp", ' ', true},
    Entity{"newline", '\n'},
    Entity{"nonbreakingspace", ' '},
    Entity{"num", '#'},
    Entity{"percnt", '%'},
    Entity{"period", '.'},
    Entity{"plus", '+'},
    Entity{"quest", '?'},
    Entity{"quot", '"', true},
    Entity{"rbrace", '}'},
    Entity{"rbrack", ']'},
    Entity{"rcub", '}'},
    Entity{"rpar", ')'},
    Entity{"rsqb", ']'},
    Entity{"semi", ';'},
    Entity{"sol", '/'},
    Entity{"tab", '\t'},
    Entity{"underbar", '_'},
    Entity{"verbar", '|'},
    Entity{"vert", '|'},
    Entity{"verticalline", '|'},
};
static_assert(std::is_sorted(kEntities.begin(), kEntities.end(),
                             [](const Entity& a, const Entity& b) { return a.name < b.name; }));
constexpr std::size_t kLongestName = 16;
static_assert(std::all_of(kEntities.begin(), kEntities.end(),
                          [](const Entity& e) { return e.name.size() <= kLongestName; }));

constexpr std::uint32_t kNoBreakSpace = 0xA0;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

// Appends the character; false when there is none.
bool AppendCodePoint(std::uint32_t code, TextEncoding encoding, std::string* result) {
  if (code == 0 || code > kLastCodePoint || (code >= 0xD800 && code <= 0xDFFF)) return false;
  if (code < 0x80) {
    result->push_back(static_cast<char>(code));
  } else if (code == kNoBreakSpace) {
    result->push_back(' ');
  } else if (encoding == TextEncoding::kUtf8) {
    AppendUtf8(code, result);
  } else if (code < 0x10000) {
    result->append(Utf16ToGbk(std::u16string(1, static_cast<char16_t>(code))));
  } else {
    result->push_back('?');  // GBK ends with the basic plane
  }
  return true;
}

constexpr int DigitValue(char c, std::uint32_t base) {
  if (IsDigit(c)) return c - '0';
  if (base == 16 && c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (base == 16 && c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// `text` begins with "&#". Bytes of the reference, its character appended; 0 when it is none.
std::size_t DecodeNumber(std::string_view text, TextEncoding encoding, std::string* result) {
  std::size_t pos = 2;
  const std::uint32_t base = pos < text.size() && (text[pos] == 'x' || text[pos] == 'X') ? 16 : 10;
  if (base == 16) ++pos;
  const std::size_t digits = pos;
  std::uint32_t code = 0;
  for (; pos < text.size(); ++pos) {
    const int digit = DigitValue(text[pos], base);
    if (digit < 0) break;
    code = std::min(code * base + static_cast<std::uint32_t>(digit), kLastCodePoint + 1);
  }
  if (pos == digits || !AppendCodePoint(code, encoding, result)) return 0;
  return pos < text.size() && text[pos] == ';' ? pos + 1 : pos;
}

// `text` begins with "&". Bytes of the reference, its character appended; 0 when it is none.
std::size_t DecodeName(std::string_view text, std::string* result) {
  std::array<char, kLongestName> name;
  std::size_t length = 0;
  while (length < name.size() && 1 + length < text.size() && IsLetter(text[1 + length])) {
    name[length] = static_cast<char>(text[1 + length] | 0x20);
    ++length;
  }
  const std::string_view key(name.data(), length);
  const auto entity = std::lower_bound(kEntities.begin(), kEntities.end(), key,
                                       [](const Entity& e, std::string_view k) { return e.name < k; });
  if (entity == kEntities.end() || entity->name != key) return 0;
  const char after = 1 + length < text.size() ? text[1 + length] : '\0';
  // Without ";" the rule of attribute values holds, where references matter to an attack: a letter, a digit or "="
  // after the name makes it none (and spares a query's parameter named "lt").
  if (after != ';' && (!entity->bare || after == '=' || IsLetter(after) || IsDigit(after))) return 0;
  result->push_back(entity->character);
  return 1 + length + (after == ';' ? 1 : 0);
}

}  // namespace

std::size_t DecodeHtmlEntity(std::string_view text, TextEncoding encoding, std::string* out) {
  if (text.empty() || text[0] != '&') return 0;
  const bool number = text.size() > 1 && text[1] == '#';
  return number ? DecodeNumber(text, encoding, out) : DecodeName(text, out);
}

std::string DecodeHtmlEntities(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t ampersand = std::min(text.find('&', pos), text.size());
    result.append(text.substr(pos, ampersand - pos));
    pos = ampersand;
    if (pos == text.size()) break;
    std::size_t used = DecodeHtmlEntity(text.substr(pos), TextEncoding::kLocal, &result);
    if (used == 0) {
      result.push_back('&');
      used = 1;
    }
    pos += used;
  }
  return result;
}

}  // namespace qiv
