#include "module/register_module.h"

#include <memory>
#include <new>

#include "base/version.h"
#include "module/global_module.h"
#include "module/module_factory.h"
#include "module/module_state.h"

namespace {

using qiv::CQivIpsIIsModuleFactory;
using qiv::MyGlobalModule;

/// So that the first request finds a loaded configuration. Without one the module is there and lets everything pass.
void LoadConfiguration() noexcept {
  try {
    qiv::State().config.RefreshTick();
  } catch (...) {
  }
}

iis::HRESULT RegisterRequestNotifications(iis::IHttpModuleRegistrationInfo& registration) {
  std::unique_ptr<CQivIpsIIsModuleFactory> factory(new (std::nothrow) CQivIpsIIsModuleFactory);
  if (!factory) return iis::kOutOfMemory;
  const iis::HRESULT hr = registration.SetRequestNotifications(
      factory.get(), iis::RQ_BEGIN_REQUEST | iis::RQ_SEND_RESPONSE, iis::RQ_EXECUTE_REQUEST_HANDLER);
  if (iis::Failed(hr)) return hr;
  factory.release();  // the server ends it with Terminate
  registration.SetPriorityForRequestNotification(iis::RQ_BEGIN_REQUEST, iis::PRIORITY_ALIAS_FIRST);
  registration.SetPriorityForRequestNotification(iis::RQ_EXECUTE_REQUEST_HANDLER, iis::PRIORITY_ALIAS_FIRST);
  return 0;
}

iis::HRESULT RegisterGlobalModule(iis::IHttpModuleRegistrationInfo& registration, iis::HTTP_MODULE_ID id) {
  std::unique_ptr<MyGlobalModule> global(new (std::nothrow) MyGlobalModule(id));
  if (!global) return iis::kOutOfMemory;
  const bool taken = iis::Succeeded(registration.SetGlobalNotifications(global.get(), iis::GL_PRE_BEGIN_REQUEST));
  registration.SetPriorityForGlobalNotification(iis::GL_PRE_BEGIN_REQUEST, iis::PRIORITY_ALIAS_FIRST);
  if (taken) global.release();  // the server ends it with Terminate
  return 0;
}

iis::HRESULT RegisterAll(iis::IHttpModuleRegistrationInfo& registration) {
  LoadConfiguration();
  if (const iis::HRESULT hr = RegisterRequestNotifications(registration); iis::Failed(hr)) return hr;
  const iis::HTTP_MODULE_ID id = registration.GetId();
  if (!id) return iis::E_INVALIDARG;
  if (const iis::HRESULT hr = RegisterGlobalModule(registration, id); iis::Failed(hr)) return hr;
  qiv::State().config.SetModuleId(id);
  qiv::State().states.TellSystem(qiv::SystemEvent::kStarted, qiv::kVersion);
  return 0;
}

}  // namespace

extern "C" iis::HRESULT RegisterModule(iis::DWORD, iis::IHttpModuleRegistrationInfo* registration, iis::IHttpServer*) {
  if (!registration) return iis::E_INVALIDARG;
  try {
    return RegisterAll(*registration);
  } catch (...) {
    return iis::kOutOfMemory;
  }
}
