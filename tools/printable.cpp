#include "tools/printable.h"

#include <algorithm>

#include "common/char_set.h"

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

std::string PrintablePath(std::string_view path) {
  if (IsPlainPath(path)) return std::string(path);
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < path.size();) {
    const std::size_t length = path[i] == '\\' ? 0 : ShownLength(path.substr(i));
    if (length == 0) {
      const auto byte = static_cast<unsigned char>(path[i]);
      text.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    }
    text += path.substr(i, length);
    i += length == 0 ? 1 : length;
  }
  return text;
}

}  // namespace qiv
