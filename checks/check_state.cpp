#include "checks/check_state.h"

#include "config/website_config.h"

namespace qiv {
namespace {

CheckState* state_in_use = nullptr;

CheckState& StateWithoutFiles() {
  static CExchangeFiles files("", "");
  static CheckState state(files);
  return state;
}

}  // namespace

void CheckState::OnConfigLoaded(const WebsiteConfig& config) {
  // Without a limit the period is not looked at either: counters keep what they have.
  if (config.response.lock_freq > 0) attacks.SetLimits(config.response.lock_freq, config.response.lock_freq_sec);
  if (config.attack.e404_lock_freq > 0) scans.SetLimits(config.attack.e404_lock_freq, config.attack.e404_lock_freq_sec);
}

CheckState& SharedCheckState() { return state_in_use != nullptr ? *state_in_use : StateWithoutFiles(); }

void SetCheckState(CheckState* state) { state_in_use = state; }

CIpAddress ClientAddress(const RequestFacts& facts) {
  return facts.is_ipv4 ? CIpAddress::FromIpv4(facts.client_ipv4) : CIpAddress::FromIpv6(facts.ipv6);
}

}  // namespace qiv
