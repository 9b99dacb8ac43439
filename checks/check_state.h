// What the checks keep from one request to the next, and whom they ask beside the request's own records.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "checks/attack_counter.h"
#include "checks/client_counter.h"
#include "checks/request_facts.h"
#include "checks/visitor_proof.h"
#include "common/ip_address.h"
#include "common/state_recorder.h"
#include "config/address_libraries.h"
#include "config/exchange_files.h"
#include "port/clock.h"

namespace qiv {

struct WebsiteConfig;

/// What flood protection did since it was last told of.
struct FloodCounts {
  std::atomic<std::uint64_t> clients{0};  ///< that came over the limit
  std::atomic<std::uint64_t> pages{0};    ///< verification pages shown
  std::atomic<std::uint64_t> passed{0};
  std::atomic<std::uint64_t> locked{0};
  std::atomic<std::int64_t> next_report{0};  ///< seconds since 1970
};

/// One per process. Thread safe, each member by itself.
struct CheckState {
  using Clock = CAttackCounter::Clock;

  /// Neither is owned. Without `address_libraries` no address is in an area, and none is malicious.
  explicit CheckState(CExchangeFiles& exchange_files, const CAddressLibraries* address_libraries = nullptr,
                      Clock now = &UnixSeconds);
  /// `key_file`: where the key of the visitors' proofs lies. `state_recorder`: told of floods; may be null.
  CheckState(CExchangeFiles& exchange_files, const CAddressLibraries* address_libraries, Clock now,
             std::string key_file, CStateRecorder* state_recorder);
  CheckState(const CheckState&) = delete;
  CheckState& operator=(const CheckState&) = delete;

  /// After a load: takes over the limits of the counters.
  void OnConfigLoaded(const WebsiteConfig& config);

  /// Tells of a flood, at most once a minute, when there is something to tell. Cheap.
  void ReportFlood();

  CExchangeFiles& exchange;
  const CAddressLibraries* const libraries;
  const Clock clock;
  CAttackCounter attacks;   ///< plain blocks, for smart blocking
  CClientCounter requests;  ///< for flood protection
  CClientCounter missing;   ///< requests for what is not there
  CAttackCounter wrong_passwords;
  CProofSource proofs;
  FloodCounts flood;

 private:
  CStateRecorder* const states_;
};

/// The address that all checks use.
CIpAddress ClientAddress(const RequestFacts& facts);

}  // namespace qiv
