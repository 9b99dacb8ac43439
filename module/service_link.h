// The module's link to the firewall service: what is exchanged with it, and what the refresh tick does for that.
#pragma once

#include <cstdint>

#include "checks/check_state.h"
#include "config/address_libraries.h"
#include "config/exchange_files.h"
#include "config/qiv_config.h"

namespace qiv {

/// Thread safe. Owns what the checks keep between requests.
class CServiceLink final : public ITickClient {
 public:
  /// Becomes the tick client of `config`, which must outlive it. Without `may_write` nothing is written to _out.log.
  CServiceLink(CQivConfig& config, bool may_write);
  ~CServiceLink() override;

  bool OnServiceTick(std::int64_t now) override;
  void OnReloaded(std::int64_t now) override;

  /// Reads the service's lists, for the first request of a process.
  void ReadLists() noexcept;
  /// Work that nobody waits for, after a request was answered: reads on in a long list. Cheap when there is none.
  void AfterRequest() noexcept;
  /// Writes what is queued, when the worker process ends in good order. A process that is killed loses the counts of
  /// its last minute at most.
  void Finish() noexcept;

  CheckState& Checks() { return checks_; }
  CExchangeFiles& Exchange() { return exchange_; }
  bool IsEnabled() const { return config_.IsLibraryEnabled(); }

 private:
  CQivConfig& config_;
  CExchangeFiles exchange_;
  CAddressLibraries libraries_;
  CheckState checks_;
};

}  // namespace qiv
