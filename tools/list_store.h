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
#include "config/exchange_files.h"
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

/// A listed client for people: "192.0.2.7", and "2001:db8::/64" for what is locked as a network.
std::string ListedText(ClientList list, const CIpAddress& client);

/// Reads, changes and writes _in.db whole; the module sees the old content or the new, never a part.
///
/// The file never grows beyond what the module reads: an attack from endless addresses makes the entries that end first
/// give way. Entries hold their reason, item and category cut short, for the same end.
class CListStore {
 public:
  /// Of the three texts of an entry together. The log keeps them whole.
  static constexpr std::size_t kDetailsMaxBytes = 160;
  /// A start beyond this comes from a clock that ran ahead and was set back since.
  static constexpr std::int64_t kClockSlack = 3600;

  /// `max_bytes` is for tests.
  explicit CListStore(const std::string& module_directory, std::uint64_t max_bytes = CExchangeFiles::kInMaxBytes);

  /// Holds off every other program that changes the lists; waits for it up to 10 seconds. Null after that.
  std::unique_ptr<CFileLock> Lock() const;

  // To be called with the lock held, but for Load, which alone can do without.

  /// Reads the file when it is not the one that was read or written last. False when it cannot be read; no file is an
  /// empty one.
  bool Load();
  /// "cannot be read: " and why; right after Load has failed.
  std::string LoadError() const;
  bool Save();

  enum class IfThere { kReplace, kKeepLater };
  /// When the lists are full, entries that end first are dropped, which may be this one.
  void Add(ListEntry entry, IfThere if_there);
  /// False when the client was not on the list.
  bool Remove(ClientList list, const CIpAddress& client);
  bool Holds(ClientList list, const CIpAddress& client) const;
  /// Drops what has ended, and has entries of a clock that ran ahead begin now and last as long as they were to; how
  /// many entries changed.
  std::size_t Expire(std::int64_t now);
  /// How many entries were dropped for want of room since the last call.
  std::size_t TakeDropped();

  /// Ordered by list, then by address.
  std::vector<ListEntry> Entries() const;
  std::size_t Size() const { return entries_.size(); }
  const std::string& Path() const { return path_; }

 private:
  using Key = std::pair<ClientList, CIpAddress>;
  using EntryMap = std::map<Key, ListEntry>;

  static Key KeyOf(ClientList list, const CIpAddress& client) { return {list, ListKey(list, client)}; }
  EntryMap::iterator Erase(EntryMap::iterator entry);
  void MakeRoom();

  const std::string path_;
  const std::uint64_t max_bytes_;
  std::uint64_t time_ = 0;  ///< modification time of what is held; 0: no file
  EntryMap entries_;
  std::uint64_t bytes_ = 0;  ///< of the file that they make
  std::size_t dropped_ = 0;
};

/// The entry that a lock line asks for; `removed` when it asks to take the client off ("del"). Nothing for other lines.
struct LockRequest {
  ListEntry entry;
  bool removed = false;
};
std::optional<LockRequest> ParseLockRequest(const LineFields& fields);

}  // namespace qiv
