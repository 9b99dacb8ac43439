// Only in the library file: builds the state while the file is loaded, before the server calls RegisterModule.
//
// This runs inside the system's loader, so it only forms paths and initialises locks; files are read by the first
// refresh tick.
#include "module/module_state.h"
#include "port/module_path.h"

namespace {

const char anchor = 0;  // an address inside this file

struct CModuleStart {
  CModuleStart() noexcept {
    try {
      qiv::InitialiseModule(qiv::ModuleDirectory(&anchor), true);
    } catch (...) {
      // Out of memory this early: RegisterModule tries again.
    }
  }
};
const CModuleStart module_start;

}  // namespace
