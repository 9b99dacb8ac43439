// Texts and paths as the wide-character calls of Windows take them.
#pragma once

#include <string>

namespace qiv {

/// UTF-8 to UTF-16.
std::wstring Wide(const std::string& text);

/// The same of a path, made absolute and given the "\\?\" prefix when it is too long for the plain form.
std::wstring WidePath(const std::string& path);

}  // namespace qiv
