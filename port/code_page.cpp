#include "port/code_page.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qiv {
namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr char16_t kEuro = 0x20AC;  // the one single-byte character above ASCII
constexpr std::size_t kLeads = 126;
constexpr std::size_t kTrails = 190;

constexpr char16_t kGbk[kLeads][kTrails + 1] = {
#include "port/gbk_table.inc"
};

// Code unit to GBK: the byte pair as one number, the single byte 0x80 for the euro sign, 0 for none.
consteval std::array<std::uint16_t, 0x10000> ReverseTable() {
  std::array<std::uint16_t, 0x10000> table{};
  for (std::size_t lead = 0; lead < kLeads; ++lead) {
    for (std::size_t trail = 0; trail < kTrails; ++trail) {
      const char16_t unit = kGbk[lead][trail];
      const std::size_t trail_byte = trail + (trail < 0x3F ? 0x40 : 0x41);
      if (unit != kReplacement) table[unit] = static_cast<std::uint16_t>((lead + 0x81) << 8 | trail_byte);
    }
  }
  table[kEuro] = 0x80;
  return table;
}

constexpr std::array<std::uint16_t, 0x10000> kToGbk = ReverseTable();

// Length of the run of ASCII bytes that begins at `pos`.
std::size_t AsciiRun(std::string_view text, std::size_t pos) {
  const std::size_t begin = pos;
  while (pos + 8 <= text.size()) {
    std::uint64_t word;
    std::memcpy(&word, text.data() + pos, 8);
    if ((word & 0x8080808080808080U) != 0) break;
    pos += 8;
  }
  while (pos < text.size() && static_cast<unsigned char>(text[pos]) < 0x80) ++pos;
  return pos - begin;
}

// Decodes the GBK character at `pos` and steps over it.
char16_t NextGbk(std::string_view gbk, std::size_t* pos) {
  const unsigned lead = static_cast<unsigned char>(gbk[(*pos)++]);
  if (lead == 0x80) return kEuro;
  if (lead == 0xFF || *pos == gbk.size()) return kReplacement;
  const unsigned trail = static_cast<unsigned char>(gbk[*pos]);
  if (trail < 0x40 || trail == 0x7F || trail == 0xFF) return kReplacement;
  ++*pos;
  return kGbk[lead - 0x81][trail - (trail < 0x7F ? 0x40 : 0x41)];
}

// Writes the character in GBK, at most 2 bytes; returns how many.
std::size_t PutGbk(char32_t code, char* out) {
  const unsigned bytes = code < 0x80 ? code : code < 0x10000 ? kToGbk[code] : 0;
  if (bytes > 0xFF) {
    out[0] = static_cast<char>(bytes >> 8);
    out[1] = static_cast<char>(bytes & 0xFF);
    return 2;
  }
  out[0] = bytes == 0 && code != 0 ? '?' : static_cast<char>(bytes);
  return 1;
}

// Writes the character in UTF-8, at most 4 bytes; returns how many.
std::size_t PutUtf8(char32_t code, char* out) {
  if (code < 0x80) {
    out[0] = static_cast<char>(code);
    return 1;
  }
  // From the end: continuation bytes, then the first byte with as many leading ones as there are bytes.
  const std::size_t length = code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
  for (std::size_t i = length - 1; i > 0; --i, code >>= 6) out[i] = static_cast<char>(0x80 | (code & 0x3F));
  out[0] = static_cast<char>(0xF00 >> length | code);
  return length;
}

// Copies ASCII runs and converts what stands between them, through a small buffer: a string's own append for each
// character costs more than the conversion.
template <typename Next, typename Put>
std::string ConvertBytes(std::string_view text, std::size_t expected_size, Next next, Put put) {
  constexpr std::size_t kLongest = 4;
  char buffer[1024];
  std::string out;
  out.reserve(expected_size);
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t run = AsciiRun(text, pos);
    out.append(text, pos, run);
    pos += run;
    std::size_t used = 0;
    while (pos < text.size() && static_cast<unsigned char>(text[pos]) >= 0x80 && used + kLongest <= sizeof(buffer)) {
      used += put(next(text, &pos), buffer + used);
    }
    out.append(buffer, used);
  }
  return out;
}

// Decodes the character at `pos` of a UTF-16 text and steps over it; a lone surrogate is U+FFFD.
char32_t NextUtf16(std::u16string_view text, std::size_t* pos) {
  const char32_t unit = text[(*pos)++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit > 0xDBFF || *pos == text.size()) return kReplacement;
  const char32_t low = text[*pos];
  if (low < 0xDC00 || low > 0xDFFF) return kReplacement;
  ++*pos;
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

// Decodes the character at `pos` of a UTF-8 text and steps over it; an undecodable byte is U+FFFD.
char32_t NextUtf8(std::string_view text, std::size_t* pos) {
  char32_t code = kReplacement;
  const std::size_t length = DecodeUtf8(text, *pos, &code);
  *pos += length == 0 ? 1 : length;
  return length == 0 ? kReplacement : code;
}

void AppendUtf16(char32_t code, std::u16string* out) {
  if (code < 0x10000) {
    out->push_back(static_cast<char16_t>(code));
  } else {
    out->push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
    out->push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
  }
}

bool IsContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

}  // namespace

std::size_t DecodeUtf8(std::string_view utf8, std::size_t pos, char32_t* code) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(utf8[pos + i]); };
  const std::size_t left = utf8.size() - pos;
  const unsigned char first = byte(0);
  if (first < 0x80) {
    *code = first;
    return 1;
  }
  if (first >= 0xC2 && first <= 0xDF && left >= 2 && IsContinuation(byte(1))) {
    *code = static_cast<char32_t>((first & 0x1F) << 6 | (byte(1) & 0x3F));
    return 2;
  }
  if ((first & 0xF0) == 0xE0 && left >= 3 && IsContinuation(byte(1)) && IsContinuation(byte(2))) {
    *code = static_cast<char32_t>((first & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F));
    return *code >= 0x800 && (*code < 0xD800 || *code > 0xDFFF) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4 && left >= 4 && IsContinuation(byte(1)) && IsContinuation(byte(2)) &&
      IsContinuation(byte(3))) {
    *code =
        static_cast<char32_t>((first & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F));
    return *code >= 0x10000 && *code <= 0x10FFFF ? 4 : 0;
  }
  return 0;
}

void AppendUtf8(char32_t code, std::string* out) {
  char bytes[4];
  out->append(bytes, PutUtf8(code, bytes));
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  for (std::size_t pos = 0; pos < utf8.size();) {
    const std::size_t run = AsciiRun(utf8, pos);
    out.append(utf8.begin() + static_cast<std::ptrdiff_t>(pos), utf8.begin() + static_cast<std::ptrdiff_t>(pos + run));
    pos += run;
    if (pos < utf8.size()) AppendUtf16(NextUtf8(utf8, &pos), &out);
  }
  return out;
}

std::string Utf16ToUtf8(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size());
  for (std::size_t pos = 0; pos < utf16.size();) AppendUtf8(NextUtf16(utf16, &pos), &out);
  return out;
}

std::u16string GbkToUtf16(std::string_view gbk) {
  std::u16string out;
  out.reserve(gbk.size());
  for (std::size_t pos = 0; pos < gbk.size();) {
    const std::size_t run = AsciiRun(gbk, pos);
    out.append(gbk.begin() + static_cast<std::ptrdiff_t>(pos), gbk.begin() + static_cast<std::ptrdiff_t>(pos + run));
    pos += run;
    if (pos < gbk.size()) out.push_back(NextGbk(gbk, &pos));
  }
  return out;
}

std::string Utf16ToGbk(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size());
  for (std::size_t pos = 0; pos < utf16.size();) {
    char bytes[2];
    out.append(bytes, PutGbk(NextUtf16(utf16, &pos), bytes));
  }
  return out;
}

std::string Utf8ToGbk(std::string_view utf8) { return ConvertBytes(utf8, utf8.size(), NextUtf8, PutGbk); }

void Utf8ToGbkInPlace(std::string* text) {
  char* const bytes = text->data();
  std::size_t written = 0;  // never beyond `pos`: no character is longer in GBK
  for (std::size_t pos = 0; pos < text->size();) {
    const std::size_t run = AsciiRun(*text, pos);
    if (run != 0 && written != pos) std::memmove(bytes + written, bytes + pos, run);
    written += run;
    pos += run;
    while (pos < text->size() && static_cast<unsigned char>(bytes[pos]) >= 0x80) {
      written += PutGbk(NextUtf8(*text, &pos), bytes + written);
    }
  }
  text->resize(written);
}

std::string GbkToUtf8(std::string_view gbk) { return ConvertBytes(gbk, gbk.size() + gbk.size() / 2, NextGbk, PutUtf8); }

}  // namespace qiv
