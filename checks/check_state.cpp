#include "checks/check_state.h"

#include <string>
#include <utility>

#include "checks/check_context.h"
#include "checks/password_check.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::int64_t kReportPause = 60;  // seconds between two reports of a flood

}  // namespace

CheckState::CheckState(CExchangeFiles& exchange_files, const CAddressLibraries* address_libraries, Clock now)
    : CheckState(exchange_files, address_libraries, now, {}, nullptr) {}

CheckState::CheckState(CExchangeFiles& exchange_files, const CAddressLibraries* address_libraries, Clock now,
                       std::string key_file, CStateRecorder* state_recorder)
    : exchange(exchange_files),
      libraries(address_libraries),
      clock(now),
      attacks(now),
      wrong_passwords(now),
      proofs(std::move(key_file)),
      states_(state_recorder) {
  wrong_passwords.SetLimits(kMostWrongPasswords, kWrongPasswordPeriod);
}

void CheckState::OnConfigLoaded(const WebsiteConfig& config) {
  // Without a limit the period is not looked at either: the counter keeps what it has.
  if (config.response.lock_freq > 0) attacks.SetLimits(config.response.lock_freq, config.response.lock_freq_sec);
}

void CheckState::ReportFlood() {
  constexpr auto kRelaxed = std::memory_order_relaxed;
  if (flood.pages.load(kRelaxed) == 0 && flood.locked.load(kRelaxed) == 0 && flood.passed.load(kRelaxed) == 0) return;
  const std::int64_t now = clock();
  std::int64_t due = flood.next_report.load(kRelaxed);
  if (now < due && due - now <= kReportPause) return;  // further away than that: the clock was set back
  if (!flood.next_report.compare_exchange_strong(due, now + kReportPause, kRelaxed)) return;
  const std::string detail = "clients " + std::to_string(flood.clients.exchange(0, kRelaxed)) + ", pages " +
                             std::to_string(flood.pages.exchange(0, kRelaxed)) + ", passed " +
                             std::to_string(flood.passed.exchange(0, kRelaxed)) + ", locked " +
                             std::to_string(flood.locked.exchange(0, kRelaxed)) + ", memory " +
                             std::to_string(requests.Bytes()) + " bytes";
  if (states_ != nullptr) states_->Happened(StateKind::kFlood, MessageId::kStateFlood, detail);
}

bool RequestLock(const CheckContext& context, ClientList list, const CIpAddress& client, std::int64_t now,
                 std::int64_t end, std::initializer_list<std::string_view> details) {
  return !context.log_only && context.state.exchange.WriteLock(list, client, now, end, details);
}

CIpAddress ClientAddress(const RequestFacts& facts) {
  return facts.is_ipv4 ? CIpAddress::FromIpv4(facts.client_ipv4) : CIpAddress::FromIpv6(facts.ipv6);
}

}  // namespace qiv
