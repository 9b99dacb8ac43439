#include "port/windows/wide_path.h"

#include <windows.h>

#include "port/code_page.h"

namespace qiv {

std::wstring Wide(const std::string& text) {
  const std::u16string units = Utf8ToUtf16(text);
  return {units.begin(), units.end()};
}

std::wstring WidePath(const std::string& path) {
  constexpr std::size_t kPlainLimit = 240;  // MAX_PATH less room for the 8.3 name that directories need
  std::wstring wide = Wide(path);
  for (wchar_t& c : wide) {
    if (c == L'/') c = L'\\';
  }
  if (wide.size() < kPlainLimit || wide.starts_with(L"\\\\?\\")) return wide;
  const DWORD needed = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  std::wstring full(needed, L'\0');
  const DWORD length = GetFullPathNameW(wide.c_str(), needed, full.data(), nullptr);
  if (length == 0 || length >= needed) return wide;
  full.resize(length);
  return full.starts_with(L"\\\\") ? L"\\\\?\\UNC\\" + full.substr(2) : L"\\\\?\\" + full;
}

}  // namespace qiv
