// Which clients are on a list, and until when.
//
// Sorted arrays, 16 bytes for an IPv4 and 32 for an IPv6 client, the detail texts one after the other beside them: a
// table of a million clients is three blocks of memory, made in one go and freed in one go, and a look-up is some
// twenty comparisons. A table is built aside, then put in place of the one before; whoever still reads that one keeps
// it alive.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/ip_address.h"
#include "port/critical_section.h"

namespace qiv {

/// Immutable; thread safe.
class CClientTable {
 public:
  struct Entry {
    std::int64_t end;         ///< seconds since 1970; the client counts while this is in the future
    std::string_view detail;  ///< valid as long as the table
  };

  CClientTable() = default;
  std::optional<Entry> Find(const CIpAddress& client) const;
  std::size_t Size() const { return ipv4_.size() + ipv6_.size(); }

  /// Collects a table. Of several entries for a client the one that ends last stays.
  class CBuilder {
   public:
    void Add(const CIpAddress& client, std::int64_t end, std::string_view detail);
    /// Leaves the builder empty.
    std::shared_ptr<const CClientTable> Build();

   private:
    std::shared_ptr<CClientTable> table_ = std::make_shared<CClientTable>();
  };

 private:
  struct Ipv4Client {
    std::uint32_t address;
    std::uint32_t detail;  ///< where its text begins in details_: a length byte pair, then the bytes
    std::int64_t end;
  };
  struct Ipv6Client {
    CIpAddress address;
    std::int64_t end;
    std::uint32_t detail;
  };

  Entry MakeEntry(std::int64_t end, std::uint32_t detail) const;

  std::vector<Ipv4Client> ipv4_;
  std::vector<Ipv6Client> ipv6_;
  std::string details_;
};

/// The place of the table in force. The lock covers only the exchange and the copy of the reference, never a build, a
/// search or the end of a table.
class CClientTableSlot {
 public:
  std::shared_ptr<const CClientTable> Get() const;
  void Set(std::shared_ptr<const CClientTable> table);

 private:
  mutable CCriticalSection table_lock_;
  std::shared_ptr<const CClientTable> table_ QIV_GUARDED_BY(table_lock_) = std::make_shared<const CClientTable>();
};

}  // namespace qiv
