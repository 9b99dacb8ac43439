// Our declaration of the native-module interface of the web server.
//
// The server hands out pointers to objects built by MSVC, so what counts is the slot of every virtual method. The
// methods below stand in slot order. MSVC groups the overloads of one name at the first one's slot in REVERSE order of
// declaration while the Itanium ABI (g++, clang on Linux and mingw) keeps the order written; QIV_IIS_OVERLOADS
// therefore takes a pair in slot order and turns it round for MSVC. tests/abi proves the result against a host compiled
// for the MSVC ABI.
//
// Everything lives in namespace iis, so that the header stands beside the system's own headers.
#pragma once

#include "iis/http_types.h"

#if defined(_MSC_VER)
#define QIV_IIS_OVERLOADS(first, second) second first
#else
#define QIV_IIS_OVERLOADS(first, second) first second
#endif
/// One declaration inside QIV_IIS_OVERLOADS (its commas are protected by the variadic form).
#define QIV_IIS_METHOD(...) __VA_ARGS__;

namespace iis {

class IHttpModuleRegistrationInfo;
class IHttpModuleFactory;
class IModuleAllocator;
class CGlobalModule;
class CHttpModule;
class IHttpStoredContext;
class IHttpModuleContextContainer;
class IHttpContext;
class IHttpRequest;
class IHttpResponse;
class IHttpConnection;
class IHttpEventProvider;
class ISendResponseProvider;
class IPreBeginRequestProvider;
class IHttpCompletionInfo;
class IAppHostConfigException;
class IAuthenticationProvider;
class ICacheProvider;
class ICustomNotificationProvider;
class IGlobalApplicationPreloadProvider;
class IGlobalConfigurationChangeProvider;
class IGlobalFileChangeProvider;
class IGlobalRSCAQueryProvider;
class IGlobalStopListeningProvider;
class IGlobalSuspendProcessCallback;
class IGlobalThreadCleanupProvider;
class IGlobalTraceEventProvider;
class IHttpApplication;
class IHttpApplicationResolveModulesProvider;
class IHttpApplicationStartProvider;
class IHttpApplicationStopProvider;
class IHttpCachePolicy;
class IHttpConnectionModuleContextContainer;
class IHttpFileInfo;
class IHttpServer;
class IHttpSite;
class IHttpTraceContext;
class IHttpUrlInfo;
class IHttpUser;
class IMapHandlerProvider;
class IMapPathProvider;
class IMetadataInfo;
class IReadEntityProvider;
class IScriptMapInfo;

/// Opaque, pointer sized; a small number in practice.
using HTTP_MODULE_ID = void*;

enum REQUEST_NOTIFICATION_STATUS : std::int32_t {
  RQ_NOTIFICATION_CONTINUE = 0,
  RQ_NOTIFICATION_PENDING = 1,
  RQ_NOTIFICATION_FINISH_REQUEST = 2,
};

enum GLOBAL_NOTIFICATION_STATUS : std::int32_t {
  GL_NOTIFICATION_CONTINUE = 0,
  GL_NOTIFICATION_HANDLED = 1,
};

enum HTTP_CONTEXT_INTERFACE_VERSION : std::int32_t { HTTP_CONTEXT_INTERFACE_VERSION_1 = 1 };

inline constexpr DWORD RQ_BEGIN_REQUEST = 0x00000001;
inline constexpr DWORD RQ_AUTHENTICATE_REQUEST = 0x00000002;
inline constexpr DWORD RQ_AUTHORIZE_REQUEST = 0x00000004;
inline constexpr DWORD RQ_RESOLVE_REQUEST_CACHE = 0x00000008;
inline constexpr DWORD RQ_MAP_REQUEST_HANDLER = 0x00000010;
inline constexpr DWORD RQ_ACQUIRE_REQUEST_STATE = 0x00000020;
inline constexpr DWORD RQ_PRE_EXECUTE_REQUEST_HANDLER = 0x00000040;
inline constexpr DWORD RQ_EXECUTE_REQUEST_HANDLER = 0x00000080;
inline constexpr DWORD RQ_RELEASE_REQUEST_STATE = 0x00000100;
inline constexpr DWORD RQ_UPDATE_REQUEST_CACHE = 0x00000200;
inline constexpr DWORD RQ_LOG_REQUEST = 0x00000400;
inline constexpr DWORD RQ_END_REQUEST = 0x00000800;
inline constexpr DWORD RQ_CUSTOM_NOTIFICATION = 0x10000000;
inline constexpr DWORD RQ_SEND_RESPONSE = 0x20000000;
inline constexpr DWORD RQ_READ_ENTITY = 0x40000000;
inline constexpr DWORD RQ_MAP_PATH = 0x80000000;

inline constexpr DWORD GL_PRE_BEGIN_REQUEST = 0x00000100;

inline constexpr WCHAR PRIORITY_ALIAS_FIRST[] = u"FIRST";
inline constexpr WCHAR PRIORITY_ALIAS_HIGH[] = u"HIGH";
inline constexpr WCHAR PRIORITY_ALIAS_MEDIUM[] = u"MEDIUM";
inline constexpr WCHAR PRIORITY_ALIAS_LOW[] = u"LOW";
inline constexpr WCHAR PRIORITY_ALIAS_LAST[] = u"LAST";

/// ISendResponseProvider::GetFlags bits.
inline constexpr DWORD HTTP_SEND_RESPONSE_FLAG_DISCONNECT = 0x1;
inline constexpr DWORD HTTP_SEND_RESPONSE_FLAG_MORE_DATA = 0x2;
inline constexpr DWORD HTTP_SEND_RESPONSE_FLAG_BUFFER_DATA = 0x4;

/// What the server hands to RegisterModule. Valid only during that call.
class IHttpModuleRegistrationInfo {
 public:
  virtual PCWSTR GetName() const = 0;
  virtual HTTP_MODULE_ID GetId() const = 0;
  virtual HRESULT SetRequestNotifications(IHttpModuleFactory*, DWORD, DWORD) = 0;
  virtual HRESULT SetGlobalNotifications(CGlobalModule*, DWORD) = 0;
  virtual HRESULT SetPriorityForRequestNotification(DWORD, PCWSTR) = 0;
  virtual HRESULT SetPriorityForGlobalNotification(DWORD, PCWSTR) = 0;

 protected:
  ~IHttpModuleRegistrationInfo() = default;
};

/// Implemented by a module: gives the server one CHttpModule per request. Called on many threads.
class IHttpModuleFactory {
 public:
  virtual HRESULT GetHttpModule(CHttpModule**, IModuleAllocator*) = 0;
  virtual VOID Terminate() = 0;

 protected:
  ~IHttpModuleFactory() = default;
};

/// Memory that lives until the end of the request.
class IModuleAllocator {
 public:
  virtual VOID* AllocateMemory(DWORD) = 0;

 protected:
  ~IModuleAllocator() = default;
};

/// Implemented by a module: process-wide notifications. No virtual destructor; Terminate() ends it.
class CGlobalModule {
 public:
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalStopListening(IGlobalStopListeningProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalCacheCleanup() { return GL_NOTIFICATION_CONTINUE; }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalCacheOperation(ICacheProvider*) { return GL_NOTIFICATION_CONTINUE; }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalHealthCheck() { return GL_NOTIFICATION_CONTINUE; }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalConfigurationChange(IGlobalConfigurationChangeProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalFileChange(IGlobalFileChangeProvider*) { return GL_NOTIFICATION_CONTINUE; }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalPreBeginRequest(IPreBeginRequestProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationStart(IHttpApplicationStartProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationResolveModules(IHttpApplicationResolveModulesProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationStop(IHttpApplicationStopProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalRSCAQuery(IGlobalRSCAQueryProvider*) { return GL_NOTIFICATION_CONTINUE; }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalTraceEvent(IGlobalTraceEventProvider*) { return GL_NOTIFICATION_CONTINUE; }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalCustomNotification(ICustomNotificationProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual VOID Terminate() = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalThreadCleanup(IGlobalThreadCleanupProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationPreload(IGlobalApplicationPreloadProvider*) {
    return GL_NOTIFICATION_CONTINUE;
  }
  virtual GLOBAL_NOTIFICATION_STATUS OnSuspendProcess(IGlobalSuspendProcessCallback**) {
    return GL_NOTIFICATION_CONTINUE;
  }
};

/// Implemented by a module: the notifications of one request. The destructor comes last in the table.
class CHttpModule {
 public:
  virtual REQUEST_NOTIFICATION_STATUS OnBeginRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostBeginRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnAuthenticateRequest(IHttpContext*, IAuthenticationProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostAuthenticateRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnAuthorizeRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostAuthorizeRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnResolveRequestCache(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostResolveRequestCache(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnMapRequestHandler(IHttpContext*, IMapHandlerProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostMapRequestHandler(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnAcquireRequestState(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostAcquireRequestState(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPreExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostPreExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnReleaseRequestState(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostReleaseRequestState(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnUpdateRequestCache(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostUpdateRequestCache(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnLogRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostLogRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnEndRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnPostEndRequest(IHttpContext*, IHttpEventProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnSendResponse(IHttpContext*, ISendResponseProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnMapPath(IHttpContext*, IMapPathProvider*) { return RQ_NOTIFICATION_CONTINUE; }
  virtual REQUEST_NOTIFICATION_STATUS OnReadEntity(IHttpContext*, IReadEntityProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnCustomRequestNotification(IHttpContext*, ICustomNotificationProvider*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual REQUEST_NOTIFICATION_STATUS OnAsyncCompletion(IHttpContext*, DWORD, BOOL, IHttpEventProvider*,
                                                        IHttpCompletionInfo*) {
    return RQ_NOTIFICATION_CONTINUE;
  }
  virtual VOID Dispose() { delete this; }

 protected:
  CHttpModule() = default;
  virtual ~CHttpModule() = default;
};

/// Implemented by a module: an object kept with a request. The server calls CleanupStoredContext when the request ends.
class IHttpStoredContext {
 public:
  virtual VOID CleanupStoredContext() = 0;

 protected:
  ~IHttpStoredContext() = default;
};

/// Holds at most one stored context per module. A second SetModuleContext for one module fails and replaces nothing.
class IHttpModuleContextContainer {
 public:
  virtual IHttpStoredContext* GetModuleContext(HTTP_MODULE_ID) = 0;
  virtual HRESULT SetModuleContext(IHttpStoredContext*, HTTP_MODULE_ID) = 0;

 protected:
  ~IHttpModuleContextContainer() = default;
};

/// One request and its response. Notifications of one request are serial but may change threads.
class IHttpContext {
 public:
  virtual IHttpSite* GetSite() = 0;
  virtual IHttpApplication* GetApplication() = 0;
  virtual IHttpConnection* GetConnection() = 0;
  virtual IHttpRequest* GetRequest() = 0;
  virtual IHttpResponse* GetResponse() = 0;
  virtual BOOL GetResponseHeadersSent() const = 0;
  virtual IHttpUser* GetUser() const = 0;
  virtual IHttpModuleContextContainer* GetModuleContextContainer() = 0;
  virtual VOID IndicateCompletion(REQUEST_NOTIFICATION_STATUS) = 0;
  virtual HRESULT PostCompletion(DWORD) = 0;
  virtual VOID DisableNotifications(DWORD, DWORD) = 0;
  virtual BOOL GetNextNotification(REQUEST_NOTIFICATION_STATUS, DWORD*, BOOL*, CHttpModule**, IHttpEventProvider**) = 0;
  virtual BOOL GetIsLastNotification(REQUEST_NOTIFICATION_STATUS) = 0;
  virtual HRESULT ExecuteRequest(BOOL, IHttpContext*, DWORD, IHttpUser*, BOOL*) = 0;
  virtual DWORD GetExecuteFlags() const = 0;
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual HRESULT GetServerVariable(PCSTR, PCSTR*, DWORD*) = 0),
                    QIV_IIS_METHOD(virtual HRESULT GetServerVariable(PCSTR, PCWSTR*, DWORD*) = 0))
  virtual HRESULT SetServerVariable(PCSTR, PCWSTR) = 0;
  virtual VOID* AllocateRequestMemory(DWORD) = 0;
  virtual IHttpUrlInfo* GetUrlInfo() = 0;
  virtual IMetadataInfo* GetMetadata() = 0;
  virtual PCWSTR GetPhysicalPath(DWORD*) = 0;
  virtual PCWSTR GetScriptName(DWORD*) const = 0;
  virtual PCWSTR GetScriptTranslated(DWORD*) = 0;
  virtual IScriptMapInfo* GetScriptMap() const = 0;
  virtual VOID SetRequestHandled() = 0;
  virtual IHttpFileInfo* GetFileInfo() const = 0;
  virtual HRESULT MapPath(PCWSTR, PWSTR, DWORD*) = 0;
  virtual HRESULT NotifyCustomNotification(ICustomNotificationProvider*, BOOL*) = 0;
  virtual IHttpContext* GetParentContext() const = 0;
  virtual IHttpContext* GetRootContext() const = 0;
  virtual HRESULT CloneContext(DWORD, IHttpContext**) = 0;
  virtual HRESULT ReleaseClonedContext() = 0;
  virtual HRESULT GetCurrentExecutionStats(DWORD*, DWORD*, PCWSTR*, DWORD*, DWORD*, DWORD*) const = 0;
  virtual IHttpTraceContext* GetTraceContext() const = 0;
  virtual HRESULT GetServerVarChanges(DWORD, DWORD*, DWORD*, PCSTR**, PCWSTR**, DWORD*, DWORD**) = 0;
  virtual HRESULT CancelIo() = 0;
  virtual HRESULT MapHandler(DWORD, PCWSTR, PCWSTR, PCSTR, IScriptMapInfo**, BOOL) = 0;
  virtual HRESULT GetExtendedInterface(HTTP_CONTEXT_INTERFACE_VERSION, PVOID*) = 0;

 protected:
  ~IHttpContext() = default;
};

/// The request half of a context.
class IHttpRequest {
 public:
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual const HTTP_REQUEST* GetRawHttpRequest() const = 0),
                    QIV_IIS_METHOD(virtual HTTP_REQUEST* GetRawHttpRequest() = 0))
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual PCSTR GetHeader(HTTP_HEADER_ID, USHORT*) const = 0),
                    QIV_IIS_METHOD(virtual PCSTR GetHeader(PCSTR, USHORT*) const = 0))
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual HRESULT SetHeader(HTTP_HEADER_ID, PCSTR, USHORT, BOOL) = 0),
                    QIV_IIS_METHOD(virtual HRESULT SetHeader(PCSTR, PCSTR, USHORT, BOOL) = 0))
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual HRESULT DeleteHeader(HTTP_HEADER_ID) = 0),
                    QIV_IIS_METHOD(virtual HRESULT DeleteHeader(PCSTR) = 0))
  virtual PCSTR GetHttpMethod() const = 0;
  virtual HRESULT SetHttpMethod(PCSTR) = 0;
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual HRESULT SetUrl(PCSTR, DWORD, BOOL) = 0),
                    QIV_IIS_METHOD(virtual HRESULT SetUrl(PCWSTR, DWORD, BOOL) = 0))
  virtual BOOL GetUrlChanged() const = 0;
  virtual PCWSTR GetForwardedUrl() const = 0;
  virtual PSOCKADDR GetLocalAddress() const = 0;
  virtual PSOCKADDR GetRemoteAddress() const = 0;
  virtual HRESULT ReadEntityBody(VOID*, DWORD, BOOL, DWORD*, BOOL*) = 0;
  virtual HRESULT InsertEntityBody(VOID*, DWORD) = 0;
  virtual DWORD GetRemainingEntityBytes() = 0;
  virtual VOID GetHttpVersion(USHORT*, USHORT*) const = 0;
  virtual HRESULT GetClientCertificate(HTTP_SSL_CLIENT_CERT_INFO**, BOOL*) = 0;
  virtual HRESULT NegotiateClientCertificate(BOOL, BOOL*) = 0;
  virtual DWORD GetSiteId() const = 0;
  virtual HRESULT GetHeaderChanges(DWORD, DWORD*, PCSTR*, DWORD*, PCSTR**, PCSTR**, DWORD*, DWORD*, DWORD**) = 0;

 protected:
  ~IHttpRequest() = default;
};

/// The response half of a context.
class IHttpResponse {
 public:
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual const HTTP_RESPONSE* GetRawHttpResponse() const = 0),
                    QIV_IIS_METHOD(virtual HTTP_RESPONSE* GetRawHttpResponse() = 0))
  virtual IHttpCachePolicy* GetCachePolicy() = 0;
  virtual HRESULT SetStatus(USHORT, PCSTR, USHORT, HRESULT, IAppHostConfigException*, BOOL) = 0;
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual HRESULT SetHeader(HTTP_HEADER_ID, PCSTR, USHORT, BOOL) = 0),
                    QIV_IIS_METHOD(virtual HRESULT SetHeader(PCSTR, PCSTR, USHORT, BOOL) = 0))
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual HRESULT DeleteHeader(HTTP_HEADER_ID) = 0),
                    QIV_IIS_METHOD(virtual HRESULT DeleteHeader(PCSTR) = 0))
  QIV_IIS_OVERLOADS(QIV_IIS_METHOD(virtual PCSTR GetHeader(HTTP_HEADER_ID, USHORT*) const = 0),
                    QIV_IIS_METHOD(virtual PCSTR GetHeader(PCSTR, USHORT*) const = 0))
  virtual VOID Clear() = 0;
  virtual VOID ClearHeaders() = 0;
  virtual VOID SetNeedDisconnect() = 0;
  virtual VOID ResetConnection() = 0;
  virtual VOID DisableKernelCache(ULONG) = 0;
  virtual BOOL GetKernelCacheEnabled() const = 0;
  virtual VOID SuppressHeaders() = 0;
  virtual BOOL GetHeadersSuppressed() const = 0;
  virtual HRESULT Flush(BOOL, BOOL, DWORD*, BOOL*) = 0;
  virtual HRESULT Redirect(PCSTR, BOOL, BOOL) = 0;
  virtual HRESULT WriteEntityChunkByReference(HTTP_DATA_CHUNK*, LONG) = 0;
  virtual HRESULT WriteEntityChunks(HTTP_DATA_CHUNK*, DWORD, BOOL, BOOL, DWORD*, BOOL*) = 0;
  virtual VOID DisableBuffering() = 0;
  virtual VOID GetStatus(USHORT*, USHORT*, PCSTR*, USHORT*, HRESULT*, PCWSTR*, DWORD*, IAppHostConfigException**,
                         BOOL*) = 0;
  virtual HRESULT SetErrorDescription(PCWSTR, DWORD, BOOL) = 0;
  virtual PCWSTR GetErrorDescription(DWORD*) = 0;
  virtual HRESULT GetHeaderChanges(DWORD, DWORD*, PCSTR*, DWORD*, PCSTR**, PCSTR**, DWORD*, DWORD*, DWORD**) = 0;
  virtual VOID CloseConnection() = 0;

 protected:
  ~IHttpResponse() = default;
};

/// The client connection; may be absent for warm-up requests.
class IHttpConnection {
 public:
  virtual BOOL IsConnected() const = 0;
  virtual VOID* AllocateMemory(DWORD) = 0;
  virtual IHttpConnectionModuleContextContainer* GetModuleContextContainer() = 0;

 protected:
  ~IHttpConnection() = default;
};

/// Argument of the notifications that carry nothing else.
class IHttpEventProvider {
 public:
  virtual VOID SetErrorStatus(HRESULT) = 0;

 protected:
  ~IHttpEventProvider() = default;
};

/// Argument of OnSendResponse: what this send carries.
class ISendResponseProvider {
 public:
  virtual VOID SetErrorStatus(HRESULT) = 0;
  virtual BOOL GetHeadersBeingSent() const = 0;
  virtual DWORD GetFlags() const = 0;
  virtual VOID SetFlags(DWORD) = 0;
  virtual HTTP_LOG_DATA* GetLogData() const = 0;
  virtual HRESULT SetLogData(HTTP_LOG_DATA*) = 0;
  virtual BOOL GetReadyToLogData() const = 0;

 protected:
  ~ISendResponseProvider() = default;
};

/// Argument of OnGlobalPreBeginRequest.
class IPreBeginRequestProvider {
 public:
  virtual VOID SetErrorStatus(HRESULT) = 0;
  virtual IHttpContext* GetHttpContext() = 0;

 protected:
  ~IPreBeginRequestProvider() = default;
};

/// Argument of OnAsyncCompletion.
class IHttpCompletionInfo {
 public:
  virtual DWORD GetCompletionBytes() const = 0;
  virtual HRESULT GetCompletionStatus() const = 0;

 protected:
  ~IHttpCompletionInfo() = default;
};
/// The module's only export.
using RegisterModuleFunction = HRESULT (*)(DWORD server_version, IHttpModuleRegistrationInfo* registration,
                                           IHttpServer* server);

}  // namespace iis

#undef QIV_IIS_OVERLOADS
#undef QIV_IIS_METHOD
