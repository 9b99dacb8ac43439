#include "host/pipeline.h"

#include "host/notifications.h"
#include "host/registered_module.h"
#include "host/results.h"

namespace qiv::host {
namespace {

/// One module object per request and module. False when a factory failed.
bool CreateModules(CHostContext& context) {
  const auto& modules = context.host().modules();
  context.instances.assign(modules.size(), nullptr);
  for (const auto& module : modules) {
    if (module->factory == nullptr) continue;
    iis::CHttpModule* instance = nullptr;
    const iis::HRESULT result = module->factory->GetHttpModule(&instance, &context);
    if (iis::Failed(result) || instance == nullptr) return false;
    context.instances[module->position] = instance;
  }
  return true;
}

bool Finishes(CHostContext& context, iis::REQUEST_NOTIFICATION_STATUS status) {
  if (status != iis::RQ_NOTIFICATION_FINISH_REQUEST) return false;
  context.finished = true;
  return true;
}

/// BEGIN to UPDATE_CACHE. Stops at FINISH_REQUEST: the stage's post-event is skipped with the rest.
void RunStages(CHostContext& context, IRequestHandler& handler) {
  for (const iis::DWORD stage : kStages) {
    if (Finishes(context, RunStage(context, stage, false))) {
      const bool post_begin = stage == iis::RQ_BEGIN_REQUEST && context.options().post_begin_after_finish;
      if (post_begin) RunStage(context, stage, true);
      return;
    }
    if (stage == iis::RQ_EXECUTE_REQUEST_HANDLER && !context.handled()) handler.Execute(context);
    if (Finishes(context, RunStage(context, stage, true))) return;
  }
}

void DisposeModules(CHostContext& context) {
  for (iis::CHttpModule*& instance : context.instances) {
    if (instance != nullptr) instance->Dispose();
    instance = nullptr;
  }
}

}  // namespace

void RunPipeline(CHostContext& context, IRequestHandler& handler) {
  const bool handled = RunPreBegin(context) && context.options().global_handled_ends_request;
  if (!handled) {
    if (CreateModules(context)) {
      RunStages(context, handler);
    } else {
      context.response().SetStatus(500, "Internal Server Error", 0, iis::kOutOfMemory, nullptr, 0);
    }
    // These two and the last send come for finished requests too; what they return changes nothing.
    for (const iis::DWORD stage : {iis::RQ_LOG_REQUEST, iis::RQ_END_REQUEST}) {
      RunStage(context, stage, false);
      RunStage(context, stage, true);
    }
  }
  context.response().Finish();
  if (context.options().dispose_before_cleanup) DisposeModules(context);
  context.container().Cleanup();
  DisposeModules(context);
}

}  // namespace qiv::host
