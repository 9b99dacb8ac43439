#include "host/notifications.h"

#include <string>

#include "host/host_context.h"
#include "host/registered_module.h"
#include "host/results.h"

namespace qiv::host {
namespace {

using Status = iis::REQUEST_NOTIFICATION_STATUS;
using PlainMethod = Status (iis::CHttpModule::*)(iis::IHttpContext*, iis::IHttpEventProvider*);

struct Stage {
  iis::DWORD bit;
  const char* name;
  PlainMethod main;  ///< null where the provider is of another kind
  PlainMethod post;
};

const Stage kMethods[] = {
    {iis::RQ_BEGIN_REQUEST, "BeginRequest", &iis::CHttpModule::OnBeginRequest, &iis::CHttpModule::OnPostBeginRequest},
    {iis::RQ_AUTHENTICATE_REQUEST, "AuthenticateRequest", nullptr, &iis::CHttpModule::OnPostAuthenticateRequest},
    {iis::RQ_AUTHORIZE_REQUEST, "AuthorizeRequest", &iis::CHttpModule::OnAuthorizeRequest,
     &iis::CHttpModule::OnPostAuthorizeRequest},
    {iis::RQ_RESOLVE_REQUEST_CACHE, "ResolveRequestCache", &iis::CHttpModule::OnResolveRequestCache,
     &iis::CHttpModule::OnPostResolveRequestCache},
    {iis::RQ_MAP_REQUEST_HANDLER, "MapRequestHandler", nullptr, &iis::CHttpModule::OnPostMapRequestHandler},
    {iis::RQ_ACQUIRE_REQUEST_STATE, "AcquireRequestState", &iis::CHttpModule::OnAcquireRequestState,
     &iis::CHttpModule::OnPostAcquireRequestState},
    {iis::RQ_PRE_EXECUTE_REQUEST_HANDLER, "PreExecuteRequestHandler", &iis::CHttpModule::OnPreExecuteRequestHandler,
     &iis::CHttpModule::OnPostPreExecuteRequestHandler},
    {iis::RQ_EXECUTE_REQUEST_HANDLER, "ExecuteRequestHandler", &iis::CHttpModule::OnExecuteRequestHandler,
     &iis::CHttpModule::OnPostExecuteRequestHandler},
    {iis::RQ_RELEASE_REQUEST_STATE, "ReleaseRequestState", &iis::CHttpModule::OnReleaseRequestState,
     &iis::CHttpModule::OnPostReleaseRequestState},
    {iis::RQ_UPDATE_REQUEST_CACHE, "UpdateRequestCache", &iis::CHttpModule::OnUpdateRequestCache,
     &iis::CHttpModule::OnPostUpdateRequestCache},
    {iis::RQ_LOG_REQUEST, "LogRequest", &iis::CHttpModule::OnLogRequest, &iis::CHttpModule::OnPostLogRequest},
    {iis::RQ_END_REQUEST, "EndRequest", &iis::CHttpModule::OnEndRequest, &iis::CHttpModule::OnPostEndRequest},
};

class CEventProvider final : public iis::IHttpEventProvider {
 public:
  void SetErrorStatus(iis::HRESULT) override {}
};

/// The providers that iis/ leaves undeclared: SetErrorStatus comes first in each, what follows is refused.
class CRefusingProvider {
 public:
  virtual void SetErrorStatus(iis::HRESULT) {}
  virtual iis::HRESULT Refuse1() { return iis::kNotSupported; }
  virtual iis::HRESULT Refuse2() { return iis::kNotSupported; }
  virtual iis::HRESULT Refuse3() { return iis::kNotSupported; }

 protected:
  ~CRefusingProvider() = default;
};
class COtherProvider final : public CRefusingProvider {};

class CCompletionInfo final : public iis::IHttpCompletionInfo {
 public:
  explicit CCompletionInfo(const Completion& completion) : completion_(completion) {}
  iis::DWORD GetCompletionBytes() const override { return completion_.bytes; }
  iis::HRESULT GetCompletionStatus() const override { return completion_.result; }

 private:
  const Completion completion_;
};

class CPreBeginProvider final : public iis::IPreBeginRequestProvider {
 public:
  explicit CPreBeginProvider(CHostContext& context) : context_(context) {}
  void SetErrorStatus(iis::HRESULT) override {}
  iis::IHttpContext* GetHttpContext() override { return &context_; }

 private:
  CHostContext& context_;
};

void Trace(CHostContext& context, const std::string& name) {
  if (context.trace != nullptr) context.trace->push_back(name);
}

const Stage* FindStage(iis::DWORD bit) {
  for (const Stage& stage : kMethods) {
    if (stage.bit == bit) return &stage;
  }
  return nullptr;
}

Status Call(CHostContext& context, iis::CHttpModule& module, const Stage& stage, bool post) noexcept {
  CEventProvider provider;
  COtherProvider other;
  if (post) return (module.*stage.post)(&context, &provider);
  if (stage.main != nullptr) return (module.*stage.main)(&context, &provider);
  if (stage.bit == iis::RQ_AUTHENTICATE_REQUEST) {
    return module.OnAuthenticateRequest(&context, reinterpret_cast<iis::IAuthenticationProvider*>(&other));
  }
  return module.OnMapRequestHandler(&context, reinterpret_cast<iis::IMapHandlerProvider*>(&other));
}

/// Waits until a pending notification is taken up again.
Status Resume(CHostContext& context, iis::CHttpModule& module, iis::DWORD bit, bool post) noexcept {
  for (;;) {
    const Wakeup wakeup = context.WaitForWakeup();
    if (!wakeup.completion) {
      if (wakeup.status != iis::RQ_NOTIFICATION_PENDING) return wakeup.status;
      continue;
    }
    CEventProvider provider;
    CCompletionInfo info(*wakeup.completion);
    Trace(context, "OnAsyncCompletion");
    const Status status = module.OnAsyncCompletion(&context, bit, post, &provider, &info);
    if (status != iis::RQ_NOTIFICATION_PENDING) return status;
  }
}

void CallSendResponse(CHostContext& context, iis::CHttpModule& module, iis::ISendResponseProvider& provider) noexcept {
  module.OnSendResponse(&context, &provider);  // what it returns changes nothing
}

}  // namespace

iis::REQUEST_NOTIFICATION_STATUS RunStage(CHostContext& context, iis::DWORD bit, bool post) {
  const std::vector<const RegisteredModule*>& order = context.host().Order(bit, post);
  if (order.empty()) return iis::RQ_NOTIFICATION_CONTINUE;
  const Stage& stage = *FindStage(bit);
  context.current_notification = bit;
  for (const RegisteredModule* registered : order) {
    if (context.IsDisabled(bit, post)) break;
    iis::CHttpModule* module = context.instances[registered->position];
    if (module == nullptr) continue;
    if (context.trace != nullptr) Trace(context, std::string(post ? "OnPost" : "On") + stage.name);
    Status status = Call(context, *module, stage, post);
    if (status == iis::RQ_NOTIFICATION_PENDING) status = Resume(context, *module, bit, post);
    if (status == iis::RQ_NOTIFICATION_FINISH_REQUEST) return status;
  }
  return iis::RQ_NOTIFICATION_CONTINUE;
}

void RunSendResponse(CHostContext& context, iis::ISendResponseProvider& provider) {
  const iis::DWORD interrupted = context.current_notification;
  context.current_notification = iis::RQ_SEND_RESPONSE;
  for (const RegisteredModule* registered : context.host().Order(iis::RQ_SEND_RESPONSE, false)) {
    if (context.IsDisabled(iis::RQ_SEND_RESPONSE, false)) break;
    iis::CHttpModule* module = context.instances[registered->position];
    if (module == nullptr) continue;
    Trace(context, "OnSendResponse");
    CallSendResponse(context, *module, provider);
  }
  context.current_notification = interrupted;
}

void RunReadEntity(CHostContext& context) {
  for (const RegisteredModule* registered : context.host().Order(iis::RQ_READ_ENTITY, false)) {
    iis::CHttpModule* module = context.instances[registered->position];
    if (module == nullptr || context.IsDisabled(iis::RQ_READ_ENTITY, false)) continue;
    Trace(context, "OnReadEntity");
    COtherProvider other;
    [&]() noexcept { module->OnReadEntity(&context, reinterpret_cast<iis::IReadEntityProvider*>(&other)); }();
  }
}

bool RunPreBegin(CHostContext& context) {
  for (const RegisteredModule* registered : context.host().PreBeginOrder()) {
    CPreBeginProvider provider(context);
    Trace(context, "OnGlobalPreBeginRequest");
    const auto status = [&]() noexcept { return registered->global->OnGlobalPreBeginRequest(&provider); }();
    if (status == iis::GL_NOTIFICATION_HANDLED) return true;
  }
  return false;
}

}  // namespace qiv::host
