#include "tools/printable.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/hex.h"
#include "common/char_set.h"
#include "port/code_page.h"

namespace qiv {
namespace {

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// C1 control characters, U+0080 to U+009F, which some terminals obey.
bool IsWideControl(std::string_view rest) {
  return rest.size() > 1 && rest[0] == '\xC2' && static_cast<unsigned char>(rest[1]) < 0xA0;
}

// Bytes of the UTF-8 character that `rest` begins with; 0 when it is none that may be shown.
std::size_t ShownLength(std::string_view rest) {
  if (static_cast<unsigned char>(rest[0]) < 0x80) return IsControl(rest[0]) ? 0 : 1;
  if (IsWideControl(rest)) return 0;
  for (std::size_t length = 2; length <= 4 && length <= rest.size(); ++length) {
    if (CCharSet::IsValidUtf8(rest.substr(0, length))) return length;
  }
  return 0;
}

// Marks and overrides of the direction of writing, line ends beyond ASCII, and characters without a width: a text that
// holds them does not read as it is written.
bool IsUnseen(char32_t code) {
  constexpr std::pair<char32_t, char32_t> kRanges[] = {
      {0x80, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x115F, 0x1160}, {0x180E, 0x180E}, {0x200B, 0x200F},
      {0x2028, 0x202E}, {0x2060, 0x206F}, {0x3164, 0x3164}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
  return std::any_of(std::begin(kRanges), std::end(kRanges),
                     [code](const auto& range) { return code >= range.first && code <= range.second; });
}

bool IsPlainPath(std::string_view path) {
  for (std::size_t i = 0; i < path.size();) {
    const std::size_t length = ShownLength(path.substr(i));
    if (length == 0) return false;
    i += length;
  }
  return true;
}

}  // namespace

std::string Printable(std::string_view local) { return PrintableUtf8(CCharSet::LocalToUtf8(local)); }

std::string PrintableUtf8(std::string text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsControl(text[i])) text[i] = ' ';
    if (IsWideControl(std::string_view(text).substr(i))) text.replace(i, 2, "  ");
  }
  return text;
}

std::string VisibleUtf8(std::string_view text) {
  std::string visible;
  visible.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    char32_t code = 0;
    const std::size_t length = DecodeUtf8(text, i, &code);
    if (length == 0) {
      visible += "\xEF\xBF\xBD";
    } else if (length == 1 && IsControl(text[i])) {
      visible += "\\x";
      AppendHexByte(text[i], &visible);
    } else if (length > 1 && IsUnseen(code)) {
      visible += "\\u";
      for (int shift = code > 0xFFFF ? 16 : 12; shift >= 0; shift -= 4) visible += kHexDigits[code >> shift & 0xF];
    } else {
      visible += text.substr(i, length);
    }
    i += std::max<std::size_t>(length, 1);
  }
  return visible;
}

std::string PrintablePath(std::string_view path) {
  if (IsPlainPath(path)) return std::string(path);
  std::string text;
  for (std::size_t i = 0; i < path.size();) {
    const std::size_t length = path[i] == '\\' ? 0 : ShownLength(path.substr(i));
    if (length == 0) {
      text += "\\x";
      AppendHexByte(path[i], &text);
    }
    text += path.substr(i, length);
    i += length == 0 ? 1 : length;
  }
  return text;
}

}  // namespace qiv
