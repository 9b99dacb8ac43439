#include "checks/value_forms.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/hex.h"
#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;

constexpr unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

/// What the character of two or three bytes becomes in a western code page's best fit; 0: no ASCII character.
char Folded(char32_t character) {
  struct Fold {
    char32_t from;
    char to;
  };
  static constexpr Fold kFolds[] = {
      {0xA0, ' '},   {0x2B9, '\''}, {0x2BA, '"'},  {0x2BC, '\''}, {0x2C8, '\''}, {0x2CB, '`'},  {0x2032, '\''},
      {0x2033, '"'}, {0x2035, '`'}, {0x2044, '/'}, {0x2212, '-'}, {0x2215, '/'}, {0x2217, '*'}, {0x2223, '|'},
      {0x2236, ':'}, {0x223C, '~'}, {0x2329, '<'}, {0x232A, '>'}, {0x3000, ' '}, {0x3008, '<'}, {0x3009, '>'},
  };
  if (character < 0x80) return static_cast<char>(character);  // overlong
  if (character >= 0xFF01 && character <= 0xFF5E) return static_cast<char>(character - 0xFF01 + '!');
  const auto* const fold = std::lower_bound(std::begin(kFolds), std::end(kFolds), character,
                                            [](const Fold& a, char32_t b) { return a.from < b; });
  return fold != std::end(kFolds) && fold->from == character ? fold->to : '\0';
}

/// Punctuation of ordinary Chinese and Japanese: a text that holds nothing else of that kind is not judged once more.
bool IsEastAsianPunctuation(char32_t character) {
  constexpr std::u32string_view kOrdinary =
      U"\u3000\u3008\u3009\uFF01\uFF05\uFF08\uFF09\uFF0C\uFF0E\uFF1A\uFF1B\uFF1F\uFF5E";
  return kOrdinary.find(character) != std::u32string_view::npos;
}

/// The character at `at`, read without asking whether it could be shorter; *length is its bytes, 1 when it is none.
char32_t CarelessUtf8(std::string_view text, std::size_t at, std::size_t* length) {
  const unsigned char lead = Byte(text[at]);
  const std::size_t more = lead >= 0xF8 || lead < 0xC0 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  *length = 1;
  if (more == 0 || text.size() - at <= more) return lead;
  char32_t character = lead & (0x3FU >> more);
  for (std::size_t i = 1; i <= more; ++i) {
    const unsigned char next = Byte(text[at + i]);
    if ((next & 0xC0U) != 0x80) return lead;
    character = character << 6U | (next & 0x3FU);
  }
  *length = more + 1;
  return character;
}

/// Whether the raw text holds a "%" that begins no escape; then *without has none of them.
bool DropLonePercents(std::string_view raw, std::string* without) {
  const auto begins_escape = [raw](std::size_t at) {
    return HexNumber(raw, at + 1, 2) >= 0 ||
           (at + 1 < raw.size() && (raw[at + 1] == 'u' || raw[at + 1] == 'U') && HexNumber(raw, at + 2, 4) >= 0);
  };
  std::size_t kept = 0;
  without->clear();
  for (std::size_t at = raw.find('%'); at != kEnd; at = raw.find('%', at + 1)) {
    if (begins_escape(at)) continue;
    without->append(raw, kept, at - kept);
    kept = at + 1;
  }
  if (kept == 0) return false;
  without->append(raw, kept);
  return true;
}

}  // namespace

bool FoldWestern(std::string_view text, std::string* folded) {
  if (CCharSet::IsAscii(text)) return false;
  std::size_t kept = 0;
  bool telling = false;
  folded->clear();
  for (std::size_t at = 0; at < text.size();) {
    if (Byte(text[at]) < 0xC0) {
      ++at;
      continue;
    }
    std::size_t length = 1;
    const char32_t character = CarelessUtf8(text, at, &length);
    const char fold = length > 1 ? Folded(character) : '\0';
    if (fold != '\0') {
      folded->append(text, kept, at - kept);
      *folded += fold;
      kept = at + length;
      telling = telling || !IsEastAsianPunctuation(character);
    }
    at += length;
  }
  if (!telling) return false;
  folded->append(text, kept);
  return true;
}

bool ForEachForm(const RequestValue& value, ValueFormRoom* room, const std::function<bool(const ValueForm&)>& visit) {
  const auto visit_both = [&](std::string_view text, bool is_sent) {
    if (!visit({text, is_sent})) return false;
    return !FoldWestern(text, &room->folded) || visit({room->folded, false});
  };
  const std::string_view decoded = value.Decoded(&room->decoded);
  if (!visit_both(decoded, value.IsSent(decoded))) return false;
  const bool undecoded = value.encoding == RequestValue::kPercent || value.encoding == RequestValue::kCookie;
  if (undecoded && decoded != value.raw && !visit({value.raw, true})) return false;
  const bool asp = value.encoding == RequestValue::kQuery || value.encoding == RequestValue::kForm ||
                   value.encoding == RequestValue::kCookie;
  if (!asp || !DropLonePercents(value.raw, &room->without)) return true;
  const RequestValue dropped{value.name, room->without, value.encoding};
  return visit_both(dropped.Decoded(&room->decoded), false);
}

}  // namespace qiv
