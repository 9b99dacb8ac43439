// What the checks keep from one request to the next, and whom they ask beside the request's own records.
#pragma once

#include <cstdint>

#include "checks/attack_counter.h"
#include "checks/request_facts.h"
#include "common/ip_address.h"
#include "config/address_libraries.h"
#include "config/exchange_files.h"
#include "port/clock.h"

namespace qiv {

struct WebsiteConfig;

/// One per process. Thread safe, each member by itself.
struct CheckState {
  using Clock = CAttackCounter::Clock;

  /// Neither is owned. Without `address_libraries` no address is in an area, and none is malicious.
  explicit CheckState(CExchangeFiles& exchange_files, const CAddressLibraries* address_libraries = nullptr,
                      Clock now = &UnixSeconds)
      : exchange(exchange_files), libraries(address_libraries), clock(now), attacks(now), scans(now) {}
  CheckState(const CheckState&) = delete;
  CheckState& operator=(const CheckState&) = delete;

  /// After a load: takes over the limits of the counters.
  void OnConfigLoaded(const WebsiteConfig& config);

  CExchangeFiles& exchange;
  const CAddressLibraries* const libraries;
  const Clock clock;
  CAttackCounter attacks;  ///< plain blocks, for smart blocking
  CAttackCounter scans;    ///< requests for what is not there
};

/// The address that all checks use.
CIpAddress ClientAddress(const RequestFacts& facts);

}  // namespace qiv
