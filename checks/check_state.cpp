#include "checks/check_state.h"

#include "config/website_config.h"

namespace qiv {
void CheckState::OnConfigLoaded(const WebsiteConfig& config) {
  // Without a limit the period is not looked at either: counters keep what they have.
  if (config.response.lock_freq > 0) attacks.SetLimits(config.response.lock_freq, config.response.lock_freq_sec);
  if (config.attack.e404_lock_freq > 0) scans.SetLimits(config.attack.e404_lock_freq, config.attack.e404_lock_freq_sec);
}

CIpAddress ClientAddress(const RequestFacts& facts) {
  return facts.is_ipv4 ? CIpAddress::FromIpv4(facts.client_ipv4) : CIpAddress::FromIpv6(facts.ipv6);
}

}  // namespace qiv
