#include "tools/lock_obstacles.h"

#include "config/config_parser.h"
#include "config/qiv_config.h"

namespace qiv {

std::vector<LockObstacle> LockObstacles(const LockSwitches& switches) {
  std::vector<LockObstacle> obstacles;
  if (!switches.protection) {
    obstacles.push_back(
        {"", "website_on_servers",
         "locks keep nobody out: \"website_on_servers\" is not \"1\", so every request passes unchecked"});
  }
  if (!switches.service_link) {
    obstacles.push_back({"", "sys_is_qiv",
                         "locks keep nobody out: \"sys_is_qiv\" is not \"1\", so the module does not read the lists"});
  }
  if (!switches.e404) {
    obstacles.push_back(
        {"website_attack", "e404",
         "locks keep nobody out: the deny list is consulted only while \"e404\" of website_attack is on"});
  }
  if (!switches.ipv6) {
    obstacles.push_back({"", "enable_ipv6prot",
                         "locks keep no IPv6 client out: \"enable_ipv6prot\" is not \"1\", so they pass unchecked"});
  }
  return obstacles;
}

std::vector<std::string> LockObstaclesOf(const std::string& module_directory, bool ipv6_clients) {
  const std::string file = ConfigPaths(module_directory).config_file;
  WebsiteConfig config;
  const ConfigStatus status = LoadConfigFile(file, &config);
  if (status != ConfigStatus::kLoaded) {
    return {"locks keep nobody out, because the module does not take its settings: " + file + ": " +
            std::string(ConfigStatusText(status))};
  }
  LockSwitches switches;
  switches.protection = true;
  switches.service_link = config.library_enabled;
  switches.e404 = config.attack.e404 != 0;
  switches.ipv6 = config.ipv6_protection || !ipv6_clients;
  std::vector<std::string> messages;
  for (LockObstacle& obstacle : LockObstacles(switches)) messages.push_back(std::move(obstacle.message));
  return messages;
}

}  // namespace qiv
