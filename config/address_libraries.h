// The libraries about addresses that the firewall service keeps beside the configuration: areas (iplib.db for IPv4,
// iplibv6.db for IPv6) and malicious addresses (_badip.db).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/area_library.h"
#include "common/ip_address.h"
#include "common/published.h"
#include "port/critical_section.h"

namespace qiv {

/// Thread safe. What is in force is immutable; a reader takes a counted reference without a lock and keeps it as long
/// as it needs it.
class CAddressLibraries {
 public:
  static constexpr std::uint64_t kBadIpsMaxBytes = 512U << 20;  ///< of the enciphered file; some ten million ranges

  struct Paths {
    std::string ipv4_areas;
    std::string ipv6_areas;
    std::string bad_ips;
  };
  explicit CAddressLibraries(Paths paths);

  /// Reads the files whose modification time has changed. A file that is not there is an empty library; one that is
  /// damaged leaves what was loaded before; one that cannot be opened is tried again the next time. True when a library
  /// was replaced.
  bool ReloadChanged();

  /// Never null.
  std::shared_ptr<const CAreaLibrary> Areas(bool ipv4) const { return ipv4 ? ipv4_areas_.Load() : ipv6_areas_.Load(); }
  std::shared_ptr<const CIpRanges> BadIps() const { return bad_ips_.Load(); }

 private:
  bool ReloadAreas(bool ipv4) QIV_REQUIRES(files_lock_);
  bool ReloadBadIps() QIV_REQUIRES(files_lock_);

  const Paths paths_;
  CPublished<CAreaLibrary> ipv4_areas_;
  CPublished<CAreaLibrary> ipv6_areas_;
  CPublished<CIpRanges> bad_ips_;

  CCriticalSection files_lock_;
  // Modification times of what is loaded; 0: no file.
  std::uint64_t ipv4_time_ QIV_GUARDED_BY(files_lock_) = 0;
  std::uint64_t ipv6_time_ QIV_GUARDED_BY(files_lock_) = 0;
  std::uint64_t bad_ips_time_ QIV_GUARDED_BY(files_lock_) = 0;
};

/// The text of an enciphered library, whether it is one piece or one piece a line: the plain pieces, each with a line
/// end.
std::string DecipherPieces(std::string_view file_text);

}  // namespace qiv
