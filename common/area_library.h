// The IP area library: which country or region an address belongs to.
//
// One file per address family, made by `qivctl area build`. It holds the addresses at which the area changes, in order,
// and the area that begins there; so a look-up is one binary search, and a range costs 6 bytes (IPv4) or 18 (IPv6).
// The layout is described in docs/area-library.md. A file is read with one call, its checksum and every index and order
// in it are verified, and what is looked up afterwards is memory of our own: a file that is damaged or made by somebody
// else can be refused but never misread. Tested by tests/tools/area_test.cpp against a walk over all ranges.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/ip_address.h"

namespace qiv {

/// The fixed numbers of the file; little-endian, addresses of IPv6 in network order.
struct AreaFormat {
  static constexpr std::string_view kMagic{"QIVAREA\x1A", 8};
  static constexpr std::uint32_t kVersion = 1;
  static constexpr std::size_t kHeaderBytes = 32;
  static constexpr std::size_t kChecksumOffset = 28;
  static constexpr std::size_t kAreaBytes = 8;
  static constexpr std::size_t kMaxAreas = 0xFFFE;                        ///< numbered from 1 in 16 bits; 0 is none
  static constexpr std::size_t kMaxStarts = 16U << 20;                    ///< ten times what public lists hold
  static constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 29;  ///< room for all of these

  /// CRC-32 (IEEE 802.3) of the file without its checksum.
  static std::uint32_t Checksum(std::string_view file);
};

struct Area {
  std::string_view code;      ///< such as "CN" or "US-CA"; UTF-8 as all texts here
  std::string_view name;      ///< may be empty
  std::string_view code_key;  ///< in lower case, for comparisons
  std::string_view name_key;
};

enum class AreaLoad { kOk, kMissing, kUnreadable, kNotOurs, kWrongFamily, kDamaged };
/// One English sentence without a full stop.
std::string_view AreaLoadText(AreaLoad result);

/// Immutable; thread safe.
class CAreaLibrary {
 public:
  /// An empty library of a family.
  explicit CAreaLibrary(bool ipv4 = true) : ipv4_(ipv4) {}
  CAreaLibrary(const CAreaLibrary&) = delete;
  CAreaLibrary& operator=(const CAreaLibrary&) = delete;

  /// Null unless *result is kOk.
  static std::shared_ptr<const CAreaLibrary> Load(const std::string& path, bool ipv4, AreaLoad* result);
  static std::shared_ptr<const CAreaLibrary> Parse(std::string_view file, bool ipv4, AreaLoad* result);

  /// Null when the address is in no area or of the other family. Allocates nothing.
  const Area* Find(const CIpAddress& address) const;

  bool IsIpv4() const { return ipv4_; }
  std::size_t AreaCount() const { return areas_.size(); }
  std::size_t StartCount() const { return area_at_.size(); }
  std::size_t MemoryBytes() const;

 private:
  struct Header {
    std::uint32_t areas;
    std::uint32_t starts;
    std::uint32_t text_bytes;
  };
  bool ReadAreas(std::string_view table, std::string_view text, const Header& header);
  bool ReadStarts(std::string_view starts, std::string_view areas, const Header& header);

  bool ipv4_;
  std::string text_;
  std::string key_text_;
  std::vector<Area> areas_;
  // Of the two tables of starts the family's one is used; area_at_ runs along with it, 0 for none.
  std::vector<std::uint32_t> ipv4_starts_;
  std::vector<CIpAddress> ipv6_starts_;
  std::vector<std::uint16_t> area_at_;
};

/// The areas of a list: codes or names, compared without case. A code stands for its parts too: "US" holds "US-CA".
class CAreaNames {
 public:
  CAreaNames() = default;
  /// Items separated by "|", in GBK.
  explicit CAreaNames(std::string_view list);

  bool Empty() const { return names_.empty(); }
  bool Contains(const Area& area) const;

 private:
  bool Has(std::string_view name) const;

  std::vector<std::string> names_;  // UTF-8, lower case, sorted
};

}  // namespace qiv
