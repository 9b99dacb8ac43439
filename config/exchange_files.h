// The module's side of the two files that it shares with the firewall service: _in.db says which clients are denied,
// authorised or under verification; _out.log takes lock requests, messages, check results and statistics.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/ip_address.h"
#include "common/state_recorder.h"
#include "config/client_table.h"
#include "config/exchange_lines.h"
#include "config/line_queue.h"
#include "port/critical_section.h"
#include "port/file.h"

namespace qiv {

/// Thread safe; no lock is held while another is taken. Times are seconds since 1970, given by the caller. Functions
/// throw nothing but std::bad_alloc.
class CExchangeFiles {
 public:
  static constexpr std::int64_t kReadInterval = 1;    ///< seconds between two looks at _in.db
  static constexpr std::int64_t kFlushInterval = 60;  ///< seconds between two flushes of the queues
  static constexpr std::uint64_t kInMinBytes = 10;    ///< a shorter _in.db empties the tables
  /// A longer _in.db counts as unreadable; who writes the file keeps to it too. A million clients with their reasons
  /// are some 300 MiB, with the longest reasons that are kept 430 MiB.
  static constexpr std::uint64_t kInMaxBytes = 512U << 20;
  /// Up to this size the file is read within the request that finds it changed: some thousand clients, a millisecond.
  static constexpr std::uint64_t kReadAtOnceBytes = 256U << 10;
  /// What one call of ContinueReading takes from a longer file, some ten milliseconds; while hardly any requests come,
  /// the file is done within kSlowSlices calls.
  static constexpr std::size_t kSliceBytes = 1U << 20;
  static constexpr std::size_t kSlowSlices = 32;
  /// Beyond it nothing is appended to _out.log: without a service that takes the lines away the disk must not fill.
  static constexpr std::uint64_t kOutMaxBytes = 1U << 30;

  /// `out_log` empty: nothing is written. `states` may be null: nobody is told of files that fail.
  CExchangeFiles(std::string in_file, std::string out_log, CStateRecorder* states = nullptr)
      : in_file_(std::move(in_file)), out_log_(std::move(out_log)), states_(states) {}

  // Reading _in.db. A long file is taken in slices, by requests that have been answered; the tables before stay in
  // force until the new ones are whole. One thread at a time reads; the others pass by. A list that is being read is
  // finished although the file has changed again meanwhile, so that a list that changes all the time comes into force
  // too; only one that was emptied is taken at once. Each returns true when the tables were replaced.

  /// Looks, at most once a second, whether _in.db has changed; reads a short file, begins to read a long one.
  bool LookAtLists(std::int64_t now);
  /// Reads on in what was begun. Cheap when nothing was.
  bool ContinueReading(std::int64_t now);
  /// Both, to the end: for the start, when there are no tables yet.
  bool ReadLists(std::int64_t now);

  /// The entry of a client that is on the list at the time `now`. On the deny list an IPv6 client stands for its /64.
  /// The cost does not depend on the list's size beyond a binary search.
  struct Listed {
    std::int64_t end;
    std::string detail;
  };
  std::optional<Listed> Find(ClientList list, const CIpAddress& client, std::int64_t now) const;
  bool IsListed(ClientList list, const CIpAddress& client, std::int64_t now) const;

  const CClientTableSlot& deny_table() const { return deny_table_; }
  const CClientTableSlot& auth_table() const { return auth_table_; }
  const CClientTableSlot& cc_check_table() const { return cc_check_table_; }

  // Lines. Those that return false were lost; nothing is retried. How many were is told when lines can be written
  // again. Texts may hold anything.

  /// Asks the service to put a client on a list until `end`, or, for kCcCheck with end 0, to take it off. `details`
  /// begin with the reason.
  bool WriteLock(ClientList list, const CIpAddress& client, std::int64_t now, std::int64_t end,
                 std::initializer_list<std::string_view> details);
  bool WriteMessage(const ServiceMessage& message);
  // Queued; a line for which its queue has no room is written at once instead.
  bool CountCheck(const CheckCount& check);
  bool CountStatistics(const StatisticsCount& statistics);

  /// Writes the queued lines when the last flush is kFlushInterval ago.
  void FlushIfDue(std::int64_t now);
  /// Writes them now.
  void Flush();

 private:
  /// A content of _in.db on its way into tables.
  struct ListReading {
    bool loaded = false;  ///< `text` is read
    ReadFileResult result = ReadFileResult::kOk;
    std::string text;
    std::size_t offset = 0;       ///< read up to here
    std::int64_t last_slice = 0;  ///< seconds; 0: none yet
    std::array<CClientTable::CBuilder, kClientLists> builders;
  };
  class CReadingTurn;

  CClientTableSlot& Slot(ClientList list);
  const CClientTableSlot& Slot(ClientList list) const;
  std::unique_ptr<ListReading> BeginReading(std::int64_t now);
  bool ReadSlice(std::size_t bytes, ListReading* reading);
  bool Count(CLineQueue* queue, const std::string& line);
  bool Append(std::string_view plain_line);
  void ReportLists(ReadFileResult result) const;
  bool HasRoom() QIV_REQUIRES(out_file_lock_);
  void FlushQueue(CLineQueue* queue);

  const std::string in_file_;
  const std::string out_log_;
  CStateRecorder* const states_;

  // Each has its own lock.
  CClientTableSlot deny_table_;
  CClientTableSlot auth_table_;
  CClientTableSlot cc_check_table_;
  CLineQueue check_queue_;
  CLineQueue statistics_queue_;

  CCriticalSection in_time_lock_;
  std::int64_t last_read_ QIV_GUARDED_BY(in_time_lock_) = 0;  ///< seconds; 0: never
  bool busy_ QIV_GUARDED_BY(in_time_lock_) = false;           ///< a thread has its turn at reading
  /// Begun, and nobody's turn; null otherwise.
  std::unique_ptr<ListReading> reading_ QIV_GUARDED_BY(in_time_lock_);
  /// Of the content that the tables hold or that is being read; 0: no file, or one to be tried again.
  std::uint64_t in_file_time_ QIV_GUARDED_BY(in_time_lock_) = 0;
  std::atomic<bool> reading_waits_{false};  ///< whether reading_ is set, for a look without the lock

  CCriticalSection flush_time_lock_;
  std::int64_t next_flush_ QIV_GUARDED_BY(flush_time_lock_) = 0;

  CCriticalSection out_file_lock_;
  std::uint32_t lines_since_look_ QIV_GUARDED_BY(out_file_lock_) = 0;
  std::uint64_t lost_lines_ QIV_GUARDED_BY(out_file_lock_) = 0;  ///< since the last that was written
  bool out_full_ QIV_GUARDED_BY(out_file_lock_) = true;  ///< as of the last look; looked at before the first line
};

}  // namespace qiv
