#include "common/char_set.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/ascii.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;

std::uint64_t LoadWord(const char* bytes) {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

// First position at or after `pos` whose byte is not ASCII, or the size.
std::size_t SkipAscii(std::string_view text, std::size_t pos) {
  while (pos + 8 <= text.size() && (LoadWord(text.data() + pos) & kHighBits) == 0) pos += 8;
  while (pos < text.size() && static_cast<unsigned char>(text[pos]) < 0x80) ++pos;
  return pos;
}

// Eight ASCII bytes at once: sets bit 5 in each byte from "A" to "Z".
std::uint64_t LowerWord(std::uint64_t word) {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  const std::uint64_t from_a = word + kOnes * (0x80 - 'A');
  const std::uint64_t past_z = word + kOnes * (0x7F - 'Z');
  return word | ((from_a ^ past_z) & kHighBits) >> 2;
}

// Whether a character starts at `pos`, when one starts at `from`. Lead bytes are valid trail bytes too, and any other
// byte ends its character whichever it is; so within the unbroken run of lead bytes before `pos`, characters pair up
// from the run's start. Looks at that run only.
bool IsBoundary(std::string_view text, std::size_t from, std::size_t pos) {
  if (pos >= text.size() || !CCharSet::IsTrailByte(static_cast<unsigned char>(text[pos]))) return true;
  std::size_t start = pos;
  while (start > from && CCharSet::IsLeadByte(static_cast<unsigned char>(text[start - 1]))) --start;
  return (pos - start) % 2 == 0;
}

}  // namespace

bool CCharSet::IsAscii(std::string_view text) { return SkipAscii(text, 0) == text.size(); }

bool CCharSet::IsValidUtf8(std::string_view text) {
  std::size_t pos = SkipAscii(text, 0);
  while (pos < text.size()) {
    char32_t code;
    const std::size_t length = DecodeUtf8(text, pos, &code);
    if (length == 0) return false;
    pos += length;
    if (pos < text.size() && static_cast<unsigned char>(text[pos]) < 0x80) pos = SkipAscii(text, pos);
  }
  return true;
}

std::string CCharSet::ToLocal(std::string text) {
  if (text.size() < 3 || IsAscii(text) || !IsValidUtf8(text)) return text;
  Utf8ToGbkInPlace(&text);
  return text;
}

std::string CCharSet::LocalToUtf8(std::string_view text) { return GbkToUtf8(text); }

std::string CCharSet::Utf8ToLocal(std::string_view text) { return Utf8ToGbk(text); }

bool CCharSet::Survives(std::string_view utf8) {
  return IsAscii(utf8) || (IsValidUtf8(utf8) && GbkToUtf8(Utf8ToGbk(utf8)) == utf8);
}

void CCharSet::LowerAscii(std::string* text) {
  const std::size_t size = text->size();
  char* bytes = text->data();
  unsigned after_lead = 0;  // the byte before begins a character of two bytes, if this one can be its second
  for (std::size_t pos = 0; pos < size;) {
    if (after_lead == 0 && pos + 8 <= size) {
      const std::uint64_t word = LoadWord(bytes + pos);
      if ((word & kHighBits) == 0) {
        const std::uint64_t lower = LowerWord(word);
        std::memcpy(bytes + pos, &lower, sizeof(lower));
        pos += 8;
        continue;
      }
    }
    // Without branches: in packed bytes each would be a guess.
    for (const std::size_t end = std::min(pos + 8, size); pos < end; ++pos) {
      const auto c = static_cast<unsigned char>(bytes[pos]);
      const unsigned is_trail =
          static_cast<unsigned>(c >= 0x40) & static_cast<unsigned>(c <= 0xFE) & static_cast<unsigned>(c != 0x7F);
      const unsigned fresh = 1U ^ (after_lead & is_trail);
      const unsigned is_upper = static_cast<unsigned>(c - unsigned{'A'} < 26U);
      bytes[pos] = static_cast<char>(c | ((is_upper & fresh) << 5U));
      after_lead = fresh & static_cast<unsigned>(c - 0x81U <= 0xFEU - 0x81U);
    }
  }
}

std::string CCharSet::LowerAscii(std::string_view text) {
  std::string lower(text);
  LowerAscii(&lower);
  return lower;
}

void CCharSet::LowerBytes(std::string_view text, char* lower) {
  constexpr std::uint64_t kEach = 0x0101010101010101;
  std::size_t at = 0;
  for (; at + sizeof(std::uint64_t) <= text.size(); at += sizeof(std::uint64_t)) {
    std::uint64_t bytes = LoadWord(text.data() + at);
    // The high bit of each byte that is "A" to "Z": none of the sums reaches the next byte.
    const std::uint64_t low = bytes & 0x7F * kEach;
    const std::uint64_t letters = (low + (0x80 - 'A') * kEach) & ~(low + (0x7F - 'Z') * kEach) & ~bytes & 0x80 * kEach;
    bytes |= letters >> 2U;
    std::memcpy(lower + at, &bytes, sizeof(bytes));
  }
  for (; at < text.size(); ++at) lower[at] = LowerByte(text[at]);
}

std::string CCharSet::LowerBytes(std::string_view text) {
  std::string lower(text.size(), '\0');
  LowerBytes(text, lower.data());
  return lower;
}

std::size_t CCharSet::FindCharacter(std::string_view text, char c, std::size_t from) {
  if (!IsTrailByte(static_cast<unsigned char>(c)) && !IsLeadByte(static_cast<unsigned char>(c))) {
    return text.find(c, from);
  }
  if (static_cast<unsigned char>(c) < 0x80) {
    // Between two occurrences there is no other, so each look back ends at the one before: linear.
    for (std::size_t pos = text.find(c, from); pos != text.npos; pos = text.find(c, pos + 1)) {
      if (IsBoundary(text, from, pos)) return pos;
    }
    return text.npos;
  }
  for (std::size_t pos = from; pos < text.size();) {
    const std::size_t length = CharacterLength(text, pos);
    if (length == 1 && text[pos] == c) return pos;
    pos += length;
  }
  return text.npos;
}

std::string_view CCharSet::Prefix(std::string_view text, std::size_t limit) {
  if (limit >= text.size()) return text;
  return text.substr(0, IsBoundary(text, 0, limit) ? limit : limit - 1);
}

}  // namespace qiv
