#include "host/host_context.h"

#include <cstring>
#include <thread>

#include "host/file_handle.h"
#include "host/notifications.h"
#include "host/results.h"
#include "host/server_variables.h"
#include "port/code_page.h"

namespace qiv::host {
namespace {

std::string UpperName(iis::PCSTR name) {
  std::string upper(name);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return upper;
}

/// Arguments of OnSendResponse.
class CSendResponseProvider final : public iis::ISendResponseProvider {
 public:
  CSendResponseProvider(bool headers, iis::DWORD flags) : headers_(headers), flags_(flags) {}
  void SetErrorStatus(iis::HRESULT) override {}
  iis::BOOL GetHeadersBeingSent() const override { return headers_; }
  iis::DWORD GetFlags() const override { return flags_; }
  void SetFlags(iis::DWORD flags) override { flags_ = flags; }
  iis::HTTP_LOG_DATA* GetLogData() const override { return log_data_; }
  iis::HRESULT SetLogData(iis::HTTP_LOG_DATA* data) override {
    log_data_ = data;
    return kOk;
  }
  iis::BOOL GetReadyToLogData() const override { return (flags_ & iis::HTTP_SEND_RESPONSE_FLAG_MORE_DATA) == 0; }

 private:
  const iis::BOOL headers_;
  iis::DWORD flags_;
  iis::HTTP_LOG_DATA* log_data_ = nullptr;
};

}  // namespace

CHostContext::CHostContext(CModuleHost& host, const RequestInput& input, IWire& wire, CRequestMemory& memory,
                           CHostConnection* connection, CHostContext* parent)
    : host_(host),
      wire_(wire),
      memory_(memory),
      connection_(connection),
      parent_(parent),
      request_(*this, input, wire),
      response_(*this, wire) {}

CHostContext::~CHostContext() {
  for (const iis::HANDLE file : files_) CloseFile(file);
}

iis::IHttpContext* CHostContext::GetRootContext() const {
  const CHostContext* root = this;
  while (root->parent_ != nullptr) root = root->parent_;
  return const_cast<CHostContext*>(root);
}

void* CHostContext::AllocateRequestMemory(iis::DWORD size) {
  void* memory = nullptr;
  Guarded([&] {
    memory = memory_.Allocate(size);
    return kOk;
  });
  return memory;
}

void CHostContext::DisableNotifications(iis::DWORD main, iis::DWORD post) {
  disabled_main_ |= main;
  disabled_post_ |= post;
}

iis::HRESULT CHostContext::GetServerVariable(iis::PCSTR name, iis::PCSTR* value, iis::DWORD* length) {
  if (name == nullptr || value == nullptr) return kInvalidArgument;
  return Guarded([&]() -> iis::HRESULT {
    const std::string upper = UpperName(name);
    VariableValue found;
    if (const auto own = variables_.find(upper); own != variables_.end()) {
      found.is_wide = true;
      found.wide = own->second;
    } else if (!FindServerVariable(*this, upper, &found)) {
      return iis::kInvalidIndex;
    }
    if (found.is_wide) found.bytes = Utf16ToUtf8(found.wide);
    *value = memory_.CopyText(found.bytes);
    if (length != nullptr) *length = static_cast<iis::DWORD>(found.bytes.size());
    return kOk;
  });
}

iis::HRESULT CHostContext::GetServerVariable(iis::PCSTR name, iis::PCWSTR* value, iis::DWORD* length) {
  if (name == nullptr || value == nullptr) return kInvalidArgument;
  return Guarded([&]() -> iis::HRESULT {
    const std::string upper = UpperName(name);
    VariableValue found;
    if (const auto own = variables_.find(upper); own != variables_.end()) {
      found.wide = own->second;
    } else if (!FindServerVariable(*this, upper, &found)) {
      return iis::kInvalidIndex;
    } else if (!found.is_wide) {
      for (const char c : found.bytes) found.wide.push_back(static_cast<unsigned char>(c));
    }
    *value = memory_.CopyText(found.wide);
    if (length != nullptr) *length = static_cast<iis::DWORD>(found.wide.size());
    return kOk;
  });
}

iis::HRESULT CHostContext::SetServerVariable(iis::PCSTR name, iis::PCWSTR value) {
  if (name == nullptr || *name == 0 || value == nullptr) return kInvalidArgument;
  return Guarded([&]() -> iis::HRESULT {
    std::string upper = UpperName(name);
    if (upper == "REMOTE_USER") return kInvalidArgument;
    variables_[std::move(upper)] = value;
    return kOk;
  });
}

iis::PCWSTR CHostContext::GetScriptName(iis::DWORD* length) const {
  const iis::HTTP_COOKED_URL& url = request_.GetRawHttpRequest()->CookedUrl;
  const std::u16string_view path(url.pAbsPath, url.AbsPathLength / sizeof(iis::WCHAR));
  iis::PCWSTR name = nullptr;
  Guarded([&] {
    name = memory_.CopyText(path);
    return kOk;
  });
  if (length != nullptr) *length = name == nullptr ? 0 : static_cast<iis::DWORD>(path.size());
  return name;
}

iis::PCWSTR CHostContext::GetPhysicalPath(iis::DWORD* length) {
  const iis::HTTP_COOKED_URL& url = request_.GetRawHttpRequest()->CookedUrl;
  iis::PCWSTR copy = nullptr;
  if (length != nullptr) *length = 0;
  Guarded([&] {
    std::u16string path = Utf8ToUtf16(options().site_root);
    for (std::size_t i = 1; i < url.AbsPathLength / sizeof(iis::WCHAR); ++i) {
      path.push_back(url.pAbsPath[i] == u'/' ? u'\\' : url.pAbsPath[i]);
    }
    copy = memory_.CopyText(path);
    if (length != nullptr) *length = static_cast<iis::DWORD>(path.size());
    return kOk;
  });
  return copy;
}

iis::HRESULT CHostContext::MapPath(iis::PCWSTR url, iis::PWSTR path, iis::DWORD* bytes) {
  if (url == nullptr || bytes == nullptr) return kInvalidArgument;
  return Guarded([&]() -> iis::HRESULT {
    std::u16string mapped = Utf8ToUtf16(options().site_root);
    for (const iis::WCHAR* unit = *url == u'/' ? url + 1 : url; *unit != 0; ++unit) {
      mapped.push_back(*unit == u'/' ? u'\\' : *unit);
    }
    const auto needed = static_cast<iis::DWORD>((mapped.size() + 1) * sizeof(iis::WCHAR));
    const bool fits = path != nullptr && *bytes >= needed;
    *bytes = needed;
    if (!fits) return iis::kInsufficientBuffer;
    std::memcpy(path, mapped.c_str(), needed);
    return kOk;
  });
}

iis::HRESULT CHostContext::GetCurrentExecutionStats(iis::DWORD* notification, iis::DWORD* start, iis::PCWSTR* module,
                                                    iis::DWORD* module_start, iis::DWORD* async_notification,
                                                    iis::DWORD* async_start) const {
  if (notification != nullptr) *notification = current_notification;
  if (start != nullptr) *start = 0;
  if (module != nullptr) *module = u"";
  if (module_start != nullptr) *module_start = 0;
  if (async_notification != nullptr) *async_notification = 0;
  if (async_start != nullptr) *async_start = 0;
  return kOk;
}

void CHostContext::IndicateCompletion(iis::REQUEST_NOTIFICATION_STATUS status) {
  const CMutexHold hold(wakeup_lock_);
  wakeups_.push_back({std::nullopt, status});
  wakeup_signal_.notify_one();
}

iis::HRESULT CHostContext::PostCompletion(iis::DWORD bytes) {
  QueueCompletion(bytes, kOk);
  return kOk;
}

void CHostContext::QueueCompletion(iis::DWORD bytes, iis::HRESULT result) {
  const CMutexHold hold(wakeup_lock_);
  wakeups_.push_back({Completion{bytes, result}, iis::RQ_NOTIFICATION_CONTINUE});
  wakeup_signal_.notify_one();
}

Wakeup CHostContext::WaitForWakeup() {
  const CMutexHold hold(wakeup_lock_);
  while (wakeups_.empty()) wakeup_lock_.WaitFor(wakeup_signal_);
  const Wakeup wakeup = wakeups_.front();
  wakeups_.pop_front();
  return wakeup;
}

void CHostContext::NotifySendResponse(bool headers, bool more_data, bool disconnect) {
  if (options().send_response_never || instances.empty()) return;
  if (host_.Order(iis::RQ_SEND_RESPONSE, false).empty()) return;
  const iis::DWORD flags = (disconnect ? iis::HTTP_SEND_RESPONSE_FLAG_DISCONNECT : 0) |
                           (more_data ? iis::HTTP_SEND_RESPONSE_FLAG_MORE_DATA : 0);
  CSendResponseProvider provider(headers, flags);
  const auto run = [&] { RunSendResponse(*this, provider); };
  if (options().send_response_on_other_thread) {
    std::thread(run).join();
  } else {
    run();
  }
}

void CHostContext::NotifyReadEntity() {
  // A module that reads from within the notification does not cause another.
  if (reading_entity_ || instances.empty() || host_.Order(iis::RQ_READ_ENTITY, false).empty()) return;
  reading_entity_ = true;
  RunReadEntity(*this);
  reading_entity_ = false;
}

}  // namespace qiv::host
