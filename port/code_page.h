// Conversion between UTF-8, UTF-16 and GBK (code page 936), the same result on every system.
//
// GBK is code page 936 as published: ASCII, 0x80 as the euro sign, and the 21,791 double-byte characters of
// port/gbk_table.inc. Private-use characters are not held. No best-fit mapping is made (a look-alike never turns into a
// quote). The conversions use that table on every system instead of the system's own converters, which differ in
// detail and may be missing from a small installation.
//
// Thread safe, linear. Malformed input never fails: each undecodable byte or UTF-16 unit becomes U+FFFD in UTF-16 and
// UTF-8, as does a lead and trail byte that together stand for no character; each character that GBK does not hold (and
// each undecodable byte or unit) becomes "?" in GBK.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qiv {

std::u16string Utf8ToUtf16(std::string_view utf8);
std::string Utf16ToUtf8(std::u16string_view utf16);
std::u16string GbkToUtf16(std::string_view gbk);
std::string Utf16ToGbk(std::u16string_view utf16);

/// The same as going through UTF-16, without the copy in between.
std::string Utf8ToGbk(std::string_view utf8);
/// The same without a second buffer: for texts as large as a body.
void Utf8ToGbkInPlace(std::string* text);
std::string GbkToUtf8(std::string_view gbk);

/// Bytes of the well-formed UTF-8 sequence (RFC 3629) at `pos` < utf8.size(), 1 to 4; 0 when there is none. `code`
/// receives the character.
std::size_t DecodeUtf8(std::string_view utf8, std::size_t pos, char32_t* code);
/// Appends a code point (not a surrogate, at most U+10FFFF) as UTF-8.
void AppendUtf8(char32_t code, std::string* out);

}  // namespace qiv
