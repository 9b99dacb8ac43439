#include "tools/exchange_service.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "config/config_parser.h"
#include "config/exchange_lines.h"
#include "config/qiv_config.h"
#include "port/clock.h"
#include "port/module_path.h"
#include "tools/files.h"
#include "tools/log_text.h"

namespace qiv {
namespace {

constexpr std::size_t kPieceBytes = 4U << 20;  // some ten thousand lines for each write of the journal
constexpr std::uint64_t kJournalMaxBytes = 64U << 20;
/// Lists beyond this size take seconds to write, and to read by every worker process: they are written for a fifth of
/// the time at most, unless that many locks have gathered.
constexpr std::size_t kLongLists = 50'000;
constexpr std::int64_t kPauseFactor = 4;
constexpr std::size_t kMostPending = 10'000;
constexpr std::size_t kMaxNames = 1000;  // of sums; further names are counted together
constexpr std::size_t kCountField = 5;

std::string ConfigFolder(const std::string& module_directory) { return module_directory + "config" + kPathSeparator; }

std::string OutFileName(std::uint64_t sequence) { return "_out." + std::to_string(sequence) + ".log"; }

void AddTo(std::map<std::string, std::uint64_t>* sums, std::string_view name, std::string_view count) {
  std::string key = CCharSet::LocalToUtf8(name);
  if (sums->size() >= kMaxNames && !sums->contains(key)) key = "(others)";
  (*sums)[key] += DigitsToNumber(count);
}

}  // namespace

std::string JournalFile(const std::string& module_directory) {
  return ConfigFolder(module_directory) + "_service.json";
}

std::vector<std::string> OutFiles(const std::string& module_directory) {
  std::vector<std::string> files;
  std::string text;
  ServiceJournal journal;
  ReadWholeFile(JournalFile(module_directory), kJournalMaxBytes, &text);
  if (journal.FromJson(text)) {
    for (const RetiredFile& file : journal.retired) {
      files.push_back(ConfigFolder(module_directory) + OutFileName(file.sequence));
    }
  }
  files.push_back(ConfigFolder(module_directory) + "_out.log");
  return files;
}

CExchangeService::CExchangeService(ServiceOptions options)
    : options_(std::move(options)),
      folder_(ConfigFolder(options_.module_directory)),
      out_log_(folder_ + "_out.log"),
      journal_file_(JournalFile(options_.module_directory)),
      store_(options_.module_directory, options_.list_max_bytes),
      log_(LogDirectory(options_.module_directory)),
      states_(&log_) {}

bool CExchangeService::Fail(std::string* error, std::string text) const {
  *error = std::move(text);
  return false;
}

/// A program that was killed while it replaced one of our two files has left its new content behind. Both locks are
/// held: nobody is about to put one in place.
void CExchangeService::RemoveLeftovers() const {
  std::error_code error;
  const std::filesystem::path folder(std::u8string(folder_.begin(), folder_.end()));
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::u8string name = entry->path().filename().u8string();
    const bool ours = name.starts_with(u8"_in.db.") || name.starts_with(u8"_service.json.");
    std::error_code ignored;
    if (ours && name.ends_with(u8".tmp")) std::filesystem::remove(entry->path(), ignored);
  }
}

std::string CExchangeService::OutFile(std::uint64_t sequence) const { return folder_ + OutFileName(sequence); }

bool CExchangeService::Start(std::string* error) {
  running_ = std::make_unique<CFileLock>(folder_ + "_service.lock");
  if (!running_->Held()) return Fail(error, "a service is running for this folder already");
  std::string text;
  if (FileModificationTime(journal_file_) != 0) {
    if (ReadWholeFile(journal_file_, kJournalMaxBytes, &text) != ReadFileResult::kOk) {
      return Fail(error, journal_file_ + " " + CannotRead(journal_file_, kJournalMaxBytes));
    }
    if (!journal_.FromJson(text)) return Fail(error, journal_file_ + " is damaged");
  }
  WebsiteConfig config;
  if (LoadConfigFile(folder_ + "_config.db", &config) == ConfigStatus::kLoaded) states_.SetLanguage(config.language);
  if (!store_.Load()) return Fail(error, store_.Path() + " " + store_.LoadError());
  if (const std::unique_ptr<CFileLock> lock = store_.Lock()) RemoveLeftovers();
  if (journal_.moving != 0 && !FinishMoving(UnixSeconds())) return Fail(error, journal_file_ + " " + CannotWrite());
  if (!FinishPending()) return Fail(error, failure_);
  started_ = true;
  return true;
}

bool CExchangeService::Finish() {
  next_save_us_ = 0;
  return FinishPending();
}

bool CExchangeService::Step(std::int64_t now) {
  const std::uint64_t lines_before = journal_.totals.lines;
  bool more = false;
  // Older files first: what a client did earlier comes before what it did later.
  for (RetiredFile& file : journal_.retired) {
    const std::string path = OutFile(file.sequence);
    if (FileSize(path).value_or(0) > file.offset) more |= Consume(path, &file.offset);
  }
  if (!more) {
    const std::uint64_t size = FileSize(out_log_).value_or(0);
    if (size == 0) KeepOutLog();
    if (size < journal_.offset) {
      options_.print("_out.log was shortened or replaced by somebody else; reading it from its beginning");
      journal_.offset = 0;
    }
    if (size > journal_.offset) more = Consume(out_log_, &journal_.offset);
  }
  const bool consumed = journal_.totals.lines != lines_before;
  const bool written = consumed || failed_ ? WriteJournal() : true;
  if (written) FinishPending();
  Expire(now);
  if (written && !more) Rotate(now);
  return more;
}

bool CExchangeService::Consume(const std::string& path, std::uint64_t* offset) {
  std::string text;
  if (ReadFilePart(path, *offset, kPieceBytes, &text) != ReadFileResult::kOk) return false;
  const bool whole_piece = text.size() == kPieceBytes;
  const std::size_t last_end = text.rfind('\n');
  if (last_end == std::string::npos) {
    if (!whole_piece) return false;  // the rest of the line is still to come
    // No line is as long as this.
    *offset += text.size();
    ++journal_.totals.lines;
    ++journal_.totals.malformed;
    return true;
  }
  std::string_view lines = std::string_view(text).substr(0, last_end + 1);
  *offset += lines.size();
  while (!lines.empty()) {
    const std::string_view piece = TakeLine(&lines);
    if (!piece.empty()) CountLine(piece);
  }
  return whole_piece;
}

void CExchangeService::CountLine(std::string_view piece) {
  const std::string plain = DecipherPiece(piece);
  std::string_view lines = plain;
  do {
    CountPlainLine(TakeLine(&lines));
  } while (!lines.empty());
}

void CExchangeService::CountPlainLine(std::string_view line) {
  ServiceTotals& totals = journal_.totals;
  const LineFields fields = SplitFields(line);
  ++totals.lines;
  if (fields.field[0] == "msg") {
    ++totals.messages;
  } else if (fields.field[0] == "check" && fields.count > kCountField) {
    AddTo(&totals.blocks, fields.field[1], fields.field[kCountField]);
  } else if (fields.field[0] == "tongji" && fields.count > kCountField) {
    AddTo(&totals.statistics, fields.field[1], fields.field[kCountField]);
  } else if (const auto request = ParseLockRequest(fields)) {
    ++totals.locks;
    journal_.pending.emplace_back(line);
    options_.print(LogLineText(line));
  } else {
    ++totals.malformed;
  }
}

void CExchangeService::Wrote(bool written, const std::string& path, bool* failed) {
  if (!written) {
    failure_ = path + " " + CannotWrite();
    if (started_ && !*failed) options_.print(failure_ + "; trying again");
  }
  *failed = !written;
}

bool CExchangeService::WriteJournal() {
  const bool written = ReplaceFile(journal_file_, journal_.ToJson());
  Wrote(written, journal_file_, &failed_);
  if (written) options_.after_change();
  return written;
}

bool CExchangeService::SaveIsDue() const { return MonotonicMicroseconds() >= next_save_us_; }

/// With the lists' lock held.
bool CExchangeService::SaveLists() {
  const std::int64_t begin = MonotonicMicroseconds();
  const bool written = store_.Save();
  Wrote(written, store_.Path(), &lists_failed_);
  const std::int64_t end = MonotonicMicroseconds();
  next_save_us_ = store_.Size() > kLongLists ? end + (end - begin) * kPauseFactor : 0;
  return written;
}

bool CExchangeService::FinishPending() {
  if (journal_.pending.empty() || (!SaveIsDue() && journal_.pending.size() < kMostPending)) return true;
  {
    const std::unique_ptr<CFileLock> lock = store_.Lock();
    if (!lock) return Fail(&failure_, store_.Path() + " is being changed by another program");
    if (!store_.Load()) {
      return Fail(&failure_, store_.Path() + " " + store_.LoadError());
    }
    for (const std::string& line : journal_.pending) {
      const auto request = ParseLockRequest(SplitFields(line));
      if (!request) continue;
      if (request->removed) {
        store_.Remove(request->entry.list, request->entry.client);
      } else {
        store_.Add(request->entry, CListStore::IfThere::kKeepLater);
      }
    }
    ReportDropped();
    if (!SaveLists()) return false;
    options_.after_change();
    // Under the lock: whoever takes a client off the list must not see it come back.
    journal_.pending.clear();
    return WriteJournal();
  }
}

void CExchangeService::ReportDropped() {
  const std::size_t dropped = store_.TakeDropped();
  if (dropped == 0) return;
  const std::string number = std::to_string(dropped);
  options_.print("the lists are full: " + number + " entries that would have ended first are gone");
  states_.Happened(StateKind::kItems, MessageId::kStateListsFull, number);
}

void CExchangeService::Expire(std::int64_t now) {
  // A time further away than one interval comes from a clock that was set back; so it is below.
  if (now < next_expiry_ && next_expiry_ <= now + kExpireInterval) return;
  if (!SaveIsDue()) return;
  next_expiry_ = now + kExpireInterval;
  const std::unique_ptr<CFileLock> lock = store_.Lock();
  if (!lock || !store_.Load() || store_.Expire(now) == 0) return;
  if (SaveLists()) options_.after_change();
}

void CExchangeService::Rotate(std::int64_t now) {
  if (journal_.offset >= options_.rotate_bytes) {
    journal_.moving = ++journal_.last_sequence;
    if (WriteJournal()) {
      FinishMoving(now);
    } else {
      journal_.moving = 0;  // the number is spent
    }
  }
  DropOldFiles(now);
}

/// Those who write to it may not be allowed to create it.
void CExchangeService::KeepOutLog() {
  if (journal_.retired.empty() || IsFile(out_log_)) return;
  const bool made = CreateLike(out_log_, OutFile(journal_.retired.back().sequence)) || IsFile(out_log_);
  if (!made && !out_failed_) {
    options_.print(out_log_ +
                   " cannot be created: locks of worker processes that may not create it do not take effect; "
                   "trying again");
  }
  out_failed_ = !made;
}

bool CExchangeService::FinishMoving(std::int64_t now) {
  const std::string path = OutFile(journal_.moving);
  bool moved = IsFile(path);
  if (!moved && RenameFile(out_log_, path)) {
    moved = true;
    options_.after_change();
  }
  if (moved) {
    journal_.retired.push_back({journal_.moving, journal_.offset, now + options_.grace_seconds});
    journal_.offset = 0;
    KeepOutLog();
  }
  journal_.moving = 0;
  return WriteJournal();
}

void CExchangeService::DropOldFiles(std::int64_t now) {
  while (journal_.retired.size() > options_.kept_files) {
    const RetiredFile& oldest = journal_.retired.front();
    const std::string path = OutFile(oldest.sequence);
    if (now < oldest.until && oldest.until <= now + options_.grace_seconds) return;
    if (IsFile(path) && !RemoveFile(path)) return;
    options_.after_change();
    journal_.retired.erase(journal_.retired.begin());
    if (!WriteJournal()) return;
  }
}

}  // namespace qiv
