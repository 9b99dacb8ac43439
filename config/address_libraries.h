// The libraries about addresses that the firewall service keeps beside the configuration: areas (iplib.db for IPv4,
// iplibv6.db for IPv6) and malicious addresses (_badip.db).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/area_library.h"
#include "common/ip_address.h"
#include "common/published.h"
#include "common/state_recorder.h"
#include "config/watched_file.h"
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
  /// What becomes of the files is reported to `states`, which must outlive this object; null: to nobody.
  explicit CAddressLibraries(Paths paths, CStateRecorder* states = nullptr);

  /// Reads the files whose modification time has changed. A file that is not there is an empty library; one that is
  /// damaged leaves what was loaded before; one that cannot be opened is tried again the next time. True when a library
  /// was replaced.
  bool ReloadChanged();

  /// Never null.
  std::shared_ptr<const CAreaLibrary> Areas(bool ipv4) const { return ipv4 ? ipv4_areas_.Load() : ipv6_areas_.Load(); }
  std::shared_ptr<const CIpRanges> BadIps() const { return bad_ips_.Load(); }

 private:
  bool TakeAreas(bool ipv4, const std::string* file);
  bool TakeBadIps(const std::string* file);

  CStateRecorder silent_;
  CStateRecorder& states_;
  CPublished<CAreaLibrary> ipv4_areas_;
  CPublished<CAreaLibrary> ipv6_areas_;
  CPublished<CIpRanges> bad_ips_;

  CCriticalSection files_lock_;
  CWatchedFile ipv4_file_ QIV_GUARDED_BY(files_lock_);
  CWatchedFile ipv6_file_ QIV_GUARDED_BY(files_lock_);
  CWatchedFile bad_ips_file_ QIV_GUARDED_BY(files_lock_);
};

/// The text of an enciphered library, whether it is one piece or one piece a line: the plain pieces, each with a line
/// end.
std::string DecipherPieces(std::string_view file_text);

}  // namespace qiv
