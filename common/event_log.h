// The event log (blocks, other decisions, changes of the installation's state) and the request log: one JSON object a
// line, UTF-8.
//
// Several threads and processes write the same two files, each line with one append call, so lines never mix. A file
// that has reached the limit is renamed to ".1", after ".1" to ".2" and so on; ".4" goes. Only the holder of a lock
// file renames, after looking at the size once more, so a full file is moved away once; writers never wait for it and
// lose nothing: a line goes to the file that bore the name when it was opened.
//
// Failure is silent, because a full disk must not stop a web site. A file that cannot be moved away is written up to
// four times the limit and then no further, so the disk space is bounded: 8 times the limit for each log.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

/// What a line says. Texts are GBK or UTF-8 (taken as UTF-8 when they are valid UTF-8 with a character of at least
/// three bytes, or ASCII) and need to live only during the call. Each is cut at its limit, at a character boundary,
/// before it is converted; invalid bytes become U+FFFD. Bodies and passwords do not belong here.
struct Event {
  std::int64_t time_us = 0;     ///< microseconds since 1970; 0 is now
  std::string_view event_id;    ///< at most 64 bytes; NewEventId()
  std::uint32_t site = 0;       ///< server's number of the site
  std::string_view client;      ///< client address; 64
  std::string_view forwarded;   ///< forwarded address; 64
  std::string_view method;      ///< 32
  std::string_view url;         ///< 2,048
  std::int32_t phase = 0;       ///< 1 begin, 3 after execution, 4 send
  std::string_view check;       ///< name of the check; 64
  std::string_view item;        ///< 256
  std::string_view reason;      ///< 512
  std::string_view detail;      ///< 1,024
  std::string_view action;      ///< "block", "allow", "record" ...; 32
  std::int32_t status = 0;      ///< HTTP status answered; 0 when the application answers
  std::string_view rule;        ///< identifier of the rule; 128
  std::string_view user_agent;  ///< 512
  std::int64_t elapsed_us = 0;  ///< time spent in the firewall
};

/// A line about the installation instead of a request; texts and limits as above.
struct StateEvent {
  std::int64_t time_us = 0;
  std::string_view event_id;
  std::string_view kind;          ///< see StateKind in state_recorder.h; 32
  std::string_view state;         ///< "fault" or "ok", of protection "off" or "on"; 32
  std::string_view file;          ///< 64
  std::string_view item;          ///< section or key; 256
  std::string_view reason;        ///< 512
  std::string_view detail;        ///< 1,024
  std::string_view version = {};  ///< of the module, left out when empty; 32
};

class CEventLog {
 public:
  static constexpr std::uint64_t kRotateBytes = 64U << 20;  ///< large enough for a day, small enough to open
  static constexpr int kKeptFiles = 4;

  /// `directory` with its trailing separator; created (one level) when a file cannot be opened. Nothing is touched
  /// before the first line.
  explicit CEventLog(const std::string& directory, std::uint64_t rotate_bytes = kRotateBytes);

  /// Appends a line with every field to "_log.log".
  void Write(const Event& event) noexcept;
  void WriteState(const StateEvent& event) noexcept;
  /// Appends a line to "_log_req.log": time, event_id, site, client, forwarded, method, url, check, action, status,
  /// user_agent and elapsed_us.
  void WriteRequest(const Event& event) noexcept;

  /// 16 hexadecimal digits, unique with high probability among all processes. Thread safe.
  static std::string NewEventId();

 private:
  // One of the two files. Atomic counters instead of a lock: a look at the size too many or too few does no harm.
  class CLogFile {
   public:
    CLogFile(const std::string& directory, std::string_view name, std::uint64_t rotate_bytes);
    void Append(std::string_view line);

   private:
    bool NeedsLook();
    bool RotateIfFull();
    bool MoveAway();
    std::string Kept(int number) const;

    const std::string directory_;
    const std::string path_;
    const std::uint64_t rotate_bytes_;
    std::atomic<std::uint32_t> lines_since_look_{0};
    std::atomic<std::int64_t> next_look_us_{0};
    std::atomic<bool> stopped_{false};
  };

  CLogFile events_;
  CLogFile requests_;
};

/// One line as CEventLog::Write appends it, with its line end.
std::string EventLine(const Event& event);

/// What a state event tells, as one sentence for people: "FILE, ITEM: REASON (DETAIL)". UTF-8.
std::string StateSentence(const StateEvent& event);

}  // namespace qiv
