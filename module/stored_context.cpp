#include "module/stored_context.h"

#include <memory>
#include <new>
#include <utility>

namespace qiv {

iis::VOID CQivStoredContext::CleanupStoredContext() { delete this; }

CQivStoredContext* CStoredContexts::Find(iis::IHttpContext& context) {
  iis::IHttpModuleContextContainer* container = context.GetModuleContextContainer();
  // What stands under our identifier was put there by us.
  return container ? static_cast<CQivStoredContext*>(container->GetModuleContext(config_.ModuleId())) : nullptr;
}

template <typename Change>
bool CStoredContexts::Update(iis::IHttpContext& context, Change&& change) {
  const CAutoLock hold(lock_);
  iis::IHttpModuleContextContainer* container = context.GetModuleContextContainer();
  if (!container) return false;
  if (CQivStoredContext* stored = Find(context)) {
    change(stored->request);
    const iis::HRESULT hr = container->SetModuleContext(stored, config_.ModuleId());
    return iis::Succeeded(hr) || hr == iis::kAlreadyAssigned;
  }
  auto fresh = std::make_unique<CQivStoredContext>();
  change(fresh->request);
  if (iis::Failed(container->SetModuleContext(fresh.get(), config_.ModuleId()))) return false;
  fresh.release();
  return true;
}

bool CStoredContexts::Save(iis::IHttpContext& context, std::shared_ptr<const RequestRecord> record) {
  try {
    return Update(context, [&record](StoredRequest& stored) { stored.record = std::move(record); });
  } catch (const std::bad_alloc&) {
    return false;  // the checks go on without it
  }
}

bool CStoredContexts::MarkPageWritten(iis::IHttpContext& context, std::string_view event_id) {
  try {
    return Update(context, [event_id](StoredRequest& stored) {
      stored.page_written = 1;
      if (stored.event_id.empty()) stored.event_id = event_id;
    });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CStoredContexts::KeepStreamed(iis::IHttpContext& context, std::shared_ptr<StreamedAnswer> streamed) {
  try {
    return Update(context, [&streamed](StoredRequest& stored) { stored.streamed = std::move(streamed); });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

StoredRequest CStoredContexts::Load(iis::IHttpContext& context) {
  const CAutoLock hold(lock_);
  const CQivStoredContext* stored = Find(context);
  return stored ? stored->request : StoredRequest{};
}

bool CStoredContexts::PageWritten(iis::IHttpContext& context) {
  const CAutoLock hold(lock_);
  const CQivStoredContext* stored = Find(context);
  return stored && stored->request.page_written != 0;
}

}  // namespace qiv
