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
    change(*stored);
    const iis::HRESULT hr = container->SetModuleContext(stored, config_.ModuleId());
    return iis::Succeeded(hr) || hr == iis::kAlreadyAssigned;
  }
  auto fresh = std::make_unique<CQivStoredContext>();
  change(*fresh);
  if (iis::Failed(container->SetModuleContext(fresh.get(), config_.ModuleId()))) return false;
  fresh.release();
  return true;
}

bool CStoredContexts::Save(iis::IHttpContext& context, const RequestFacts& record) {
  try {
    RequestFacts copy(record);  // all that can fail happens before the stored record changes
    return Update(context, [&copy](CQivStoredContext& stored) { stored.record = std::move(copy); });
  } catch (const std::bad_alloc&) {
    return false;  // the checks go on without it
  }
}

bool CStoredContexts::MarkPageWritten(iis::IHttpContext& context, std::string_view event_id) {
  try {
    return Update(context, [event_id](CQivStoredContext& stored) {
      stored.page_written = 1;
      if (stored.record.event_id.empty()) stored.record.event_id = event_id;
    });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CStoredContexts::Load(iis::IHttpContext& context, RequestFacts* record) {
  const CAutoLock hold(lock_);
  const CQivStoredContext* stored = Find(context);
  if (!stored || stored->record.phase == 0) return false;
  *record = stored->record;
  return true;
}

bool CStoredContexts::PageWritten(iis::IHttpContext& context) {
  const CAutoLock hold(lock_);
  const CQivStoredContext* stored = Find(context);
  return stored && stored->page_written != 0;
}

}  // namespace qiv
