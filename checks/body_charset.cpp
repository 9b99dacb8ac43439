#include "checks/body_charset.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/charset_label.h"
#include "common/text.h"
#include "port/code_page.h"

namespace qiv {

BodyCharset CharsetOfBody(std::string_view content_type, std::string_view body, std::string_view* name) {
  std::string_view room;
  std::string_view& telling = name ? *name : room;
  telling = FindCharset(content_type, [](CharsetKind kind) { return kind == CharsetKind::kUnreadable; });
  if (!telling.empty()) return BodyCharset::kUnreadable;
  telling = FindCharset(content_type, IsWideCharset);
  const bool wide = !telling.empty() || body.starts_with("\xFF\xFE") || body.starts_with("\xFE\xFF");
  return wide ? BodyCharset::kWide : BodyCharset::kAscii;
}

std::string WideToUtf8(std::string_view body) {
  constexpr std::size_t kSample = 1024;
  std::array<std::size_t, 4> zeros{};
  const std::size_t sample = std::min(body.size(), kSample);
  for (std::size_t i = 0; i < sample; ++i) zeros[i % 4] += body[i] == '\0';
  // In UTF-32 of ordinary texts three bytes of four are zero, in UTF-16 one of two.
  const bool four = sample >= 4 && zeros[0] + zeros[1] + zeros[2] + zeros[3] > sample * 5 / 8;
  const std::size_t width = four ? 4 : 2;
  const bool big = zeros[0] + (four ? zeros[1] : zeros[2]) > zeros[3] + (four ? zeros[2] : zeros[1]);
  std::string text;
  text.reserve(body.size() / width);
  char32_t high = 0;
  for (std::size_t at = 0; at + width <= body.size(); at += width) {
    char32_t unit = 0;
    for (std::size_t i = 0; i < width; ++i) {
      unit = unit << 8U | static_cast<unsigned char>(body[at + (big ? i : width - 1 - i)]);
    }
    if (!four && unit >= 0xD800 && unit < 0xDC00) {
      high = unit;
      continue;
    }
    if (!four && unit >= 0xDC00 && unit < 0xE000) {
      if (high != 0) AppendUtf8(0x10000 + ((high - 0xD800) << 10U) + (unit - 0xDC00), &text);
    } else if (unit != 0xFEFF && unit < 0x110000 && (unit < 0xD800 || unit >= 0xE000)) {
      AppendUtf8(unit, &text);
    }
    high = 0;
  }
  return text;
}

}  // namespace qiv
