#include "module/module_factory.h"

#include <new>

#include "module/module_state.h"
#include "module/qiv_module.h"

namespace qiv {
namespace {

void RunFirstCall() noexcept {
  try {
    ModuleState& state = State();
    if (state.factory_called.load(std::memory_order_relaxed)) return;
    state.factory_called.store(1, std::memory_order_relaxed);
    state.config.RefreshTick();
    state.service.ReadLists();
  } catch (...) {
    // The next tick tries again.
  }
}

}  // namespace

iis::HRESULT CQivIpsIIsModuleFactory::GetHttpModule(iis::CHttpModule** module, iis::IModuleAllocator*) {
  if (!module) return iis::E_INVALIDARG;
  *module = new (std::nothrow) CQivIpsIIsModule;
  if (!*module) return iis::kOutOfMemory;
  RunFirstCall();
  return 0;
}

iis::VOID CQivIpsIIsModuleFactory::Terminate() { delete this; }

}  // namespace qiv
