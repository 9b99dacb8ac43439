// The native-module interface in the vendor's natural order of declaration, for a compiler with the MSVC ABI: overloads
// stand as documented (name before id, wide before narrow, non-const before const). Such a compiler lays the slots out
// as the real server has them; check_slots.py compares the result with slots.txt. Shares nothing with iis/.
#pragma once

#include "tests/abi/natural_types.h"

class CGlobalModule;
class CHttpModule;
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
class IHttpCompletionInfo;
class IHttpConnection;
class IHttpConnectionModuleContextContainer;
class IHttpContext;
class IHttpEventProvider;
class IHttpFileInfo;
class IHttpModuleContextContainer;
class IHttpModuleFactory;
class IHttpModuleRegistrationInfo;
class IHttpRequest;
class IHttpServer;
class IHttpResponse;
class IHttpSite;
class IHttpStoredContext;
class IHttpTraceContext;
class IHttpUrlInfo;
class IHttpUser;
class IMapHandlerProvider;
class IMapPathProvider;
class IMetadataInfo;
class IModuleAllocator;
class IPreBeginRequestProvider;
class IReadEntityProvider;
class IScriptMapInfo;
class ISendResponseProvider;

class IHttpModuleRegistrationInfo {
 public:
  virtual PCWSTR GetName() const = 0;
  virtual HTTP_MODULE_ID GetId() const = 0;
  virtual HRESULT SetRequestNotifications(IHttpModuleFactory*, DWORD, DWORD) = 0;
  virtual HRESULT SetGlobalNotifications(CGlobalModule*, DWORD) = 0;
  virtual HRESULT SetPriorityForRequestNotification(DWORD, PCWSTR) = 0;
  virtual HRESULT SetPriorityForGlobalNotification(DWORD, PCWSTR) = 0;
};

class IHttpModuleFactory {
 public:
  virtual HRESULT GetHttpModule(CHttpModule**, IModuleAllocator*) = 0;
  virtual VOID Terminate() = 0;
};

class IModuleAllocator {
 public:
  virtual VOID* AllocateMemory(DWORD) = 0;
};

class CGlobalModule {
 public:
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalStopListening(IGlobalStopListeningProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalCacheCleanup() = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalCacheOperation(ICacheProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalHealthCheck() = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalConfigurationChange(IGlobalConfigurationChangeProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalFileChange(IGlobalFileChangeProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalPreBeginRequest(IPreBeginRequestProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationStart(IHttpApplicationStartProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationResolveModules(IHttpApplicationResolveModulesProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationStop(IHttpApplicationStopProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalRSCAQuery(IGlobalRSCAQueryProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalTraceEvent(IGlobalTraceEventProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalCustomNotification(ICustomNotificationProvider*) = 0;
  virtual VOID Terminate() = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalThreadCleanup(IGlobalThreadCleanupProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnGlobalApplicationPreload(IGlobalApplicationPreloadProvider*) = 0;
  virtual GLOBAL_NOTIFICATION_STATUS OnSuspendProcess(IGlobalSuspendProcessCallback**) = 0;
};

class CHttpModule {
 public:
  virtual REQUEST_NOTIFICATION_STATUS OnBeginRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostBeginRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnAuthenticateRequest(IHttpContext*, IAuthenticationProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostAuthenticateRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnAuthorizeRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostAuthorizeRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnResolveRequestCache(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostResolveRequestCache(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnMapRequestHandler(IHttpContext*, IMapHandlerProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostMapRequestHandler(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnAcquireRequestState(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostAcquireRequestState(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPreExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostPreExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostExecuteRequestHandler(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnReleaseRequestState(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostReleaseRequestState(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnUpdateRequestCache(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostUpdateRequestCache(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnLogRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostLogRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnEndRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnPostEndRequest(IHttpContext*, IHttpEventProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnSendResponse(IHttpContext*, ISendResponseProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnMapPath(IHttpContext*, IMapPathProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnReadEntity(IHttpContext*, IReadEntityProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnCustomRequestNotification(IHttpContext*, ICustomNotificationProvider*) = 0;
  virtual REQUEST_NOTIFICATION_STATUS OnAsyncCompletion(IHttpContext*, DWORD, BOOL, IHttpEventProvider*,
                                                        IHttpCompletionInfo*) = 0;
  virtual VOID Dispose() = 0;

 protected:
  virtual ~CHttpModule() {}
};

class IHttpStoredContext {
 public:
  virtual VOID CleanupStoredContext() = 0;
};

class IHttpModuleContextContainer {
 public:
  virtual IHttpStoredContext* GetModuleContext(HTTP_MODULE_ID) = 0;
  virtual HRESULT SetModuleContext(IHttpStoredContext*, HTTP_MODULE_ID) = 0;
};

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
  virtual HRESULT GetServerVariable(PCSTR, PCWSTR*, DWORD*) = 0;
  virtual HRESULT GetServerVariable(PCSTR, PCSTR*, DWORD*) = 0;
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
};

class IHttpRequest {
 public:
  virtual HTTP_REQUEST* GetRawHttpRequest() = 0;
  virtual const HTTP_REQUEST* GetRawHttpRequest() const = 0;
  virtual PCSTR GetHeader(PCSTR, USHORT*) const = 0;
  virtual PCSTR GetHeader(HTTP_HEADER_ID, USHORT*) const = 0;
  virtual HRESULT SetHeader(PCSTR, PCSTR, USHORT, BOOL) = 0;
  virtual HRESULT SetHeader(HTTP_HEADER_ID, PCSTR, USHORT, BOOL) = 0;
  virtual HRESULT DeleteHeader(PCSTR) = 0;
  virtual HRESULT DeleteHeader(HTTP_HEADER_ID) = 0;
  virtual PCSTR GetHttpMethod() const = 0;
  virtual HRESULT SetHttpMethod(PCSTR) = 0;
  virtual HRESULT SetUrl(PCWSTR, DWORD, BOOL) = 0;
  virtual HRESULT SetUrl(PCSTR, DWORD, BOOL) = 0;
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
};

class IHttpResponse {
 public:
  virtual HTTP_RESPONSE* GetRawHttpResponse() = 0;
  virtual const HTTP_RESPONSE* GetRawHttpResponse() const = 0;
  virtual IHttpCachePolicy* GetCachePolicy() = 0;
  virtual HRESULT SetStatus(USHORT, PCSTR, USHORT, HRESULT, IAppHostConfigException*, BOOL) = 0;
  virtual HRESULT SetHeader(PCSTR, PCSTR, USHORT, BOOL) = 0;
  virtual HRESULT SetHeader(HTTP_HEADER_ID, PCSTR, USHORT, BOOL) = 0;
  virtual HRESULT DeleteHeader(PCSTR) = 0;
  virtual HRESULT DeleteHeader(HTTP_HEADER_ID) = 0;
  virtual PCSTR GetHeader(PCSTR, USHORT*) const = 0;
  virtual PCSTR GetHeader(HTTP_HEADER_ID, USHORT*) const = 0;
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
};

class IHttpConnection {
 public:
  virtual BOOL IsConnected() const = 0;
  virtual VOID* AllocateMemory(DWORD) = 0;
  virtual IHttpConnectionModuleContextContainer* GetModuleContextContainer() = 0;
};

class IHttpEventProvider {
 public:
  virtual VOID SetErrorStatus(HRESULT) = 0;
};

class ISendResponseProvider {
 public:
  virtual VOID SetErrorStatus(HRESULT) = 0;
  virtual BOOL GetHeadersBeingSent() const = 0;
  virtual DWORD GetFlags() const = 0;
  virtual VOID SetFlags(DWORD) = 0;
  virtual HTTP_LOG_DATA* GetLogData() const = 0;
  virtual HRESULT SetLogData(HTTP_LOG_DATA*) = 0;
  virtual BOOL GetReadyToLogData() const = 0;
};

class IPreBeginRequestProvider {
 public:
  virtual VOID SetErrorStatus(HRESULT) = 0;
  virtual IHttpContext* GetHttpContext() = 0;
};

class IHttpCompletionInfo {
 public:
  virtual DWORD GetCompletionBytes() const = 0;
  virtual HRESULT GetCompletionStatus() const = 0;
};
