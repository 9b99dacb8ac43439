// Texts and paths as a terminal or a log may be shown them: UTF-8, without control characters.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

/// GBK to UTF-8; control characters become blanks: texts can quote a request or a file.
std::string Printable(std::string_view local);
/// The same for a text that is UTF-8 already.
std::string PrintableUtf8(std::string text);

/// The same, but what was there can be told: control characters, and those that turn the direction of writing or take
/// no room, become "\x1B" and "\u202E"; what is no UTF-8 becomes U+FFFD.
std::string VisibleUtf8(std::string_view text);

/// A path as it is; bytes that are no UTF-8 and control characters become "\xHH", and then also "\" becomes "\x5C", so
/// that the bytes can be told.
std::string PrintablePath(std::string_view path);

}  // namespace qiv
