// Loading a module file.
#pragma once

#include <string>

#include "iis/httpserv.h"

namespace qiv::host {

/// Loads a shared library and finds its RegisterModule. Null, with the reason in `error`, when it cannot be loaded or
/// has no such export. `path` is UTF-8.
void* LoadModuleFile(const std::string& path, iis::RegisterModuleFunction* entry, std::string* error);
void UnloadModuleFile(void* file);

}  // namespace qiv::host
