// The module's process-wide state.
#pragma once

#include <string>

#include "config/qiv_config.h"

namespace qiv {

/// The configuration object of this process. In the library file it is built while the file is loaded (dll_entry.cpp),
/// from the file's own directory. Programs that link the module's sources call InitialiseModule first.
CQivConfig& ModuleConfig();

/// For tests and tools that hold the module in process: builds the state for another directory (with or without its
/// trailing separator), replacing what was there. `with_log`: write the event log there. Not while requests run.
void InitialiseModule(std::string module_directory, bool with_log);

}  // namespace qiv
