#include "checks/check_state.h"

#include "checks/check_context.h"
#include "config/website_config.h"

namespace qiv {

void CheckState::OnConfigLoaded(const WebsiteConfig& config) {
  // Without a limit the period is not looked at either: counters keep what they have.
  if (config.response.lock_freq > 0) attacks.SetLimits(config.response.lock_freq, config.response.lock_freq_sec);
  if (config.attack.e404_lock_freq > 0) scans.SetLimits(config.attack.e404_lock_freq, config.attack.e404_lock_freq_sec);
}

bool RequestLock(const CheckContext& context, ClientList list, const CIpAddress& client, std::int64_t now,
                 std::int64_t end, std::initializer_list<std::string_view> details) {
  return !context.log_only && context.state.exchange.WriteLock(list, client, now, end, details);
}

CIpAddress ClientAddress(const RequestFacts& facts) {
  return facts.is_ipv4 ? CIpAddress::FromIpv4(facts.client_ipv4) : CIpAddress::FromIpv6(facts.ipv6);
}

}  // namespace qiv
