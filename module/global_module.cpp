#include "module/global_module.h"

#include "base/version.h"
#include "module/module_state.h"

namespace qiv {

iis::GLOBAL_NOTIFICATION_STATUS MyGlobalModule::OnGlobalPreBeginRequest(iis::IPreBeginRequestProvider*) {
  return iis::GL_NOTIFICATION_CONTINUE;
}

// Here, because no request runs any more and the system does not hold its loader lock yet, as it does when static
// objects end.
iis::VOID MyGlobalModule::Terminate() {
  State().service.Finish();
  State().states.TellSystem(SystemEvent::kStopped, kVersion);
  delete this;
}

}  // namespace qiv
