#include "checks/plain_value.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/ascii.h"
#include "base/hex.h"

namespace qiv {
namespace {

enum Kind : std::uint8_t {
  kNone = 0,
  kBlank = 1,
  kTelling = 2,
  kEscape = 4,  // "%"
};
using Kinds = std::array<std::uint8_t, 256>;

/// SQL by its form (sql_expression_detector.h) holds one of these, or more than one blank side by side, or begins with
/// neither a letter nor a character; scripting (xss_forms.h) holds one of these or an escape.
constexpr Kinds kText = [] {
  Kinds kinds{};
  for (std::size_t c = 0; c < 0x20; ++c) kinds[c] = kTelling;
  for (const char c : {'\'', '"', '`', '(', '=', '<', '>', '|', '&', ';', '*', '[', '{', '\\', '\x7F', '\xA0'})
    kinds[static_cast<unsigned char>(c)] = kTelling;
  kinds[' '] = kBlank;
  kinds['%'] = kEscape;
  return kinds;
}();

/// Also the first bytes of characters that western code pages fold to ASCII, and of overlong ones.
constexpr Kinds kSent = [] {
  Kinds kinds = kText;
  for (const unsigned char c : {0xC0, 0xC1, 0xC2, 0xCA, 0xCB, 0xE0, 0xE2, 0xE3, 0xEF, 0xF0}) kinds[c] = kTelling;
  return kinds;
}();

constexpr Kinds kForm = [] {
  Kinds kinds = kSent;
  kinds['+'] = kBlank;
  return kinds;
}();

/// Where some servers decode and others do not.
constexpr Kinds kUndecided = [] {
  Kinds kinds = kSent;
  kinds['%'] = kinds['+'] = kTelling;
  return kinds;
}();

/// `decoded`: "%XX" is read as the byte it stands for; else it tells, as a "%" that begins no escape does there.
bool IsPlain(std::string_view text, const Kinds& kinds, bool decoded) {
  unsigned before = 0;
  unsigned blanks = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned kind = kinds[static_cast<unsigned char>(text[i])];
    if ((kind & (before | kTelling | kEscape)) != 0) {
      if ((kind & kEscape) == 0) return false;
      const int byte = HexNumber(text, i + 1, 2);
      if (decoded) {
        if (byte < 0) return false;
        kind = kSent[static_cast<std::size_t>(byte)];
        if ((kind & (before | kTelling | kEscape)) != 0) return false;
        i += 2;
      } else if (byte >= 0 || (i + 1 < text.size() && LowerByte(text[i + 1]) == 'u')) {
        return false;
      }
    }
    before = kind & kBlank;
    blanks |= before;
  }
  if (blanks == 0) return true;
  const int escaped = decoded ? EscapedByte(text, 0) : -1;
  const char first = escaped >= 0 ? static_cast<char>(escaped) : text.front();
  return IsLetter(first) || static_cast<unsigned char>(first) >= 0x80;
}

}  // namespace

bool IsPlainText(std::string_view text) { return IsPlain(text, kText, false); }

bool IsPlainValue(const RequestValue& value) {
  switch (value.encoding) {
    case RequestValue::kForm:
    case RequestValue::kQuery:
      return IsPlain(value.raw, kForm, true);
    case RequestValue::kPlain:
    case RequestValue::kJson:  // a backslash tells
    case RequestValue::kXml:   // a reference too
      return IsPlain(value.raw, kSent, false);
    case RequestValue::kPercent:
    case RequestValue::kCookie:
      return IsPlain(value.raw, kUndecided, false);
    case RequestValue::kConverted:
      break;
  }
  return false;
}

}  // namespace qiv
