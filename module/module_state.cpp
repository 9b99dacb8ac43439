#include "module/module_state.h"

#include <utility>

#include "checks/check_table.h"
#include "port/module_path.h"
#include "port/system_log.h"

namespace qiv {
namespace {

/// A function's static, so that it stands before any other static object asks for it. Destroyed with the process's
/// static objects, or when the library file is unloaded.
std::unique_ptr<ModuleState>& Holder() {
  static std::unique_ptr<ModuleState> state;
  return state;
}

IEventRecorder& RecorderOf(CBlockRecorder* recorder, IEventRecorder* events) {
  static CNoRecorder nobody;
  if (recorder) return *recorder;
  return events ? *events : nobody;
}

}  // namespace

ModuleState::ModuleState(std::string directory, bool with_log, IEventRecorder* events, ICheckObserver* observer)
    : log(LogDirectory(directory)),
      states(with_log ? &log : nullptr),
      config(std::move(directory), &UnixSeconds, &states),
      service(config, with_log),
      contexts(config),
      recorder(with_log ? std::make_unique<CBlockRecorder>(log, service) : nullptr),
      pipeline(config, contexts, CheckTable(), {service.Checks(), RecorderOf(recorder.get(), events), observer}) {
  if (with_log) states.SetSystemLog(&WriteSystemLog);
}

ModuleState& State() {
  if (!Holder()) InitialiseModule(ModuleDirectory(&kPathSeparator), false);
  return *Holder();
}

void InitialiseModule(std::string module_directory, bool with_log, IEventRecorder* events, ICheckObserver* observer) {
  if (module_directory.empty()) module_directory = ".";
  const char last = module_directory.back();
  if (last != '/' && last != kPathSeparator) module_directory += kPathSeparator;
  Holder() = std::make_unique<ModuleState>(std::move(module_directory), with_log, events, observer);
}

void EndModule() { Holder().reset(); }

}  // namespace qiv
