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
  kUnreadable,  ///< UTF-7, EBCDIC, ISO-2022, HZ: ASCII characters are not themselves, or not everywhere
  kSingle,      ///< ASCII characters are themselves, and what else there is is its own
  kUnknown,     ///< a name that nobody knows: browsers go by what they see
};

/// By how the name begins, in any case.
CharsetKind KindOfCharset(std::string_view name);

inline bool IsWideCharset(CharsetKind kind) {
  return kind == CharsetKind::kWideLittle || kind == CharsetKind::kWideBig || kind == CharsetKind::kWide;
}

/// The name behind the first "charset=" (or another `key`) of a type or other attributes, without quotes; empty: none.
/// The key is a name of its own: in "xcharset=" it does not stand.
std::string_view CharsetName(std::string_view attributes, std::string_view key = "charset");

/// The first name behind any "charset=", also within another name, that is of a `wanted` kind; empty: none. For what a
/// request says: servers differ in which one they take.
std::string_view FindCharset(std::string_view attributes, bool (*wanted)(CharsetKind));

}  // namespace qiv
