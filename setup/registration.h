// The server's own tool, appcmd: the module's entries, application pools, backups.
#pragma once

#include <string>
#include <vector>

#include "setup/server_config.h"

namespace qiv::setup {

class CAppcmd {
 public:
  CAppcmd(IMachine& machine, const ServerPlaces& places) : machine_(machine), places_(places) {}

  /// Makes the entries those of `wanted`, whatever they are now, in an order in which the server never asks for a
  /// module that it has not loaded. What could not be had but does no harm goes to `warnings`.
  Fault Register(const Registration& wanted, std::vector<std::string>* warnings);

  Fault AddBackup(const std::string& name);
  Fault DeleteBackup(const std::string& name);
  /// What one types to go back to a backup.
  std::string RestoreLine(const std::string& name) const;

  /// Replaces the processes of a pool that is running; its requests are finished by the old ones.
  Fault Recycle(const std::string& pool);

 private:
  Fault Change(std::vector<std::string> arguments);
  Fault Lock(bool locked, std::vector<std::string>* warnings);

  IMachine& machine_;
  const ServerPlaces& places_;
};

}  // namespace qiv::setup
