// Where the loaded module file lies.
#pragma once

#include <string>

namespace qiv {

/// Separator that ModuleDirectory ends with and paths below it use: "\\" on Windows, "/" elsewhere.
extern const char kPathSeparator;

/// Directory of the executable or library file that holds the code or data at `address`, UTF-8, with its trailing
/// separator; "./" (".\") when it cannot be found. Safe to call while the library is being loaded.
std::string ModuleDirectory(const void* address);

}  // namespace qiv
