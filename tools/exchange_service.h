// A stand-in for the firewall service: takes the module's lines out of _out.log and keeps the lists in _in.db.
//
// No line is lost or counted twice, whenever this program is killed:
//  - The module opens _out.log for each line and only appends, so the file is read in place, up to an offset, and never
//    shortened. Only whole lines are taken.
//  - The offset, the sums over all lines and the lock lines still to be brought into _in.db stand in one journal that
//    is replaced as a whole. Lock lines leave it when _in.db has been written; doing them twice changes nothing.
//  - A long _out.log is moved to _out.N.log, N never being used again. The journal names N before the file is moved, so
//    that a look at the files tells whether it was. A writer that had opened the file before may still append to it: a
//    moved file is read on for a while.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "common/event_log.h"
#include "common/state_recorder.h"
#include "tools/list_store.h"
#include "tools/service_journal.h"

namespace qiv {

struct ServiceOptions {
  std::string module_directory;            ///< with its trailing separator
  std::uint64_t rotate_bytes = 16U << 20;  ///< _out.log is moved away when it has been consumed beyond this
  std::size_t kept_files = 4;              ///< moved files that are kept for `qivctl log`
  std::int64_t grace_seconds = 60;         ///< how long a moved file is read on
  std::uint64_t list_max_bytes = CExchangeFiles::kInMaxBytes;  ///< of _in.db; less is for tests
  /// Called with a line for the operator, UTF-8.
  std::function<void(const std::string&)> print = [](const std::string&) {};
  /// Called after each change on disk, for tests that end the service there.
  std::function<void()> after_change = [] {};
};

/// One at a time for a module directory. Not thread safe.
class CExchangeService {
 public:
  static constexpr std::int64_t kExpireInterval = 10;  ///< seconds between two looks for entries that have ended

  explicit CExchangeService(ServiceOptions options);

  /// Reads the journal and finishes what it says was begun. False, with *error set, when another service runs or the
  /// files cannot be read or written.
  bool Start(std::string* error);

  /// Consumes what has arrived, up to a few MiB; then expires and rotates. True when there may be more to consume at
  /// once.
  bool Step(std::int64_t now);

  /// Brings what was consumed into the lists, also when they were written only just now. False when that failed.
  bool Finish();

  const ServiceTotals& Totals() const { return journal_.totals; }

 private:
  bool Fail(std::string* error, std::string text) const;
  void RemoveLeftovers() const;
  std::string OutFile(std::uint64_t sequence) const;
  /// Keeps and says why a file could not be written, once until it can.
  void Wrote(bool written, const std::string& path, bool* failed);
  bool WriteJournal();
  bool SaveIsDue() const;
  bool SaveLists();
  bool FinishPending();
  bool FinishMoving(std::int64_t now);
  /// Puts a new _out.log in the place of one that was moved away, and says when it cannot.
  void KeepOutLog();

  /// Consumes from one file, from *offset on. True when a whole piece was there.
  bool Consume(const std::string& path, std::uint64_t* offset);
  void CountLine(std::string_view piece);
  void CountPlainLine(std::string_view line);
  void ReportDropped();
  void Expire(std::int64_t now);
  void Rotate(std::int64_t now);
  void DropOldFiles(std::int64_t now);

  const ServiceOptions options_;
  const std::string folder_;
  const std::string out_log_;
  const std::string journal_file_;
  CListStore store_;
  CEventLog log_;
  CStateRecorder states_;
  std::unique_ptr<CFileLock> running_;
  ServiceJournal journal_;
  bool started_ = false;
  std::string failure_;        ///< why the lists or the journal were not brought up to date last
  bool failed_ = false;        ///< the journal could not be written, which was reported
  bool lists_failed_ = false;  ///< the same of the lists
  bool out_failed_ = false;    ///< there is no _out.log, which was reported
  std::int64_t next_save_us_ = 0;
  std::int64_t next_expiry_ = 0;
};

/// The journal's file and the files of lines that it names, oldest first, _out.log last.
std::string JournalFile(const std::string& module_directory);
std::vector<std::string> OutFiles(const std::string& module_directory);

}  // namespace qiv
