// Conversion between UTF-8, UTF-16 and GBK (code page 936), the same result on every system.
//
// Thread safe. Malformed input never fails: each undecodable byte or unit becomes U+FFFD in UTF-16 and UTF-8, and each
// character that GBK does not hold becomes "?". No best-fit mapping is made (a look-alike never turns into a quote).
#pragma once

#include <string>
#include <string_view>

namespace qiv {

std::u16string Utf8ToUtf16(std::string_view utf8);
std::string Utf16ToUtf8(std::u16string_view utf16);
std::u16string GbkToUtf16(std::string_view gbk);
std::string Utf16ToGbk(std::u16string_view utf16);

}  // namespace qiv
