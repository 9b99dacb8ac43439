// Only in the library file: builds the state while the file is loaded, before the server calls RegisterModule.
//
// This runs inside the system's loader, so it only forms paths and initialises locks; files are read by the first
// refresh tick.
#include "module/module_state.h"
#include "port/administration.h"
#include "port/module_path.h"

namespace {

const char anchor = 0;  // an address inside this file

struct CModuleStart {
  CModuleStart() noexcept {
    try {
      // An installer tries a new file with this set, in a process of its own: nothing of that belongs into any log.
      const bool is_trial = !qiv::EnvironmentText("QIV_TRIAL").empty();
      qiv::InitialiseModule(qiv::ModuleDirectory(&anchor), !is_trial);
    } catch (...) {
      // Out of memory this early: RegisterModule tries again.
    }
  }
};
const CModuleStart module_start;

}  // namespace
