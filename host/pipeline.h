// The way of a request through the modules and the handler.
#pragma once

#include "host/host_context.h"

namespace qiv::host {

/// Answers a request through the interface objects, as the application does. Called on many threads.
class IRequestHandler {
 public:
  virtual ~IRequestHandler() = default;
  virtual void Execute(CHostContext& context) = 0;
};

/// Runs a built context to its end: global pre-begin, the stages with their post-events, the handler, log and end, the
/// last send, clean-up of stored contexts and modules. Request memory stays until the caller releases it.
void RunPipeline(CHostContext& context, IRequestHandler& handler);

}  // namespace qiv::host
