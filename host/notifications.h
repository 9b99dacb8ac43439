// Calling the modules' notification methods.
#pragma once

#include "iis/httpserv.h"

namespace qiv::host {

class CHostContext;

/// The stages of a request in their order, UPDATE_CACHE the last that FINISH_REQUEST can skip.
inline constexpr iis::DWORD kStages[] = {iis::RQ_BEGIN_REQUEST,
                                         iis::RQ_AUTHENTICATE_REQUEST,
                                         iis::RQ_AUTHORIZE_REQUEST,
                                         iis::RQ_RESOLVE_REQUEST_CACHE,
                                         iis::RQ_MAP_REQUEST_HANDLER,
                                         iis::RQ_ACQUIRE_REQUEST_STATE,
                                         iis::RQ_PRE_EXECUTE_REQUEST_HANDLER,
                                         iis::RQ_EXECUTE_REQUEST_HANDLER,
                                         iis::RQ_RELEASE_REQUEST_STATE,
                                         iis::RQ_UPDATE_REQUEST_CACHE};

/// Calls one stage, or its post-event, of every subscribed module in order; stops at the first that finishes the
/// request. Waits out modules that return PENDING. A module's exception ends the process, as on the real server.
iis::REQUEST_NOTIFICATION_STATUS RunStage(CHostContext& context, iis::DWORD bit, bool post);

void RunSendResponse(CHostContext& context, iis::ISendResponseProvider& provider);
void RunReadEntity(CHostContext& context);

/// Calls OnGlobalPreBeginRequest of the subscribed modules. True when one of them returned HANDLED.
bool RunPreBegin(CHostContext& context);

}  // namespace qiv::host
