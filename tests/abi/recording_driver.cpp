// The host's side of the complete comparison: compiled by clang for the MSVC ABI from the natural-order declaration.
// Calls every method that a module implements and lends it objects whose every method writes down its calls.
#include "tests/abi/recording_host.h"
#include "tests/abi/windows_program.h"

proof::Transcript host_transcript;

namespace {

const char* host_mismatch = nullptr;

template <typename T>
T Pointer(unsigned long long value) {
  return reinterpret_cast<T>(value);
}

struct Registration : RecordingHttpModuleRegistrationInfo {
  HRESULT SetRequestNotifications(IHttpModuleFactory* a, DWORD b, DWORD c) override {
    factory = a;
    return RecordingHttpModuleRegistrationInfo::SetRequestNotifications(a, b, c);
  }
  HRESULT SetGlobalNotifications(CGlobalModule* a, DWORD b) override {
    global_module = a;
    return RecordingHttpModuleRegistrationInfo::SetGlobalNotifications(a, b);
  }
  IHttpModuleFactory* factory = nullptr;
  CGlobalModule* global_module = nullptr;
};

struct Container : RecordingHttpModuleContextContainer {
  HRESULT SetModuleContext(IHttpStoredContext* a, HTTP_MODULE_ID b) override {
    stored = a;
    return RecordingHttpModuleContextContainer::SetModuleContext(a, b);
  }
  IHttpStoredContext* stored = nullptr;
};

Registration registration;
Container container;
RecordingModuleAllocator allocator;
RecordingHttpConnection connection;
RecordingHttpEventProvider event_provider;
RecordingSendResponseProvider send_provider;
RecordingHttpCompletionInfo completion;
RecordingHttpRequest request;
RecordingHttpResponse response;
RecordingHttpContext context;
RecordingPreBeginRequestProvider pre_begin;
CHttpModule* http_module = nullptr;

template <typename F, typename... A>
void Drive(const char* name, F call, A... arguments) {
  using Result = decltype(call(arguments...));
  if constexpr (__is_void(Result)) {
    call(arguments...);
  } else if (call(arguments...) != proof::IdentityAs<Result>(name) && host_mismatch == nullptr) {
    host_mismatch = name;
  }
  // The module writes its line down at the end of its method, after the calls it makes itself.
  proof::Record(host_transcript, name, arguments...);
}

/// One call of a module's method.
#define QIV_DRIVE(object, type, method, ...) \
  Drive(#type "." #method, [](auto... a) { return (object)->method(a...); } __VA_OPT__(, ) __VA_ARGS__)

void DriveHttpModule() {
  QIV_DRIVE(http_module, CHttpModule, OnBeginRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostBeginRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnAuthenticateRequest, &context, Pointer<IAuthenticationProvider*>(6));
  QIV_DRIVE(http_module, CHttpModule, OnPostAuthenticateRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnAuthorizeRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostAuthorizeRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnResolveRequestCache, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostResolveRequestCache, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnMapRequestHandler, &context, Pointer<IMapHandlerProvider*>(18));
  QIV_DRIVE(http_module, CHttpModule, OnPostMapRequestHandler, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnAcquireRequestState, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostAcquireRequestState, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPreExecuteRequestHandler, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostPreExecuteRequestHandler, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnExecuteRequestHandler, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostExecuteRequestHandler, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnReleaseRequestState, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostReleaseRequestState, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnUpdateRequestCache, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostUpdateRequestCache, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnLogRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostLogRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnEndRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnPostEndRequest, &context, &event_provider);
  QIV_DRIVE(http_module, CHttpModule, OnSendResponse, &context, &send_provider);
  QIV_DRIVE(http_module, CHttpModule, OnMapPath, &context, Pointer<IMapPathProvider*>(52));
  QIV_DRIVE(http_module, CHttpModule, OnReadEntity, &context, Pointer<IReadEntityProvider*>(54));
  QIV_DRIVE(http_module, CHttpModule, OnCustomRequestNotification, &context, Pointer<ICustomNotificationProvider*>(56));
  QIV_DRIVE(http_module, CHttpModule, OnAsyncCompletion, &context, 58, 59, &event_provider, &completion);
  QIV_DRIVE(http_module, CHttpModule, Dispose);
}

void DriveGlobalModule() {
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalStopListening,
            Pointer<IGlobalStopListeningProvider*>(62));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalCacheCleanup);
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalCacheOperation, Pointer<ICacheProvider*>(63));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalHealthCheck);
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalConfigurationChange,
            Pointer<IGlobalConfigurationChangeProvider*>(64));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalFileChange, Pointer<IGlobalFileChangeProvider*>(65));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalPreBeginRequest, &pre_begin);
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalApplicationStart,
            Pointer<IHttpApplicationStartProvider*>(67));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalApplicationResolveModules,
            Pointer<IHttpApplicationResolveModulesProvider*>(68));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalApplicationStop,
            Pointer<IHttpApplicationStopProvider*>(69));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalRSCAQuery, Pointer<IGlobalRSCAQueryProvider*>(70));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalTraceEvent, Pointer<IGlobalTraceEventProvider*>(71));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalCustomNotification,
            Pointer<ICustomNotificationProvider*>(72));
  QIV_DRIVE(registration.global_module, CGlobalModule, Terminate);
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalThreadCleanup,
            Pointer<IGlobalThreadCleanupProvider*>(73));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnGlobalApplicationPreload,
            Pointer<IGlobalApplicationPreloadProvider*>(74));
  QIV_DRIVE(registration.global_module, CGlobalModule, OnSuspendProcess, Pointer<IGlobalSuspendProcessCallback**>(75));
}

}  // namespace

extern "C" const char* DriveEveryCall(RegisterModuleFunction register_module, CallObjectsFunction call_objects) {
  auto* server = Pointer<IHttpServer*>(7777);
  if (register_module(10, &registration, server) != proof::IdentityAs<HRESULT>("RegisterModule"))
    return "RegisterModule";
  proof::Record(host_transcript, "RegisterModule", 10, &registration, server);
  if (registration.factory == nullptr || registration.global_module == nullptr) return "SetRequestNotifications";
  QIV_DRIVE(registration.factory, IHttpModuleFactory, GetHttpModule, &http_module, &allocator);
  if (http_module == nullptr) return "GetHttpModule";
  call_objects(&container, &connection, &request, &response);
  DriveHttpModule();
  DriveGlobalModule();
  if (container.stored == nullptr) return "SetModuleContext";
  QIV_DRIVE(container.stored, IHttpStoredContext, CleanupStoredContext);
  QIV_DRIVE(registration.factory, IHttpModuleFactory, Terminate);
  return host_mismatch;
}

extern "C" const proof::Transcript* HostTranscript() { return &host_transcript; }
