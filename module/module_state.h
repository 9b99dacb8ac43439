// The module's process-wide state.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/event_log.h"
#include "common/state_recorder.h"
#include "config/qiv_config.h"
#include "module/block_recorder.h"
#include "module/pipeline.h"
#include "module/service_link.h"
#include "module/stored_context.h"

namespace qiv {

/// Everything that outlives a request. Members are thread safe each by itself.
struct ModuleState {
  /// `directory` with its trailing separator; the others as for InitialiseModule.
  ModuleState(std::string directory, bool with_log, IEventRecorder* events, ICheckObserver* observer);

  CEventLog log;
  CStateRecorder states;  ///< writes nothing when nothing is logged
  CQivConfig config;
  CServiceLink service;
  CStoredContexts contexts;
  const std::unique_ptr<CBlockRecorder> recorder;  ///< null: nothing is logged
  CPipeline pipeline;
  /// Read and then set by the factory's first call. Two racing first calls may both take themselves for the first:
  /// what they then do may be done twice.
  std::atomic<std::int32_t> factory_called{0};
};

/// The state of this process. In the library file it is built while the file is loaded (dll_entry.cpp), from the file's
/// own directory. Programs that link the module's sources call InitialiseModule first.
ModuleState& State();

/// Builds the state for a directory (with or without its trailing separator), replacing what was there. `with_log`:
/// write the event log and the lines for the firewall service there. `events` gets what would go there when nothing is
/// logged, `observer` is told of each check; neither is owned, and null: nobody. Not while requests run.
void InitialiseModule(std::string module_directory, bool with_log, IEventRecorder* events = nullptr,
                      ICheckObserver* observer = nullptr);

/// Ends the state. Not while requests run.
void EndModule();

}  // namespace qiv
