// Why locks keep nobody out: switches of the settings that the deny list needs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// The switches as the settings have them.
struct LockSwitches {
  bool protection = false;    ///< website_on_servers is "1"
  bool service_link = false;  ///< sys_is_qiv is "1"
  bool e404 = false;          ///< e404 of website_attack is on
  bool ipv6 = false;          ///< enable_ipv6prot is "1"
};

struct LockObstacle {
  std::string_view section;  ///< of the key; empty for a single value
  std::string_view key;
  std::string message;  ///< one line without a full stop
};

/// What keeps locks from acting; empty when nothing does.
std::vector<LockObstacle> LockObstacles(const LockSwitches& switches);

/// Those of an installation, by the settings that its module reads; one that cannot be read is an obstacle itself.
/// `ipv6_clients`: whether IPv6 clients are meant too. `directory` with its trailing separator.
std::vector<std::string> LockObstaclesOf(const std::string& module_directory, bool ipv6_clients);

}  // namespace qiv
