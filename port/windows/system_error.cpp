#include "port/system_error.h"

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "port/code_page.h"

namespace qiv {

std::string LastSystemError() {
  const DWORD code = GetLastError();
  wchar_t text[512];
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                     nullptr, code, 0, text, 512, nullptr);
  std::string reason = Utf16ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(text), length));
  while (!reason.empty() && (reason.back() == ' ' || reason.back() == '.')) reason.pop_back();
  return reason.empty() ? "error " + std::to_string(code) : reason;
}

}  // namespace qiv
