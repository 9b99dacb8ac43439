// What the names of charsets mean for who searches texts: one table for requests and responses.
#pragma once

#include <cstdint>
#include <string_view>

namespace qiv {

enum class CharsetKind : std::uint8_t {
  kNone,  ///< no name
  kUtf8,
  kLocal,       ///< GBK and its kin
  kWideLittle,  ///< UTF-16
  kWideBig,
  kWide,        ///< UTF-32, UCS-4
  kDoubleByte,  ///< Big5, Shift-JIS, EUC-KR and others in which a byte of a character may look like ASCII, or like GBK
  kUnreadable,  ///< UTF-7, EBCDIC: ASCII characters are not themselves
  kSingle,      ///< ASCII characters are themselves, and what else there is is its own
  kUnknown,     ///< a name that nobody knows: browsers go by what they see
};

/// By how the name begins, in any case.
CharsetKind KindOfCharset(std::string_view name);

/// The name behind the first "charset=" (or another `key`) of a type or other attributes, without quotes; empty: none.
std::string_view CharsetName(std::string_view attributes, std::string_view key = "charset");

}  // namespace qiv
