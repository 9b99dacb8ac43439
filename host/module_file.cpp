#include "host/module_file.h"

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "port/code_page.h"
#include "port/system_error.h"
#else
#include <dlfcn.h>
#endif

namespace qiv::host {

#if defined(_WIN32)

void* LoadModuleFile(const std::string& path, iis::RegisterModuleFunction* entry, std::string* error) {
  std::u16string wide = Utf8ToUtf16(path);
  // A full path, so that the module's own folder (and no other) is searched for what it needs.
  wchar_t full[4096];
  const DWORD length = GetFullPathNameW(reinterpret_cast<const wchar_t*>(wide.c_str()), 4096, full, nullptr);
  const HMODULE module =
      length == 0 || length >= 4096 ? nullptr : LoadLibraryExW(full, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (module == nullptr) {
    *error = path + ": cannot be loaded: " + LastSystemError();
    return nullptr;
  }
  *entry =
      reinterpret_cast<iis::RegisterModuleFunction>(reinterpret_cast<void*>(GetProcAddress(module, "RegisterModule")));
  if (*entry == nullptr) {
    *error = path + ": does not export RegisterModule";
    FreeLibrary(module);
    return nullptr;
  }
  return module;
}

void UnloadModuleFile(void* file) { FreeLibrary(static_cast<HMODULE>(file)); }

#else

void* LoadModuleFile(const std::string& path, iis::RegisterModuleFunction* entry, std::string* error) {
  // Without a slash the name would be searched for in the system's folders.
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    *error = path + ": cannot be loaded: " + dlerror();
    return nullptr;
  }
  *entry = reinterpret_cast<iis::RegisterModuleFunction>(dlsym(module, "RegisterModule"));
  if (*entry == nullptr) {
    *error = path + ": does not export RegisterModule";
    dlclose(module);
    return nullptr;
  }
  return module;
}

void UnloadModuleFile(void* file) { dlclose(file); }

#endif

}  // namespace qiv::host
