#include "tools/list_store.h"

#include <chrono>
#include <thread>

#include "common/text.h"
#include "config/exchange_files.h"
#include "port/module_path.h"

namespace qiv {
namespace {

constexpr int kLockAttempts = 500;
constexpr std::chrono::milliseconds kLockPause{20};
constexpr int kTimeAttempts = 400;  // up to two seconds, the resolution of the coarsest file system
constexpr std::chrono::milliseconds kTimePause{5};

std::string PlainLine(const ListEntry& entry) {
  std::string line(ClientListName(entry.list));
  line += "\tadd\t" + entry.origin + "\t" + entry.client.Text() + "\t" + std::to_string(entry.start) + "\t" +
          std::to_string(entry.end) + "\t" + entry.details;
  return line;
}

/// The fields from the seventh on.
std::string Details(const LineFields& fields) {
  std::string details(fields.field[6]);
  if (fields.count > 7) details.append("\t").append(fields.field[7]);
  if (fields.count > 8) details.append("\t").append(fields.rest);
  return details;
}

}  // namespace

CListStore::CListStore(const std::string& module_directory)
    : path_(module_directory + "config" + kPathSeparator + "_in.db") {}

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
  if (time != 0 && ReadWholeFile(path_, CExchangeFiles::kInMaxBytes, &text) != ReadFileResult::kOk) return false;
  entries_.clear();
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

bool CListStore::Save() {
  std::string text;
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

bool CListStore::Add(const ListEntry& entry, IfThere if_there) {
  const auto found = entries_.find({entry.list, entry.client});
  if (found == entries_.end()) {
    if (entries_.size() >= kMaxEntries) return false;
    entries_.emplace(Key{entry.list, entry.client}, entry);
  } else if (if_there == IfThere::kReplace || entry.end > found->second.end) {
    found->second = entry;
  }
  return true;
}

bool CListStore::Remove(ClientList list, const CIpAddress& client) { return entries_.erase({list, client}) != 0; }

std::size_t CListStore::Expire(std::int64_t now) {
  return std::erase_if(entries_, [now](const auto& item) { return item.second.end <= now; });
}

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
