// Bodies that are not ASCII at heart: what a page reads in them stands in no byte as it is searched for.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum class BodyCharset : std::uint8_t {
  kAscii,       ///< every charset in which ASCII characters are themselves, and no charset
  kWide,        ///< UTF-16 or UTF-32: can be read (WideToUtf8)
  kUnreadable,  ///< UTF-7, EBCDIC, ISO-2022: no client sends it but to hide what it sends
};

/// By any "charset" of the type, the least readable of them, or by a mark at the body's beginning. `name`: where the
/// name goes that told; empty when none did.
BodyCharset CharsetOfBody(std::string_view content_type, std::string_view body, std::string_view* name = nullptr);
/// Which order and width the units have is told by where their zero bytes stand. What is no character is left out.
std::string WideToUtf8(std::string_view body);

}  // namespace qiv
