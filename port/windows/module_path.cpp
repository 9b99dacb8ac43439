#include "port/module_path.h"

#include <windows.h>

#include "port/code_page.h"

namespace qiv {

const char kPathSeparator = '\\';

std::string ModuleDirectory(const void* address) {
  constexpr std::size_t kMaxPath = 32768;  // the longest path that Windows knows, with its end
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          static_cast<LPCWSTR>(address), &module)) {
    return ".\\";
  }
  for (std::size_t room = 512; room <= kMaxPath; room *= 2) {
    std::wstring file(room, L'\0');
    const DWORD length = GetModuleFileNameW(module, file.data(), static_cast<DWORD>(room));
    if (length == 0) break;
    if (length == room) continue;  // cut
    file.resize(length);
    const std::size_t slash = file.find_last_of(L"\\/");
    if (slash == std::wstring::npos) break;
    return Utf16ToUtf8(std::u16string(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(slash + 1)));
  }
  return ".\\";
}

}  // namespace qiv
