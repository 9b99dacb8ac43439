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
  std::u16string value(32767, u'\0');  // the longest that there can be
  const DWORD length = GetEnvironmentVariableW(Wide(name).c_str(), reinterpret_cast<wchar_t*>(value.data()),
                                               static_cast<DWORD>(value.size()));
  return length < value.size() ? Utf16ToUtf8(std::u16string_view(value).substr(0, length)) : std::string();
}

bool SetEnvironmentText(const std::string& name, const std::string& value) {
  return SetEnvironmentVariableW(Wide(name).c_str(), Wide(value).c_str());
}

std::string RegistryText(const std::string& key, const std::string& value) {
  const std::wstring wide_key = Wide(key);
  const std::wstring wide_value = Wide(value);
  DWORD bytes = 0;
  const auto get = [&](char16_t* text) {
    return RegGetValueW(HKEY_LOCAL_MACHINE, wide_key.c_str(), wide_value.c_str(),
                        RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, text, &bytes) == ERROR_SUCCESS;
  };
  if (!get(nullptr)) return {};
  std::u16string text(bytes / sizeof(char16_t), u'\0');
  if (!get(text.data())) return {};  // changed meanwhile
  return Utf16ToUtf8(std::u16string_view(text.c_str()));
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
