// Host objects whose every method writes down its name and arguments and returns a value that belongs to that name.
// Compiled for the MSVC ABI only, without any library.
#pragma once

#include "tests/abi/natural_httpserv.h"
#include "tests/abi/transcript.h"

/// What the host saw, for the whole program.
extern proof::Transcript host_transcript;

template <typename R, typename... A>
R Answer(const char* name, A... arguments) {
  proof::Record(host_transcript, name, arguments...);
  if constexpr (!__is_void(R)) return proof::IdentityAs<R>(name);
}

struct RecordingHttpModuleRegistrationInfo : IHttpModuleRegistrationInfo {
  PCWSTR GetName() const override { return Answer<PCWSTR>("IHttpModuleRegistrationInfo.GetName"); }
  HTTP_MODULE_ID GetId() const override { return Answer<HTTP_MODULE_ID>("IHttpModuleRegistrationInfo.GetId"); }
  HRESULT SetRequestNotifications(IHttpModuleFactory* a, DWORD b, DWORD c) override {
    return Answer<HRESULT>("IHttpModuleRegistrationInfo.SetRequestNotifications", a, b, c);
  }
  HRESULT SetGlobalNotifications(CGlobalModule* a, DWORD b) override {
    return Answer<HRESULT>("IHttpModuleRegistrationInfo.SetGlobalNotifications", a, b);
  }
  HRESULT SetPriorityForRequestNotification(DWORD a, PCWSTR b) override {
    return Answer<HRESULT>("IHttpModuleRegistrationInfo.SetPriorityForRequestNotification", a, b);
  }
  HRESULT SetPriorityForGlobalNotification(DWORD a, PCWSTR b) override {
    return Answer<HRESULT>("IHttpModuleRegistrationInfo.SetPriorityForGlobalNotification", a, b);
  }
};

struct RecordingModuleAllocator : IModuleAllocator {
  VOID* AllocateMemory(DWORD a) override { return Answer<VOID*>("IModuleAllocator.AllocateMemory", a); }
};

struct RecordingHttpModuleContextContainer : IHttpModuleContextContainer {
  IHttpStoredContext* GetModuleContext(HTTP_MODULE_ID a) override {
    return Answer<IHttpStoredContext*>("IHttpModuleContextContainer.GetModuleContext", a);
  }
  HRESULT SetModuleContext(IHttpStoredContext* a, HTTP_MODULE_ID b) override {
    return Answer<HRESULT>("IHttpModuleContextContainer.SetModuleContext", a, b);
  }
};

struct RecordingHttpConnection : IHttpConnection {
  BOOL IsConnected() const override { return Answer<BOOL>("IHttpConnection.IsConnected"); }
  VOID* AllocateMemory(DWORD a) override { return Answer<VOID*>("IHttpConnection.AllocateMemory", a); }
  IHttpConnectionModuleContextContainer* GetModuleContextContainer() override {
    return Answer<IHttpConnectionModuleContextContainer*>("IHttpConnection.GetModuleContextContainer");
  }
};

struct RecordingHttpEventProvider : IHttpEventProvider {
  VOID SetErrorStatus(HRESULT a) override { Answer<VOID>("IHttpEventProvider.SetErrorStatus", a); }
};

struct RecordingSendResponseProvider : ISendResponseProvider {
  VOID SetErrorStatus(HRESULT a) override { Answer<VOID>("ISendResponseProvider.SetErrorStatus", a); }
  BOOL GetHeadersBeingSent() const override { return Answer<BOOL>("ISendResponseProvider.GetHeadersBeingSent"); }
  DWORD GetFlags() const override { return Answer<DWORD>("ISendResponseProvider.GetFlags"); }
  VOID SetFlags(DWORD a) override { Answer<VOID>("ISendResponseProvider.SetFlags", a); }
  HTTP_LOG_DATA* GetLogData() const override { return Answer<HTTP_LOG_DATA*>("ISendResponseProvider.GetLogData"); }
  HRESULT SetLogData(HTTP_LOG_DATA* a) override { return Answer<HRESULT>("ISendResponseProvider.SetLogData", a); }
  BOOL GetReadyToLogData() const override { return Answer<BOOL>("ISendResponseProvider.GetReadyToLogData"); }
};

struct RecordingHttpCompletionInfo : IHttpCompletionInfo {
  DWORD GetCompletionBytes() const override { return Answer<DWORD>("IHttpCompletionInfo.GetCompletionBytes"); }
  HRESULT GetCompletionStatus() const override { return Answer<HRESULT>("IHttpCompletionInfo.GetCompletionStatus"); }
};

struct RecordingHttpRequest : IHttpRequest {
  const HTTP_REQUEST* GetRawHttpRequest() const override {
    return Answer<const HTTP_REQUEST*>("IHttpRequest.GetRawHttpRequest.const");
  }
  HTTP_REQUEST* GetRawHttpRequest() override { return Answer<HTTP_REQUEST*>("IHttpRequest.GetRawHttpRequest.mutable"); }
  PCSTR GetHeader(HTTP_HEADER_ID a, USHORT* b) const override {
    return Answer<PCSTR>("IHttpRequest.GetHeader.id", a, b);
  }
  PCSTR GetHeader(PCSTR a, USHORT* b) const override { return Answer<PCSTR>("IHttpRequest.GetHeader.name", a, b); }
  HRESULT SetHeader(HTTP_HEADER_ID a, PCSTR b, USHORT c, BOOL d) override {
    return Answer<HRESULT>("IHttpRequest.SetHeader.id", a, b, c, d);
  }
  HRESULT SetHeader(PCSTR a, PCSTR b, USHORT c, BOOL d) override {
    return Answer<HRESULT>("IHttpRequest.SetHeader.name", a, b, c, d);
  }
  HRESULT DeleteHeader(HTTP_HEADER_ID a) override { return Answer<HRESULT>("IHttpRequest.DeleteHeader.id", a); }
  HRESULT DeleteHeader(PCSTR a) override { return Answer<HRESULT>("IHttpRequest.DeleteHeader.name", a); }
  PCSTR GetHttpMethod() const override { return Answer<PCSTR>("IHttpRequest.GetHttpMethod"); }
  HRESULT SetHttpMethod(PCSTR a) override { return Answer<HRESULT>("IHttpRequest.SetHttpMethod", a); }
  HRESULT SetUrl(PCSTR a, DWORD b, BOOL c) override { return Answer<HRESULT>("IHttpRequest.SetUrl.narrow", a, b, c); }
  HRESULT SetUrl(PCWSTR a, DWORD b, BOOL c) override { return Answer<HRESULT>("IHttpRequest.SetUrl.wide", a, b, c); }
  BOOL GetUrlChanged() const override { return Answer<BOOL>("IHttpRequest.GetUrlChanged"); }
  PCWSTR GetForwardedUrl() const override { return Answer<PCWSTR>("IHttpRequest.GetForwardedUrl"); }
  PSOCKADDR GetLocalAddress() const override { return Answer<PSOCKADDR>("IHttpRequest.GetLocalAddress"); }
  PSOCKADDR GetRemoteAddress() const override { return Answer<PSOCKADDR>("IHttpRequest.GetRemoteAddress"); }
  HRESULT ReadEntityBody(VOID* a, DWORD b, BOOL c, DWORD* d, BOOL* e) override {
    return Answer<HRESULT>("IHttpRequest.ReadEntityBody", a, b, c, d, e);
  }
  HRESULT InsertEntityBody(VOID* a, DWORD b) override { return Answer<HRESULT>("IHttpRequest.InsertEntityBody", a, b); }
  DWORD GetRemainingEntityBytes() override { return Answer<DWORD>("IHttpRequest.GetRemainingEntityBytes"); }
  VOID GetHttpVersion(USHORT* a, USHORT* b) const override { Answer<VOID>("IHttpRequest.GetHttpVersion", a, b); }
  HRESULT GetClientCertificate(HTTP_SSL_CLIENT_CERT_INFO** a, BOOL* b) override {
    return Answer<HRESULT>("IHttpRequest.GetClientCertificate", a, b);
  }
  HRESULT NegotiateClientCertificate(BOOL a, BOOL* b) override {
    return Answer<HRESULT>("IHttpRequest.NegotiateClientCertificate", a, b);
  }
  DWORD GetSiteId() const override { return Answer<DWORD>("IHttpRequest.GetSiteId"); }
  HRESULT GetHeaderChanges(DWORD a, DWORD* b, PCSTR* c, DWORD* d, PCSTR** e, PCSTR** f, DWORD* g, DWORD* h,
                           DWORD** i) override {
    return Answer<HRESULT>("IHttpRequest.GetHeaderChanges", a, b, c, d, e, f, g, h, i);
  }
};

struct RecordingHttpResponse : IHttpResponse {
  const HTTP_RESPONSE* GetRawHttpResponse() const override {
    return Answer<const HTTP_RESPONSE*>("IHttpResponse.GetRawHttpResponse.const");
  }
  HTTP_RESPONSE* GetRawHttpResponse() override {
    return Answer<HTTP_RESPONSE*>("IHttpResponse.GetRawHttpResponse.mutable");
  }
  IHttpCachePolicy* GetCachePolicy() override { return Answer<IHttpCachePolicy*>("IHttpResponse.GetCachePolicy"); }
  HRESULT SetStatus(USHORT a, PCSTR b, USHORT c, HRESULT d, IAppHostConfigException* e, BOOL f) override {
    return Answer<HRESULT>("IHttpResponse.SetStatus", a, b, c, d, e, f);
  }
  HRESULT SetHeader(HTTP_HEADER_ID a, PCSTR b, USHORT c, BOOL d) override {
    return Answer<HRESULT>("IHttpResponse.SetHeader.id", a, b, c, d);
  }
  HRESULT SetHeader(PCSTR a, PCSTR b, USHORT c, BOOL d) override {
    return Answer<HRESULT>("IHttpResponse.SetHeader.name", a, b, c, d);
  }
  HRESULT DeleteHeader(HTTP_HEADER_ID a) override { return Answer<HRESULT>("IHttpResponse.DeleteHeader.id", a); }
  HRESULT DeleteHeader(PCSTR a) override { return Answer<HRESULT>("IHttpResponse.DeleteHeader.name", a); }
  PCSTR GetHeader(HTTP_HEADER_ID a, USHORT* b) const override {
    return Answer<PCSTR>("IHttpResponse.GetHeader.id", a, b);
  }
  PCSTR GetHeader(PCSTR a, USHORT* b) const override { return Answer<PCSTR>("IHttpResponse.GetHeader.name", a, b); }
  VOID Clear() override { Answer<VOID>("IHttpResponse.Clear"); }
  VOID ClearHeaders() override { Answer<VOID>("IHttpResponse.ClearHeaders"); }
  VOID SetNeedDisconnect() override { Answer<VOID>("IHttpResponse.SetNeedDisconnect"); }
  VOID ResetConnection() override { Answer<VOID>("IHttpResponse.ResetConnection"); }
  VOID DisableKernelCache(ULONG a) override { Answer<VOID>("IHttpResponse.DisableKernelCache", a); }
  BOOL GetKernelCacheEnabled() const override { return Answer<BOOL>("IHttpResponse.GetKernelCacheEnabled"); }
  VOID SuppressHeaders() override { Answer<VOID>("IHttpResponse.SuppressHeaders"); }
  BOOL GetHeadersSuppressed() const override { return Answer<BOOL>("IHttpResponse.GetHeadersSuppressed"); }
  HRESULT Flush(BOOL a, BOOL b, DWORD* c, BOOL* d) override {
    return Answer<HRESULT>("IHttpResponse.Flush", a, b, c, d);
  }
  HRESULT Redirect(PCSTR a, BOOL b, BOOL c) override { return Answer<HRESULT>("IHttpResponse.Redirect", a, b, c); }
  HRESULT WriteEntityChunkByReference(HTTP_DATA_CHUNK* a, LONG b) override {
    return Answer<HRESULT>("IHttpResponse.WriteEntityChunkByReference", a, b);
  }
  HRESULT WriteEntityChunks(HTTP_DATA_CHUNK* a, DWORD b, BOOL c, BOOL d, DWORD* e, BOOL* f) override {
    return Answer<HRESULT>("IHttpResponse.WriteEntityChunks", a, b, c, d, e, f);
  }
  VOID DisableBuffering() override { Answer<VOID>("IHttpResponse.DisableBuffering"); }
  VOID GetStatus(USHORT* a, USHORT* b, PCSTR* c, USHORT* d, HRESULT* e, PCWSTR* f, DWORD* g,
                 IAppHostConfigException** h, BOOL* i) override {
    Answer<VOID>("IHttpResponse.GetStatus", a, b, c, d, e, f, g, h, i);
  }
  HRESULT SetErrorDescription(PCWSTR a, DWORD b, BOOL c) override {
    return Answer<HRESULT>("IHttpResponse.SetErrorDescription", a, b, c);
  }
  PCWSTR GetErrorDescription(DWORD* a) override { return Answer<PCWSTR>("IHttpResponse.GetErrorDescription", a); }
  HRESULT GetHeaderChanges(DWORD a, DWORD* b, PCSTR* c, DWORD* d, PCSTR** e, PCSTR** f, DWORD* g, DWORD* h,
                           DWORD** i) override {
    return Answer<HRESULT>("IHttpResponse.GetHeaderChanges", a, b, c, d, e, f, g, h, i);
  }
  VOID CloseConnection() override { Answer<VOID>("IHttpResponse.CloseConnection"); }
};

struct RecordingHttpContext : IHttpContext {
  IHttpSite* GetSite() override { return Answer<IHttpSite*>("IHttpContext.GetSite"); }
  IHttpApplication* GetApplication() override { return Answer<IHttpApplication*>("IHttpContext.GetApplication"); }
  IHttpConnection* GetConnection() override { return Answer<IHttpConnection*>("IHttpContext.GetConnection"); }
  IHttpRequest* GetRequest() override { return Answer<IHttpRequest*>("IHttpContext.GetRequest"); }
  IHttpResponse* GetResponse() override { return Answer<IHttpResponse*>("IHttpContext.GetResponse"); }
  BOOL GetResponseHeadersSent() const override { return Answer<BOOL>("IHttpContext.GetResponseHeadersSent"); }
  IHttpUser* GetUser() const override { return Answer<IHttpUser*>("IHttpContext.GetUser"); }
  IHttpModuleContextContainer* GetModuleContextContainer() override {
    return Answer<IHttpModuleContextContainer*>("IHttpContext.GetModuleContextContainer");
  }
  VOID IndicateCompletion(REQUEST_NOTIFICATION_STATUS a) override {
    Answer<VOID>("IHttpContext.IndicateCompletion", a);
  }
  HRESULT PostCompletion(DWORD a) override { return Answer<HRESULT>("IHttpContext.PostCompletion", a); }
  VOID DisableNotifications(DWORD a, DWORD b) override { Answer<VOID>("IHttpContext.DisableNotifications", a, b); }
  BOOL GetNextNotification(REQUEST_NOTIFICATION_STATUS a, DWORD* b, BOOL* c, CHttpModule** d,
                           IHttpEventProvider** e) override {
    return Answer<BOOL>("IHttpContext.GetNextNotification", a, b, c, d, e);
  }
  BOOL GetIsLastNotification(REQUEST_NOTIFICATION_STATUS a) override {
    return Answer<BOOL>("IHttpContext.GetIsLastNotification", a);
  }
  HRESULT ExecuteRequest(BOOL a, IHttpContext* b, DWORD c, IHttpUser* d, BOOL* e) override {
    return Answer<HRESULT>("IHttpContext.ExecuteRequest", a, b, c, d, e);
  }
  DWORD GetExecuteFlags() const override { return Answer<DWORD>("IHttpContext.GetExecuteFlags"); }
  HRESULT GetServerVariable(PCSTR a, PCSTR* b, DWORD* c) override {
    return Answer<HRESULT>("IHttpContext.GetServerVariable.narrow", a, b, c);
  }
  HRESULT GetServerVariable(PCSTR a, PCWSTR* b, DWORD* c) override {
    return Answer<HRESULT>("IHttpContext.GetServerVariable.wide", a, b, c);
  }
  HRESULT SetServerVariable(PCSTR a, PCWSTR b) override {
    return Answer<HRESULT>("IHttpContext.SetServerVariable", a, b);
  }
  VOID* AllocateRequestMemory(DWORD a) override { return Answer<VOID*>("IHttpContext.AllocateRequestMemory", a); }
  IHttpUrlInfo* GetUrlInfo() override { return Answer<IHttpUrlInfo*>("IHttpContext.GetUrlInfo"); }
  IMetadataInfo* GetMetadata() override { return Answer<IMetadataInfo*>("IHttpContext.GetMetadata"); }
  PCWSTR GetPhysicalPath(DWORD* a) override { return Answer<PCWSTR>("IHttpContext.GetPhysicalPath", a); }
  PCWSTR GetScriptName(DWORD* a) const override { return Answer<PCWSTR>("IHttpContext.GetScriptName", a); }
  PCWSTR GetScriptTranslated(DWORD* a) override { return Answer<PCWSTR>("IHttpContext.GetScriptTranslated", a); }
  IScriptMapInfo* GetScriptMap() const override { return Answer<IScriptMapInfo*>("IHttpContext.GetScriptMap"); }
  VOID SetRequestHandled() override { Answer<VOID>("IHttpContext.SetRequestHandled"); }
  IHttpFileInfo* GetFileInfo() const override { return Answer<IHttpFileInfo*>("IHttpContext.GetFileInfo"); }
  HRESULT MapPath(PCWSTR a, PWSTR b, DWORD* c) override { return Answer<HRESULT>("IHttpContext.MapPath", a, b, c); }
  HRESULT NotifyCustomNotification(ICustomNotificationProvider* a, BOOL* b) override {
    return Answer<HRESULT>("IHttpContext.NotifyCustomNotification", a, b);
  }
  IHttpContext* GetParentContext() const override { return Answer<IHttpContext*>("IHttpContext.GetParentContext"); }
  IHttpContext* GetRootContext() const override { return Answer<IHttpContext*>("IHttpContext.GetRootContext"); }
  HRESULT CloneContext(DWORD a, IHttpContext** b) override {
    return Answer<HRESULT>("IHttpContext.CloneContext", a, b);
  }
  HRESULT ReleaseClonedContext() override { return Answer<HRESULT>("IHttpContext.ReleaseClonedContext"); }
  HRESULT GetCurrentExecutionStats(DWORD* a, DWORD* b, PCWSTR* c, DWORD* d, DWORD* e, DWORD* f) const override {
    return Answer<HRESULT>("IHttpContext.GetCurrentExecutionStats", a, b, c, d, e, f);
  }
  IHttpTraceContext* GetTraceContext() const override {
    return Answer<IHttpTraceContext*>("IHttpContext.GetTraceContext");
  }
  HRESULT GetServerVarChanges(DWORD a, DWORD* b, DWORD* c, PCSTR** d, PCWSTR** e, DWORD* f, DWORD** g) override {
    return Answer<HRESULT>("IHttpContext.GetServerVarChanges", a, b, c, d, e, f, g);
  }
  HRESULT CancelIo() override { return Answer<HRESULT>("IHttpContext.CancelIo"); }
  HRESULT MapHandler(DWORD a, PCWSTR b, PCWSTR c, PCSTR d, IScriptMapInfo** e, BOOL f) override {
    return Answer<HRESULT>("IHttpContext.MapHandler", a, b, c, d, e, f);
  }
  HRESULT GetExtendedInterface(HTTP_CONTEXT_INTERFACE_VERSION a, PVOID* b) override {
    return Answer<HRESULT>("IHttpContext.GetExtendedInterface", a, b);
  }
};

struct RecordingPreBeginRequestProvider : IPreBeginRequestProvider {
  VOID SetErrorStatus(HRESULT a) override { Answer<VOID>("IPreBeginRequestProvider.SetErrorStatus", a); }
  IHttpContext* GetHttpContext() override { return Answer<IHttpContext*>("IPreBeginRequestProvider.GetHttpContext"); }
};
