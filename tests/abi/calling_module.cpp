// A module that calls every method of every interface of the server once, and has its own methods called, writing
// everything down. Compiled by g++ from the module's own declaration (iis/httpserv.h); abi_test compares its account
// with that of a host compiled for the MSVC ABI.
#include <cstddef>

#include "iis/httpserv.h"
#include "tests/abi/transcript.h"

namespace {

proof::Transcript transcript;
iis::IHttpModuleFactory* our_factory = nullptr;
iis::CGlobalModule* our_global_module = nullptr;
iis::IHttpStoredContext* our_stored_context = nullptr;
const char* mismatch = nullptr;  ///< the first call whose answer belonged to another method

template <typename T>
T Pointer(unsigned long long value) {
  return reinterpret_cast<T>(value);
}

template <typename T>
const T* Const(T* object) {
  return object;
}

template <typename F, typename... A>
void Call(const char* name, F call, A... arguments) {
  proof::Record(transcript, name, arguments...);
  using Result = decltype(call(arguments...));
  if constexpr (__is_same(Result, void)) {
    call(arguments...);
  } else if (call(arguments...) != proof::IdentityAs<Result>(name) && mismatch == nullptr) {
    mismatch = name;
  }
}

/// One call of a server's method, with each argument used for the call and for the account.
#define QIV_CALL(name, object, method, ...) \
  Call(name, [o = object](auto... a) { return o->method(a...); } __VA_OPT__(, ) __VA_ARGS__)

void CallEvery(iis::IHttpModuleRegistrationInfo* o) {
  QIV_CALL("IHttpModuleRegistrationInfo.GetName", o, GetName);
  QIV_CALL("IHttpModuleRegistrationInfo.GetId", o, GetId);
  QIV_CALL("IHttpModuleRegistrationInfo.SetRequestNotifications", o, SetRequestNotifications, our_factory, 103, 104);
  QIV_CALL("IHttpModuleRegistrationInfo.SetGlobalNotifications", o, SetGlobalNotifications, our_global_module, 106);
  QIV_CALL("IHttpModuleRegistrationInfo.SetPriorityForRequestNotification", o, SetPriorityForRequestNotification, 107,
           u"wide108");
  QIV_CALL("IHttpModuleRegistrationInfo.SetPriorityForGlobalNotification", o, SetPriorityForGlobalNotification, 109,
           u"wide110");
}

void CallEvery(iis::IModuleAllocator* o) { QIV_CALL("IModuleAllocator.AllocateMemory", o, AllocateMemory, 111); }

void CallEvery(iis::IHttpModuleContextContainer* o) {
  QIV_CALL("IHttpModuleContextContainer.GetModuleContext", o, GetModuleContext, Pointer<void*>(112));
  QIV_CALL("IHttpModuleContextContainer.SetModuleContext", o, SetModuleContext, our_stored_context,
           Pointer<void*>(114));
}

void CallEvery(iis::IHttpConnection* o) {
  QIV_CALL("IHttpConnection.IsConnected", o, IsConnected);
  QIV_CALL("IHttpConnection.AllocateMemory", o, AllocateMemory, 115);
  QIV_CALL("IHttpConnection.GetModuleContextContainer", o, GetModuleContextContainer);
}

void CallEvery(iis::IHttpEventProvider* o) { QIV_CALL("IHttpEventProvider.SetErrorStatus", o, SetErrorStatus, 116); }

void CallEvery(iis::ISendResponseProvider* o) {
  QIV_CALL("ISendResponseProvider.SetErrorStatus", o, SetErrorStatus, 117);
  QIV_CALL("ISendResponseProvider.GetHeadersBeingSent", o, GetHeadersBeingSent);
  QIV_CALL("ISendResponseProvider.GetFlags", o, GetFlags);
  QIV_CALL("ISendResponseProvider.SetFlags", o, SetFlags, 118);
  QIV_CALL("ISendResponseProvider.GetLogData", o, GetLogData);
  QIV_CALL("ISendResponseProvider.SetLogData", o, SetLogData, Pointer<iis::HTTP_LOG_DATA*>(119));
  QIV_CALL("ISendResponseProvider.GetReadyToLogData", o, GetReadyToLogData);
}

void CallEvery(iis::IHttpCompletionInfo* o) {
  QIV_CALL("IHttpCompletionInfo.GetCompletionBytes", o, GetCompletionBytes);
  QIV_CALL("IHttpCompletionInfo.GetCompletionStatus", o, GetCompletionStatus);
}

void CallEvery(iis::IHttpRequest* o) {
  QIV_CALL("IHttpRequest.GetRawHttpRequest.const", Const(o), GetRawHttpRequest);
  QIV_CALL("IHttpRequest.GetRawHttpRequest.mutable", o, GetRawHttpRequest);
  QIV_CALL("IHttpRequest.GetHeader.id", o, GetHeader, static_cast<iis::HTTP_HEADER_ID>(120),
           Pointer<iis::USHORT*>(121));
  QIV_CALL("IHttpRequest.GetHeader.name", o, GetHeader, "text122", Pointer<iis::USHORT*>(123));
  QIV_CALL("IHttpRequest.SetHeader.id", o, SetHeader, static_cast<iis::HTTP_HEADER_ID>(124), "text125", 126, 1);
  QIV_CALL("IHttpRequest.SetHeader.name", o, SetHeader, "text128", "text129", 130, 1);
  QIV_CALL("IHttpRequest.DeleteHeader.id", o, DeleteHeader, static_cast<iis::HTTP_HEADER_ID>(132));
  QIV_CALL("IHttpRequest.DeleteHeader.name", o, DeleteHeader, "text133");
  QIV_CALL("IHttpRequest.GetHttpMethod", o, GetHttpMethod);
  QIV_CALL("IHttpRequest.SetHttpMethod", o, SetHttpMethod, "text134");
  QIV_CALL("IHttpRequest.SetUrl.narrow", o, SetUrl, "text135", 136, 1);
  QIV_CALL("IHttpRequest.SetUrl.wide", o, SetUrl, u"wide138", 139, 1);
  QIV_CALL("IHttpRequest.GetUrlChanged", o, GetUrlChanged);
  QIV_CALL("IHttpRequest.GetForwardedUrl", o, GetForwardedUrl);
  QIV_CALL("IHttpRequest.GetLocalAddress", o, GetLocalAddress);
  QIV_CALL("IHttpRequest.GetRemoteAddress", o, GetRemoteAddress);
  QIV_CALL("IHttpRequest.ReadEntityBody", o, ReadEntityBody, Pointer<void*>(141), 142, 1, Pointer<iis::DWORD*>(144),
           Pointer<iis::BOOL*>(145));
  QIV_CALL("IHttpRequest.InsertEntityBody", o, InsertEntityBody, Pointer<void*>(146), 147);
  QIV_CALL("IHttpRequest.GetRemainingEntityBytes", o, GetRemainingEntityBytes);
  QIV_CALL("IHttpRequest.GetHttpVersion", o, GetHttpVersion, Pointer<iis::USHORT*>(148), Pointer<iis::USHORT*>(149));
  QIV_CALL("IHttpRequest.GetClientCertificate", o, GetClientCertificate, Pointer<iis::HTTP_SSL_CLIENT_CERT_INFO**>(150),
           Pointer<iis::BOOL*>(151));
  QIV_CALL("IHttpRequest.NegotiateClientCertificate", o, NegotiateClientCertificate, 1, Pointer<iis::BOOL*>(153));
  QIV_CALL("IHttpRequest.GetSiteId", o, GetSiteId);
  QIV_CALL("IHttpRequest.GetHeaderChanges", o, GetHeaderChanges, 154, Pointer<iis::DWORD*>(155),
           Pointer<iis::PCSTR*>(156), Pointer<iis::DWORD*>(157), Pointer<iis::PCSTR**>(158), Pointer<iis::PCSTR**>(159),
           Pointer<iis::DWORD*>(160), Pointer<iis::DWORD*>(161), Pointer<iis::DWORD**>(162));
}

void CallEvery(iis::IHttpResponse* o) {
  QIV_CALL("IHttpResponse.GetRawHttpResponse.const", Const(o), GetRawHttpResponse);
  QIV_CALL("IHttpResponse.GetRawHttpResponse.mutable", o, GetRawHttpResponse);
  QIV_CALL("IHttpResponse.GetCachePolicy", o, GetCachePolicy);
  QIV_CALL("IHttpResponse.SetStatus", o, SetStatus, 163, "text164", 165, 166,
           Pointer<iis::IAppHostConfigException*>(167), 1);
  QIV_CALL("IHttpResponse.SetHeader.id", o, SetHeader, static_cast<iis::HTTP_HEADER_ID>(169), "text170", 171, 1);
  QIV_CALL("IHttpResponse.SetHeader.name", o, SetHeader, "text173", "text174", 175, 1);
  QIV_CALL("IHttpResponse.DeleteHeader.id", o, DeleteHeader, static_cast<iis::HTTP_HEADER_ID>(177));
  QIV_CALL("IHttpResponse.DeleteHeader.name", o, DeleteHeader, "text178");
  QIV_CALL("IHttpResponse.GetHeader.id", o, GetHeader, static_cast<iis::HTTP_HEADER_ID>(179),
           Pointer<iis::USHORT*>(180));
  QIV_CALL("IHttpResponse.GetHeader.name", o, GetHeader, "text181", Pointer<iis::USHORT*>(182));
  QIV_CALL("IHttpResponse.Clear", o, Clear);
  QIV_CALL("IHttpResponse.ClearHeaders", o, ClearHeaders);
  QIV_CALL("IHttpResponse.SetNeedDisconnect", o, SetNeedDisconnect);
  QIV_CALL("IHttpResponse.ResetConnection", o, ResetConnection);
  QIV_CALL("IHttpResponse.DisableKernelCache", o, DisableKernelCache, 183);
  QIV_CALL("IHttpResponse.GetKernelCacheEnabled", o, GetKernelCacheEnabled);
  QIV_CALL("IHttpResponse.SuppressHeaders", o, SuppressHeaders);
  QIV_CALL("IHttpResponse.GetHeadersSuppressed", o, GetHeadersSuppressed);
  QIV_CALL("IHttpResponse.Flush", o, Flush, 1, 1, Pointer<iis::DWORD*>(186), Pointer<iis::BOOL*>(187));
  QIV_CALL("IHttpResponse.Redirect", o, Redirect, "text188", 1, 1);
  QIV_CALL("IHttpResponse.WriteEntityChunkByReference", o, WriteEntityChunkByReference,
           Pointer<iis::HTTP_DATA_CHUNK*>(191), 192);
  QIV_CALL("IHttpResponse.WriteEntityChunks", o, WriteEntityChunks, Pointer<iis::HTTP_DATA_CHUNK*>(193), 194, 1, 1,
           Pointer<iis::DWORD*>(197), Pointer<iis::BOOL*>(198));
  QIV_CALL("IHttpResponse.DisableBuffering", o, DisableBuffering);
  QIV_CALL("IHttpResponse.GetStatus", o, GetStatus, Pointer<iis::USHORT*>(199), Pointer<iis::USHORT*>(200),
           Pointer<iis::PCSTR*>(201), Pointer<iis::USHORT*>(202), Pointer<iis::HRESULT*>(203),
           Pointer<iis::PCWSTR*>(204), Pointer<iis::DWORD*>(205), Pointer<iis::IAppHostConfigException**>(206),
           Pointer<iis::BOOL*>(207));
  QIV_CALL("IHttpResponse.SetErrorDescription", o, SetErrorDescription, u"wide208", 209, 1);
  QIV_CALL("IHttpResponse.GetErrorDescription", o, GetErrorDescription, Pointer<iis::DWORD*>(211));
  QIV_CALL("IHttpResponse.GetHeaderChanges", o, GetHeaderChanges, 212, Pointer<iis::DWORD*>(213),
           Pointer<iis::PCSTR*>(214), Pointer<iis::DWORD*>(215), Pointer<iis::PCSTR**>(216), Pointer<iis::PCSTR**>(217),
           Pointer<iis::DWORD*>(218), Pointer<iis::DWORD*>(219), Pointer<iis::DWORD**>(220));
  QIV_CALL("IHttpResponse.CloseConnection", o, CloseConnection);
}

void CallEvery(iis::IHttpContext* o) {
  QIV_CALL("IHttpContext.GetSite", o, GetSite);
  QIV_CALL("IHttpContext.GetApplication", o, GetApplication);
  QIV_CALL("IHttpContext.GetConnection", o, GetConnection);
  QIV_CALL("IHttpContext.GetRequest", o, GetRequest);
  QIV_CALL("IHttpContext.GetResponse", o, GetResponse);
  QIV_CALL("IHttpContext.GetResponseHeadersSent", o, GetResponseHeadersSent);
  QIV_CALL("IHttpContext.GetUser", o, GetUser);
  QIV_CALL("IHttpContext.GetModuleContextContainer", o, GetModuleContextContainer);
  QIV_CALL("IHttpContext.IndicateCompletion", o, IndicateCompletion, iis::RQ_NOTIFICATION_FINISH_REQUEST);
  QIV_CALL("IHttpContext.PostCompletion", o, PostCompletion, 222);
  QIV_CALL("IHttpContext.DisableNotifications", o, DisableNotifications, 223, 224);
  QIV_CALL("IHttpContext.GetNextNotification", o, GetNextNotification, iis::RQ_NOTIFICATION_FINISH_REQUEST,
           Pointer<iis::DWORD*>(226), Pointer<iis::BOOL*>(227), Pointer<iis::CHttpModule**>(228),
           Pointer<iis::IHttpEventProvider**>(229));
  QIV_CALL("IHttpContext.GetIsLastNotification", o, GetIsLastNotification, iis::RQ_NOTIFICATION_FINISH_REQUEST);
  QIV_CALL("IHttpContext.ExecuteRequest", o, ExecuteRequest, 1, Pointer<iis::IHttpContext*>(232), 233,
           Pointer<iis::IHttpUser*>(234), Pointer<iis::BOOL*>(235));
  QIV_CALL("IHttpContext.GetExecuteFlags", o, GetExecuteFlags);
  QIV_CALL("IHttpContext.GetServerVariable.narrow", o, GetServerVariable, "text236", Pointer<iis::PCSTR*>(237),
           Pointer<iis::DWORD*>(238));
  QIV_CALL("IHttpContext.GetServerVariable.wide", o, GetServerVariable, "text239", Pointer<iis::PCWSTR*>(240),
           Pointer<iis::DWORD*>(241));
  QIV_CALL("IHttpContext.SetServerVariable", o, SetServerVariable, "text242", u"wide243");
  QIV_CALL("IHttpContext.AllocateRequestMemory", o, AllocateRequestMemory, 244);
  QIV_CALL("IHttpContext.GetUrlInfo", o, GetUrlInfo);
  QIV_CALL("IHttpContext.GetMetadata", o, GetMetadata);
  QIV_CALL("IHttpContext.GetPhysicalPath", o, GetPhysicalPath, Pointer<iis::DWORD*>(245));
  QIV_CALL("IHttpContext.GetScriptName", o, GetScriptName, Pointer<iis::DWORD*>(246));
  QIV_CALL("IHttpContext.GetScriptTranslated", o, GetScriptTranslated, Pointer<iis::DWORD*>(247));
  QIV_CALL("IHttpContext.GetScriptMap", o, GetScriptMap);
  QIV_CALL("IHttpContext.SetRequestHandled", o, SetRequestHandled);
  QIV_CALL("IHttpContext.GetFileInfo", o, GetFileInfo);
  QIV_CALL("IHttpContext.MapPath", o, MapPath, u"wide248", Pointer<iis::PWSTR>(249), Pointer<iis::DWORD*>(250));
  QIV_CALL("IHttpContext.NotifyCustomNotification", o, NotifyCustomNotification,
           Pointer<iis::ICustomNotificationProvider*>(251), Pointer<iis::BOOL*>(252));
  QIV_CALL("IHttpContext.GetParentContext", o, GetParentContext);
  QIV_CALL("IHttpContext.GetRootContext", o, GetRootContext);
  QIV_CALL("IHttpContext.CloneContext", o, CloneContext, 253, Pointer<iis::IHttpContext**>(254));
  QIV_CALL("IHttpContext.ReleaseClonedContext", o, ReleaseClonedContext);
  QIV_CALL("IHttpContext.GetCurrentExecutionStats", o, GetCurrentExecutionStats, Pointer<iis::DWORD*>(255),
           Pointer<iis::DWORD*>(256), Pointer<iis::PCWSTR*>(257), Pointer<iis::DWORD*>(258), Pointer<iis::DWORD*>(259),
           Pointer<iis::DWORD*>(260));
  QIV_CALL("IHttpContext.GetTraceContext", o, GetTraceContext);
  QIV_CALL("IHttpContext.GetServerVarChanges", o, GetServerVarChanges, 261, Pointer<iis::DWORD*>(262),
           Pointer<iis::DWORD*>(263), Pointer<iis::PCSTR**>(264), Pointer<iis::PCWSTR**>(265),
           Pointer<iis::DWORD*>(266), Pointer<iis::DWORD**>(267));
  QIV_CALL("IHttpContext.CancelIo", o, CancelIo);
  QIV_CALL("IHttpContext.MapHandler", o, MapHandler, 268, u"wide269", u"wide270", "text271",
           Pointer<iis::IScriptMapInfo**>(272), 1);
  QIV_CALL("IHttpContext.GetExtendedInterface", o, GetExtendedInterface, iis::HTTP_CONTEXT_INTERFACE_VERSION_1,
           Pointer<iis::PVOID*>(275));
}

void CallEvery(iis::IPreBeginRequestProvider* o) {
  QIV_CALL("IPreBeginRequestProvider.SetErrorStatus", o, SetErrorStatus, 276);
  QIV_CALL("IPreBeginRequestProvider.GetHttpContext", o, GetHttpContext);
}

/// Answers a call from the server.
template <typename R, typename... A>
R Noted(const char* name, A... arguments) {
  proof::Record(transcript, name, arguments...);
  if constexpr (!__is_same(R, void)) return proof::IdentityAs<R>(name);
}

class CStored : public iis::IHttpStoredContext {
 public:
  void CleanupStoredContext() override { Noted<void>("IHttpStoredContext.CleanupStoredContext"); }
};

class CCallingModule : public iis::CHttpModule {
 public:
  iis::REQUEST_NOTIFICATION_STATUS OnBeginRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    CallEvery(a);
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnBeginRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostBeginRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    CallEvery(b);
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostBeginRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnAuthenticateRequest(iis::IHttpContext* a,
                                                         iis::IAuthenticationProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnAuthenticateRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostAuthenticateRequest(iis::IHttpContext* a,
                                                             iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostAuthenticateRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnAuthorizeRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnAuthorizeRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostAuthorizeRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostAuthorizeRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnResolveRequestCache(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnResolveRequestCache", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostResolveRequestCache(iis::IHttpContext* a,
                                                             iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostResolveRequestCache", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnMapRequestHandler(iis::IHttpContext* a, iis::IMapHandlerProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnMapRequestHandler", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostMapRequestHandler(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostMapRequestHandler", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnAcquireRequestState(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnAcquireRequestState", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostAcquireRequestState(iis::IHttpContext* a,
                                                             iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostAcquireRequestState", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPreExecuteRequestHandler(iis::IHttpContext* a,
                                                              iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPreExecuteRequestHandler", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostPreExecuteRequestHandler(iis::IHttpContext* a,
                                                                  iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostPreExecuteRequestHandler", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnExecuteRequestHandler(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnExecuteRequestHandler", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostExecuteRequestHandler(iis::IHttpContext* a,
                                                               iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostExecuteRequestHandler", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnReleaseRequestState(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnReleaseRequestState", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostReleaseRequestState(iis::IHttpContext* a,
                                                             iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostReleaseRequestState", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnUpdateRequestCache(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnUpdateRequestCache", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostUpdateRequestCache(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostUpdateRequestCache", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnLogRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnLogRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostLogRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostLogRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnEndRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnEndRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnPostEndRequest(iis::IHttpContext* a, iis::IHttpEventProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnPostEndRequest", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnSendResponse(iis::IHttpContext* a, iis::ISendResponseProvider* b) override {
    CallEvery(b);
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnSendResponse", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnMapPath(iis::IHttpContext* a, iis::IMapPathProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnMapPath", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnReadEntity(iis::IHttpContext* a, iis::IReadEntityProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnReadEntity", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnCustomRequestNotification(iis::IHttpContext* a,
                                                               iis::ICustomNotificationProvider* b) override {
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnCustomRequestNotification", a, b);
  }
  iis::REQUEST_NOTIFICATION_STATUS OnAsyncCompletion(iis::IHttpContext* a, iis::DWORD b, iis::BOOL c,
                                                     iis::IHttpEventProvider* d, iis::IHttpCompletionInfo* e) override {
    CallEvery(e);
    return Noted<iis::REQUEST_NOTIFICATION_STATUS>("CHttpModule.OnAsyncCompletion", a, b, c, d, e);
  }
  void Dispose() override { Noted<void>("CHttpModule.Dispose"); }
};

class CCallingGlobal : public iis::CGlobalModule {
 public:
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalStopListening(iis::IGlobalStopListeningProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalStopListening", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalCacheCleanup() override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalCacheCleanup");
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalCacheOperation(iis::ICacheProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalCacheOperation", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalHealthCheck() override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalHealthCheck");
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalConfigurationChange(iis::IGlobalConfigurationChangeProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalConfigurationChange", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalFileChange(iis::IGlobalFileChangeProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalFileChange", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalPreBeginRequest(iis::IPreBeginRequestProvider* a) override {
    CallEvery(a);
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalPreBeginRequest", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationStart(iis::IHttpApplicationStartProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalApplicationStart", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationResolveModules(
      iis::IHttpApplicationResolveModulesProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalApplicationResolveModules", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationStop(iis::IHttpApplicationStopProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalApplicationStop", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalRSCAQuery(iis::IGlobalRSCAQueryProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalRSCAQuery", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalTraceEvent(iis::IGlobalTraceEventProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalTraceEvent", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalCustomNotification(iis::ICustomNotificationProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalCustomNotification", a);
  }
  void Terminate() override { Noted<void>("CGlobalModule.Terminate"); }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalThreadCleanup(iis::IGlobalThreadCleanupProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalThreadCleanup", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationPreload(iis::IGlobalApplicationPreloadProvider* a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnGlobalApplicationPreload", a);
  }
  iis::GLOBAL_NOTIFICATION_STATUS OnSuspendProcess(iis::IGlobalSuspendProcessCallback** a) override {
    return Noted<iis::GLOBAL_NOTIFICATION_STATUS>("CGlobalModule.OnSuspendProcess", a);
  }
};

CCallingModule http_module;
CCallingGlobal global_module;
CStored stored;

class CFactory : public iis::IHttpModuleFactory {
 public:
  iis::HRESULT GetHttpModule(iis::CHttpModule** module, iis::IModuleAllocator* allocator) override {
    CallEvery(allocator);
    *module = &http_module;
    return Noted<iis::HRESULT>("IHttpModuleFactory.GetHttpModule", module, allocator);
  }
  void Terminate() override { Noted<void>("IHttpModuleFactory.Terminate"); }
};

CFactory factory;

}  // namespace

#define QIV_EXPORT extern "C" __declspec(dllexport)

QIV_EXPORT iis::HRESULT RegisterModule(iis::DWORD version, iis::IHttpModuleRegistrationInfo* info,
                                       iis::IHttpServer* server) {
  our_factory = &factory;
  our_global_module = &global_module;
  our_stored_context = &stored;
  CallEvery(info);
  return Noted<iis::HRESULT>("RegisterModule", version, info, server);
}

QIV_EXPORT const proof::Transcript* ModuleTranscript() { return &transcript; }
QIV_EXPORT const char* ModuleMismatch() { return mismatch; }

/// Reaches the objects that a module gets from its context.
QIV_EXPORT void CallContextObjects(iis::IHttpModuleContextContainer* container, iis::IHttpConnection* connection,
                                   iis::IHttpRequest* request, iis::IHttpResponse* response) {
  CallEvery(container);
  CallEvery(connection);
  CallEvery(request);
  CallEvery(response);
}
