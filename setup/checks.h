// What must hold before anything is changed. Each gives the reason why it does not.
#pragma once

#include <string>
#include <vector>

#include "setup/machine.h"
#include "setup/server_config.h"

namespace qiv::setup {

/// An administrator's rights, a server with its tool, a configuration of its own; reads that configuration.
Fault CheckServer(IMachine& machine, const ServerPlaces& places, ServerConfig* config);

/// The unpacked archive is whole and the module made for 64 bits. `files`: all that is to be installed, in order.
Fault CheckSource(IMachine& machine, const std::string& source, std::vector<std::string>* files);

/// The folder is a place where a module can lie: on a disk of this machine, not the system's, of no site, and not full
/// of other things.
Fault CheckTarget(IMachine& machine, const ServerPlaces& places, const ServerConfig& config, const std::string& source,
                  const std::string& target);

/// Whether both texts name one place: variables, the two separators and the case of English letters make no difference.
bool SamePath(const std::string& one, const std::string& other);

/// "C:\Folder" without a separator at its end, "/" made "\" on Windows.
std::string PlainPath(std::string path);

}  // namespace qiv::setup
