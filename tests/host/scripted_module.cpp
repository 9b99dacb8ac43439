#include "tests/host/scripted_module.h"

namespace qiv::host {
namespace {

using Status = iis::REQUEST_NOTIFICATION_STATUS;

class CScriptedModule final : public iis::CHttpModule {
 public:
  explicit CScriptedModule(ModuleScript& script) : script_(script) { ++script_.alive; }
  ~CScriptedModule() override { --script_.alive; }

#define QIV_SCRIPT(method) \
  Status method(iis::IHttpContext* context, iis::IHttpEventProvider*) override { return Run(#method, *context); }
  QIV_SCRIPT(OnBeginRequest)
  QIV_SCRIPT(OnPostBeginRequest)
  QIV_SCRIPT(OnPostAuthenticateRequest)
  QIV_SCRIPT(OnAuthorizeRequest)
  QIV_SCRIPT(OnPostAuthorizeRequest)
  QIV_SCRIPT(OnResolveRequestCache)
  QIV_SCRIPT(OnPostResolveRequestCache)
  QIV_SCRIPT(OnPostMapRequestHandler)
  QIV_SCRIPT(OnAcquireRequestState)
  QIV_SCRIPT(OnPostAcquireRequestState)
  QIV_SCRIPT(OnPreExecuteRequestHandler)
  QIV_SCRIPT(OnPostPreExecuteRequestHandler)
  QIV_SCRIPT(OnExecuteRequestHandler)
  QIV_SCRIPT(OnPostExecuteRequestHandler)
  QIV_SCRIPT(OnReleaseRequestState)
  QIV_SCRIPT(OnPostReleaseRequestState)
  QIV_SCRIPT(OnUpdateRequestCache)
  QIV_SCRIPT(OnPostUpdateRequestCache)
  QIV_SCRIPT(OnLogRequest)
  QIV_SCRIPT(OnPostLogRequest)
  QIV_SCRIPT(OnEndRequest)
  QIV_SCRIPT(OnPostEndRequest)
#undef QIV_SCRIPT
  Status OnAuthenticateRequest(iis::IHttpContext* context, iis::IAuthenticationProvider*) override {
    return Run("OnAuthenticateRequest", *context);
  }
  Status OnMapRequestHandler(iis::IHttpContext* context, iis::IMapHandlerProvider*) override {
    return Run("OnMapRequestHandler", *context);
  }
  Status OnReadEntity(iis::IHttpContext* context, iis::IReadEntityProvider*) override {
    return Run("OnReadEntity", *context);
  }
  Status OnSendResponse(iis::IHttpContext* context, iis::ISendResponseProvider* provider) override {
    if (script_.send_response) script_.send_response(*context, *provider);
    return iis::RQ_NOTIFICATION_CONTINUE;
  }
  Status OnAsyncCompletion(iis::IHttpContext* context, iis::DWORD, iis::BOOL, iis::IHttpEventProvider*,
                           iis::IHttpCompletionInfo* info) override {
    script_.journal += "completed " + std::to_string(info->GetCompletionBytes()) + ";";
    return Run("OnAsyncCompletion", *context);
  }

 private:
  Status Run(const char* name, iis::IHttpContext& context) {
    const auto step = script_.steps.find(name);
    return step == script_.steps.end() ? iis::RQ_NOTIFICATION_CONTINUE : step->second(context);
  }
  ModuleScript& script_;
};

class CScriptedFactory final : public iis::IHttpModuleFactory {
 public:
  explicit CScriptedFactory(ModuleScript& script) : script_(script) {}
  iis::HRESULT GetHttpModule(iis::CHttpModule** module, iis::IModuleAllocator*) override {
    if (script_.factory_fails) return iis::kOutOfMemory;
    *module = new CScriptedModule(script_);
    return 0;
  }
  void Terminate() override {
    ++script_.terminated;
    delete this;
  }

 private:
  ModuleScript& script_;
};

class CScriptedGlobal final : public iis::CGlobalModule {
 public:
  explicit CScriptedGlobal(ModuleScript& script) : script_(script) {}
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalPreBeginRequest(iis::IPreBeginRequestProvider*) override {
    return script_.pre_begin ? script_.pre_begin() : iis::GL_NOTIFICATION_CONTINUE;
  }
  void Terminate() override {
    ++script_.terminated;
    delete this;
  }

 private:
  ModuleScript& script_;
};

ModuleScript* registering = nullptr;

iis::HRESULT RegisterEntry(iis::DWORD, iis::IHttpModuleRegistrationInfo* info, iis::IHttpServer*) {
  ModuleScript& script = *registering;
  script.id = info->GetId();
  if (iis::Failed(script.register_result)) return script.register_result;
  info->SetRequestNotifications(new CScriptedFactory(script), script.main, script.post);
  info->SetPriorityForRequestNotification(iis::RQ_BEGIN_REQUEST, script.begin_priority.c_str());
  info->SetPriorityForRequestNotification(iis::RQ_SEND_RESPONSE, script.send_priority.c_str());
  if (script.global != 0) info->SetGlobalNotifications(new CScriptedGlobal(script), script.global);
  return 0;
}

}  // namespace

iis::HRESULT RegisterScript(CModuleHost& host, ModuleScript& script) {
  registering = &script;
  return host.Register(&RegisterEntry);
}

}  // namespace qiv::host
