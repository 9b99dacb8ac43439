// What the server's own configuration files say, as far as an installation needs it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "setup/machine.h"

namespace qiv::setup {

/// The name under which the module stands in both lists.
inline constexpr std::string_view kModuleName = "QivIpsIIs";
/// Worker processes of 32 bits go without the module instead of failing to start.
inline constexpr std::string_view kPreCondition = "bitness64";

/// Both entries of the module. With one of them alone the server refuses every request, or never asks the module.
struct Registration {
  struct Loaded {  ///< in globalModules: the file that worker processes load
    std::string image;
    std::string pre_condition;
    bool operator==(const Loaded&) const = default;
  };
  struct Used {  ///< in modules: that requests go through it
    std::string pre_condition;
    bool locked = false;  ///< no web.config can take it out
    bool operator==(const Used&) const = default;
  };
  std::optional<Loaded> loaded;
  std::optional<Used> used;

  bool operator==(const Registration&) const = default;
};

struct Pool {
  std::string name;
  bool is_32_bit = false;
};

struct ServerConfig {
  Registration registration;
  std::vector<Pool> pools;
  WebPlace first_place;  ///< of the site with the lowest number that speaks HTTP, HTTPS when none does, on this machine
  std::vector<std::string> left_out;      ///< sites and folders whose list of modules is without this one, or empty
  std::vector<std::string> site_folders;  ///< physical paths, variables not expanded
};

/// Where the server keeps its things; all with full paths.
struct ServerPlaces {
  explicit ServerPlaces(const std::string& windows_folder);

  std::string windows;
  std::string appcmd;
  std::string icacls;
  std::string reg;
  std::string application_host;
  std::string redirection;
  std::string backups;  ///< a folder for each
};

/// Joins two parts of a path with the machine's separator.
std::string Join(const std::string& folder, std::string_view name);

/// Reads applicationHost.config. A fault when it cannot be read, is broken, or is kept elsewhere (shared
/// configuration).
Fault ReadServerConfig(IMachine& machine, const ServerPlaces& places, ServerConfig* config);

}  // namespace qiv::setup
