#include "port/administration.h"

#include <windows.h>

#include "port/code_page.h"
#include "port/windows/wide_path.h"

namespace qiv {

bool IsElevated() {
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  PSID administrators = nullptr;
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                &administrators)) {
    return false;
  }
  // Without elevation the group is in the token for denying only, and this says no.
  BOOL is_member = FALSE;
  const BOOL known = CheckTokenMembership(nullptr, administrators, &is_member);
  FreeSid(administrators);
  return known && is_member;
}

std::string EnvironmentText(const std::string& name) {
  const std::u16string units = Utf8ToUtf16(name);
  const std::wstring wide(units.begin(), units.end());
  std::u16string value(32767, u'\0');  // the longest that there can be
  const DWORD length =
      GetEnvironmentVariableW(wide.c_str(), reinterpret_cast<wchar_t*>(value.data()), static_cast<DWORD>(value.size()));
  return length < value.size() ? Utf16ToUtf8(std::u16string_view(value).substr(0, length)) : std::string();
}

std::string ProgramFile() {
  std::u16string file(32768, u'\0');  // the longest path that Windows knows, with its end
  const DWORD length =
      GetModuleFileNameW(nullptr, reinterpret_cast<wchar_t*>(file.data()), static_cast<DWORD>(file.size()));
  return length < file.size() ? Utf16ToUtf8(std::u16string_view(file).substr(0, length)) : std::string();
}

bool RemoveAtRestart(const std::string& path) {
  return MoveFileExW(WidePath(path).c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

}  // namespace qiv
