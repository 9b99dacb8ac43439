#include "module/global_module.h"

namespace qiv {

iis::GLOBAL_NOTIFICATION_STATUS MyGlobalModule::OnGlobalPreBeginRequest(iis::IPreBeginRequestProvider*) {
  return iis::GL_NOTIFICATION_CONTINUE;
}

iis::VOID MyGlobalModule::Terminate() { delete this; }

}  // namespace qiv
