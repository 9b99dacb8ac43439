#include "module/qiv_module.h"

#include <exception>

#include "module/module_state.h"

namespace qiv {
namespace {

void ReportFailure(const char* notification, const char* what) noexcept {
  try {
    if (CBlockRecorder* recorder = State().recorder.get()) recorder->RecordFailure(notification, what);
  } catch (...) {
    // Without a state there is no log.
  }
}

/// The one barrier. An exception that left a notification would end the worker process; whatever goes wrong in here,
/// the request goes on. Requests that another request makes (default documents, error pages, includes) are not looked
/// at again.
template <typename Notification>
iis::REQUEST_NOTIFICATION_STATUS Guarded(const char* name, iis::IHttpContext* context, Notification&& run) noexcept {
  try {
    if (!context || context->GetParentContext()) return iis::RQ_NOTIFICATION_CONTINUE;
    return run(State().pipeline);
  } catch (const std::exception& error) {
    ReportFailure(name, error.what());
  } catch (...) {
    ReportFailure(name, "unknown exception");
  }
  return iis::RQ_NOTIFICATION_CONTINUE;
}

}  // namespace

CQivIpsIIsModule::~CQivIpsIIsModule() {
  if (answers_client_) State().service.AfterRequest();
}

iis::REQUEST_NOTIFICATION_STATUS CQivIpsIIsModule::OnBeginRequest(iis::IHttpContext* context,
                                                                  iis::IHttpEventProvider*) {
  return Guarded("OnBeginRequest", context, [&](CPipeline& pipeline) {
    answers_client_ = true;
    return pipeline.BeginRequest(*context);
  });
}

iis::REQUEST_NOTIFICATION_STATUS CQivIpsIIsModule::OnExecuteRequestHandler(iis::IHttpContext*,
                                                                           iis::IHttpEventProvider*) {
  return iis::RQ_NOTIFICATION_CONTINUE;
}

iis::REQUEST_NOTIFICATION_STATUS CQivIpsIIsModule::OnPostExecuteRequestHandler(iis::IHttpContext* context,
                                                                               iis::IHttpEventProvider*) {
  return Guarded("OnPostExecuteRequestHandler", context,
                 [&](CPipeline& pipeline) { return pipeline.PostExecuteRequestHandler(*context); });
}

iis::REQUEST_NOTIFICATION_STATUS CQivIpsIIsModule::OnSendResponse(iis::IHttpContext* context,
                                                                  iis::ISendResponseProvider* provider) {
  return Guarded("OnSendResponse", context,
                 [&](CPipeline& pipeline) { return pipeline.SendResponse(*context, provider); });
}

}  // namespace qiv
