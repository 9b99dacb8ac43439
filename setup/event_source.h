// The module as a source of the system's event log: where Event Viewer finds the texts of its events.
#pragma once

#include <string>

#include "setup/machine.h"
#include "setup/server_config.h"

namespace qiv::setup {

class CEventSource {
 public:
  CEventSource(IMachine& machine, const ServerPlaces& places) : machine_(machine), places_(places) {}

  /// The file that holds the texts now; empty when the source is not known.
  std::string File();
  /// Makes that file the source's; empty: there is no source any more.
  Fault SetFile(const std::string& file);

 private:
  Fault Run(std::vector<std::string> arguments);

  IMachine& machine_;
  const ServerPlaces& places_;
};

}  // namespace qiv::setup
