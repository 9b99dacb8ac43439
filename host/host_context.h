// IHttpContext of the host: one request with everything that belongs to it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/context_container.h"
#include "host/host_connection.h"
#include "host/host_request.h"
#include "host/host_response.h"
#include "host/module_host.h"
#include "host/mutex.h"
#include "host/request_memory.h"

namespace qiv::host {

/// How an asynchronous operation ended; delivered through OnAsyncCompletion.
struct Completion {
  iis::DWORD bytes = 0;
  iis::HRESULT result = 0;
};

/// What waits at a notification that returned PENDING.
struct Wakeup {
  std::optional<Completion> completion;  ///< deliver it, then use what the module returns
  iis::REQUEST_NOTIFICATION_STATUS status = iis::RQ_NOTIFICATION_CONTINUE;  ///< from IndicateCompletion
};

/// Used by one thread at a time, but for IndicateCompletion and PostCompletion, which any thread may call.
/// What the host does not have (site, application, user and metadata objects, child execution) reads as null or fails
/// with kNotSupported.
class CHostContext final : public iis::IHttpContext, public iis::IModuleAllocator {
 public:
  /// `connection` may be null (warm-up requests), `parent` too (all but child requests).
  CHostContext(CModuleHost& host, const RequestInput& input, IWire& wire, CRequestMemory& memory,
               CHostConnection* connection, CHostContext* parent);
  ~CHostContext();
  CHostContext(const CHostContext&) = delete;
  CHostContext& operator=(const CHostContext&) = delete;

  iis::IHttpSite* GetSite() override { return nullptr; }
  iis::IHttpApplication* GetApplication() override { return nullptr; }
  iis::IHttpConnection* GetConnection() override { return connection_; }
  iis::IHttpRequest* GetRequest() override { return &request_; }
  iis::IHttpResponse* GetResponse() override { return &response_; }
  iis::BOOL GetResponseHeadersSent() const override { return response_.headers_sent(); }
  iis::IHttpUser* GetUser() const override { return nullptr; }
  iis::IHttpModuleContextContainer* GetModuleContextContainer() override { return &container_; }
  void IndicateCompletion(iis::REQUEST_NOTIFICATION_STATUS status) override;
  iis::HRESULT PostCompletion(iis::DWORD bytes) override;
  void DisableNotifications(iis::DWORD main, iis::DWORD post) override;
  iis::BOOL GetNextNotification(iis::REQUEST_NOTIFICATION_STATUS, iis::DWORD*, iis::BOOL*, iis::CHttpModule**,
                                iis::IHttpEventProvider**) override {
    return 0;  // notifications are never merged
  }
  iis::BOOL GetIsLastNotification(iis::REQUEST_NOTIFICATION_STATUS) override { return 0; }
  iis::HRESULT ExecuteRequest(iis::BOOL, iis::IHttpContext*, iis::DWORD, iis::IHttpUser*, iis::BOOL*) override {
    return iis::kNotSupported;
  }
  iis::DWORD GetExecuteFlags() const override { return 0; }
  iis::HRESULT GetServerVariable(iis::PCSTR name, iis::PCSTR* value, iis::DWORD* length) override;
  iis::HRESULT GetServerVariable(iis::PCSTR name, iis::PCWSTR* value, iis::DWORD* length) override;
  iis::HRESULT SetServerVariable(iis::PCSTR name, iis::PCWSTR value) override;
  void* AllocateRequestMemory(iis::DWORD size) override;
  iis::IHttpUrlInfo* GetUrlInfo() override { return nullptr; }
  iis::IMetadataInfo* GetMetadata() override { return nullptr; }
  iis::PCWSTR GetPhysicalPath(iis::DWORD* length) override;
  iis::PCWSTR GetScriptName(iis::DWORD* length) const override;
  iis::PCWSTR GetScriptTranslated(iis::DWORD* length) override { return GetPhysicalPath(length); }
  iis::IScriptMapInfo* GetScriptMap() const override { return nullptr; }
  void SetRequestHandled() override { handled_ = true; }
  iis::IHttpFileInfo* GetFileInfo() const override { return nullptr; }
  iis::HRESULT MapPath(iis::PCWSTR url, iis::PWSTR path, iis::DWORD* bytes) override;
  iis::HRESULT NotifyCustomNotification(iis::ICustomNotificationProvider*, iis::BOOL*) override {
    return iis::kNotSupported;
  }
  iis::IHttpContext* GetParentContext() const override { return parent_; }
  iis::IHttpContext* GetRootContext() const override;
  iis::HRESULT CloneContext(iis::DWORD, iis::IHttpContext**) override { return iis::kNotSupported; }
  iis::HRESULT ReleaseClonedContext() override { return iis::kNotSupported; }
  iis::HRESULT GetCurrentExecutionStats(iis::DWORD* notification, iis::DWORD* start, iis::PCWSTR* module,
                                        iis::DWORD* module_start, iis::DWORD* async_notification,
                                        iis::DWORD* async_start) const override;
  iis::IHttpTraceContext* GetTraceContext() const override { return nullptr; }
  iis::HRESULT GetServerVarChanges(iis::DWORD, iis::DWORD*, iis::DWORD*, iis::PCSTR**, iis::PCWSTR**, iis::DWORD*,
                                   iis::DWORD**) override {
    return iis::kNotSupported;
  }
  iis::HRESULT CancelIo() override { return kNotCancelled; }
  iis::HRESULT MapHandler(iis::DWORD, iis::PCWSTR, iis::PCWSTR, iis::PCSTR, iis::IScriptMapInfo**, iis::BOOL) override {
    return iis::kNotSupported;
  }
  iis::HRESULT GetExtendedInterface(iis::HTTP_CONTEXT_INTERFACE_VERSION, iis::PVOID*) override {
    return iis::kNotSupported;
  }
  void* AllocateMemory(iis::DWORD size) override { return memory_.Allocate(size); }

  // The host's side.
  CModuleHost& host() { return host_; }
  const HostOptions& options() const { return host_.options(); }
  CRequestMemory& memory() { return memory_; }
  CHostRequest& request() { return request_; }
  CHostResponse& response() { return response_; }
  CContextContainer& container() { return container_; }
  IWire& wire() { return wire_; }
  bool handled() const { return handled_; }
  bool IsDisabled(iis::DWORD bit, bool post) const { return ((post ? disabled_post_ : disabled_main_) & bit) != 0; }

  /// The request's module objects, by position in CModuleHost::modules(). Filled by the pipeline.
  std::vector<iis::CHttpModule*> instances;
  /// When set, the names of the module methods called are added to it.
  std::vector<std::string>* trace = nullptr;
  bool finished = false;  ///< a notification returned FINISH_REQUEST
  iis::DWORD current_notification = 0;

  /// Closes the file when the request is over: its bytes may be sent until then.
  void KeepFile(iis::HANDLE file) { files_.push_back(file); }

  /// Runs the send-response notifications; called by the response for every send.
  void NotifySendResponse(bool headers, bool more_data, bool disconnect);
  /// Runs the read-entity notifications.
  void NotifyReadEntity();
  void QueueCompletion(iis::DWORD bytes, iis::HRESULT result);
  Wakeup WaitForWakeup();

 private:
  static constexpr iis::HRESULT kNotCancelled = iis::MakeHresult(0x80070490);  // nothing under way

  CModuleHost& host_;
  IWire& wire_;
  CRequestMemory& memory_;
  CHostConnection* const connection_;
  CHostContext* const parent_;
  CHostRequest request_;
  CHostResponse response_;
  CContextContainer container_;
  std::map<std::string, std::u16string> variables_;  ///< set by modules; names in upper case
  std::vector<iis::HANDLE> files_;
  bool handled_ = false;
  bool reading_entity_ = false;
  iis::DWORD disabled_main_ = 0;
  iis::DWORD disabled_post_ = 0;

  CMutex wakeup_lock_;
  std::condition_variable wakeup_signal_;
  std::deque<Wakeup> wakeups_ QIV_GUARDED_BY(wakeup_lock_);
};

}  // namespace qiv::host
