// The lists of clients in _in.db, from the side that writes them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/ip_address.h"
#include "config/exchange_lines.h"
#include "port/file.h"

namespace qiv {

struct ListEntry {
  ClientList list = ClientList::kDeny;
  CIpAddress client;
  std::int64_t start = 0;  ///< seconds since 1970
  std::int64_t end = 0;
  std::string origin = "IIS";
  std::string details;  ///< GBK; the reason, then further fields, with tabs between them
};

/// Reads, changes and writes _in.db whole; the module sees the old content or the new, never a part.
class CListStore {
 public:
  /// Entries that are kept: an attack from endless addresses must not grow the file without bound.
  static constexpr std::size_t kMaxEntries = 1'000'000;

  explicit CListStore(const std::string& module_directory);

  /// Holds off every other program that changes the lists; waits for it up to 10 seconds. Null after that.
  std::unique_ptr<CFileLock> Lock() const;

  // To be called with the lock held, but for Load, which alone can do without.

  /// Reads the file when it is not the one that was read or written last. False when it cannot be read; no file is an
  /// empty one.
  bool Load();
  bool Save();

  enum class IfThere { kReplace, kKeepLater };
  /// False when there was no room.
  bool Add(const ListEntry& entry, IfThere if_there);
  /// False when the client was not on the list.
  bool Remove(ClientList list, const CIpAddress& client);
  /// Drops what has ended; how many entries.
  std::size_t Expire(std::int64_t now);

  /// Ordered by list, then by address.
  std::vector<ListEntry> Entries() const;
  std::size_t Size() const { return entries_.size(); }
  const std::string& Path() const { return path_; }

 private:
  using Key = std::pair<ClientList, CIpAddress>;

  const std::string path_;
  std::uint64_t time_ = 0;  ///< modification time of what is held; 0: no file
  std::map<Key, ListEntry> entries_;
};

/// The entry that a lock line asks for; `removed` when it asks to take the client off ("del"). Nothing for other lines.
struct LockRequest {
  ListEntry entry;
  bool removed = false;
};
std::optional<LockRequest> ParseLockRequest(const LineFields& fields);

}  // namespace qiv
