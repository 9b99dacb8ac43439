#include "tools/list_store.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "common/char_set.h"
#include "common/text.h"
#include "port/module_path.h"
#include "tools/files.h"

namespace qiv {
namespace {

constexpr int kLockAttempts = 500;
constexpr std::chrono::milliseconds kLockPause{20};
constexpr int kTimeAttempts = 400;  // up to two seconds, the resolution of the coarsest file system
constexpr std::chrono::milliseconds kTimePause{5};
/// A file that is longer than the module reads, left by another program, is read all the same and cut back.
constexpr std::uint64_t kLoadMaxBytes = 4 * CExchangeFiles::kInMaxBytes;
/// Of the limit, what is made free at once when it is reached: sorting all entries is done seldom.
constexpr std::uint64_t kRoomParts = 16;
constexpr std::size_t kFurtherDetailsMaxBytes = 64;  // item and category

std::string PlainLine(const ListEntry& entry) {
  std::string line(ClientListName(entry.list));
  line += "\tadd\t" + entry.origin + "\t" + entry.client.Text() + "\t" + std::to_string(entry.start) + "\t" +
          std::to_string(entry.end) + "\t" + entry.details;
  return line;
}

std::uint64_t FileBytes(const ListEntry& entry) { return EncipheredBytes(PlainLine(entry).size()); }

/// The reason gives way to the short texts behind it.
std::string ShortDetails(std::string_view details) {
  if (details.size() <= CListStore::kDetailsMaxBytes) return std::string(details);
  const std::size_t tab = std::min(details.find('\t'), details.size());
  const std::string_view further = CCharSet::Prefix(details.substr(tab), kFurtherDetailsMaxBytes);
  std::string text(CCharSet::Prefix(details.substr(0, tab), CListStore::kDetailsMaxBytes - further.size()));
  return text.append(further);
}

/// The fields from the seventh on.
std::string Details(const LineFields& fields) {
  std::string details(fields.field[6]);
  if (fields.count > 7) details.append("\t").append(fields.field[7]);
  if (fields.count > 8) details.append("\t").append(fields.rest);
  return details;
}

}  // namespace

std::string ListedText(ClientList list, const CIpAddress& client) {
  const bool is_network = list == ClientList::kDeny && !client.IsIpv4();
  return ListKey(list, client).Text() + (is_network ? "/" + std::to_string(kClientNetworkBits) : "");
}

CListStore::CListStore(const std::string& module_directory, std::uint64_t max_bytes)
    : path_(module_directory + "config" + kPathSeparator + "_in.db"), max_bytes_(max_bytes) {}

std::unique_ptr<CFileLock> CListStore::Lock() const {
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    auto lock = std::make_unique<CFileLock>(path_ + ".lock");
    if (lock->Held()) return lock;
    std::this_thread::sleep_for(kLockPause);
  }
  return nullptr;
}

bool CListStore::Load() {
  const std::uint64_t time = FileModificationTime(path_);
  if (time == time_) return true;
  std::string text;
  if (time != 0 && ReadWholeFile(path_, kLoadMaxBytes, &text) != ReadFileResult::kOk) return false;
  entries_.clear();
  bytes_ = 0;
  ForEachLine(text, [this](std::string_view line) {
    const LineFields fields = SplitFields(line);
    const auto record = ParseListRecord(fields);
    if (!record) return;
    Add({record->list, record->client, record->start, record->end, std::string(fields.field[2]), Details(fields)},
        IfThere::kKeepLater);
  });
  time_ = time;
  return true;
}

std::string CListStore::LoadError() const { return CannotRead(path_, kLoadMaxBytes); }

bool CListStore::Save() {
  std::string text;
  text.reserve(static_cast<std::size_t>(bytes_));
  for (const auto& [key, entry] : entries_) text += EncipherLine(PlainLine(entry));
  // Readers tell contents apart by their time, whose clock may stand still for some milliseconds. With the lock held,
  // every content gets a time of its own.
  const std::uint64_t before = FileModificationTime(path_);
  for (int attempt = 0; attempt < kTimeAttempts; ++attempt) {
    if (!ReplaceFile(path_, text)) return false;
    time_ = FileModificationTime(path_);
    if (time_ != before) break;
    std::this_thread::sleep_for(kTimePause);
  }
  return true;
}

void CListStore::Add(ListEntry entry, IfThere if_there) {
  const Key key = KeyOf(entry.list, entry.client);
  entry.client = key.second;
  entry.details = ShortDetails(entry.details);
  if (const auto found = entries_.find(key); found != entries_.end()) {
    if (if_there == IfThere::kKeepLater && entry.end <= found->second.end) return;
    Erase(found);
  }
  bytes_ += FileBytes(entry);
  entries_.emplace(key, std::move(entry));
  if (bytes_ > max_bytes_) MakeRoom();
}

CListStore::EntryMap::iterator CListStore::Erase(EntryMap::iterator entry) {
  bytes_ -= FileBytes(entry->second);
  return entries_.erase(entry);
}

void CListStore::MakeRoom() {
  std::vector<EntryMap::iterator> by_end;
  by_end.reserve(entries_.size());
  for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) by_end.push_back(entry);
  std::sort(by_end.begin(), by_end.end(), [](const auto& a, const auto& b) { return a->second.end < b->second.end; });
  const std::uint64_t wanted = max_bytes_ - max_bytes_ / kRoomParts;
  for (std::size_t i = 0; i < by_end.size() && bytes_ > wanted; ++i, ++dropped_) Erase(by_end[i]);
}

bool CListStore::Remove(ClientList list, const CIpAddress& client) {
  const auto found = entries_.find(KeyOf(list, client));
  if (found == entries_.end()) return false;
  Erase(found);
  return true;
}

bool CListStore::Holds(ClientList list, const CIpAddress& client) const {
  return entries_.contains(KeyOf(list, client));
}

std::size_t CListStore::Expire(std::int64_t now) {
  std::size_t changed = 0;
  for (auto item = entries_.begin(); item != entries_.end();) {
    ListEntry& entry = item->second;
    const bool ended = entry.end <= now;
    const bool ahead = entry.start > now + kClockSlack;
    changed += ended || ahead ? 1 : 0;
    if (ended) {
      item = Erase(item);
      continue;
    }
    if (ahead) {
      bytes_ -= FileBytes(entry);
      entry.end -= entry.start - now;
      entry.start = now;
      bytes_ += FileBytes(entry);
    }
    ++item;
  }
  return changed;
}

std::size_t CListStore::TakeDropped() { return std::exchange(dropped_, 0); }

std::vector<ListEntry> CListStore::Entries() const {
  std::vector<ListEntry> entries;
  entries.reserve(entries_.size());
  for (const auto& [key, entry] : entries_) entries.push_back(entry);
  return entries;
}

std::optional<LockRequest> ParseLockRequest(const LineFields& fields) {
  const auto list = FindClientList(fields.field[0]);
  const auto client = CIpAddress::Parse(Trim(fields.field[3]));
  if (!list || !client || fields.count < 7) return std::nullopt;
  LockRequest request;
  request.removed = fields.field[1] == "del";
  if (!request.removed && !ParseListRecord(fields)) return std::nullopt;
  request.entry = {
      *list,          *client, ParseTime(fields.field[4]), ParseTime(fields.field[5]), std::string(fields.field[2]),
      Details(fields)};
  return request;
}

}  // namespace qiv
