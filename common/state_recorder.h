// What is wrong with the installation at the moment: files that were refused, sections that do not parse, a log that
// takes no lines. Who finds a state reports it as often as it likes; only changes go to the event log.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <tuple>

#include "common/event_log.h"
#include "common/language.h"
#include "common/messages.h"
#include "port/clock.h"
#include "port/critical_section.h"
#include "port/system_log.h"

namespace qiv {

/// What a state is about; its name in the event log is StateKindName.
enum class StateKind : std::uint8_t {
  kProtection,  ///< whether requests are checked; "off" until the first report
  kLoad,        ///< a file as a whole
  kSection,     ///< a section of a file; item: its name
  kItems,       ///< items of a list that were left out; item: the list's key
  kOutput,      ///< a file that the module writes
  kBody,        ///< a request's body that was not examined
  kFlood,       ///< requests that flood protection holds off
};
/// "protection", "load", "section", "items", "output", "body", "flood".
std::string_view StateKindName(StateKind kind);

/// One thing that is wrong. The reason is written in the configured language, the detail behind it as it is (GBK or
/// UTF-8, cut at 1,024 bytes). A detail that differs is a change: no counters and no times in it.
struct StateFault {
  std::string item;  ///< what part of the file, empty for all of it
  MessageId reason;
  std::string detail;
};

/// Thread safe; throws nothing: a state that memory ran out for is written with its next report. Cheap while nothing is
/// wrong. A state lives as long as the process: each worker process reports its own.
class CStateRecorder {
 public:
  using Clock = std::int64_t (*)();                        ///< microseconds, never going back
  static constexpr std::int64_t kEventPause = 60'000'000;  ///< microseconds between two events of Happened alike

  /// Null: states are kept and nothing is written.
  explicit CStateRecorder(CEventLog* log = nullptr, Clock clock = &MonotonicMicroseconds);

  using SystemLog = void (*)(SystemEvent event, const std::string& particulars) noexcept;
  /// Where an administrator is told of protection switched on and off, files refused, and locks that cannot be written;
  /// null: nowhere. Before anything is reported.
  void SetSystemLog(SystemLog system_log) { system_log_ = system_log; }
  /// Tells an event there that is no state.
  void TellSystem(SystemEvent event, const std::string& particulars) const noexcept {
    if (system_log_ != nullptr) system_log_(event, particulars);
  }

  /// Language of the reasons from now on; English before.
  void SetLanguage(Language language) { language_.store(language, std::memory_order_relaxed); }

  /// Something is wrong. Written when it was not before, or for another reason. `file` is a plain name ("_sql.db").
  void Fault(StateKind kind, std::string_view file, const StateFault& fault) noexcept;
  void Fault(StateKind kind, std::string_view file, MessageId reason) noexcept;
  /// It is in order. Written when something was wrong with it.
  void Fine(StateKind kind, std::string_view file, std::string_view item = {}) noexcept;
  /// Exactly these items of the file are at fault; all others of this kind are in order.
  void Replace(StateKind kind, std::string_view file, std::span<const StateFault> faults) noexcept;

  /// Something that is no lasting state. Written at most once a minute for each kind and reason, with the number of
  /// those in between that were not.
  void Happened(StateKind kind, MessageId reason, std::string_view detail) noexcept;

  /// Whether this was reported last as a fault.
  bool IsFault(StateKind kind, std::string_view file, std::string_view item = {}) const;

 private:
  using Key = std::tuple<StateKind, std::string, std::string>;  // kind, file, item
  struct Held {
    MessageId reason;
    std::string detail;
  };
  struct Repeated {
    std::int64_t next_us = 0;  // when it is written again
    std::uint64_t silent = 0;  // those since it was written
  };

  void TakeFault(StateKind kind, std::string_view file, const StateFault& fault) QIV_REQUIRES(states_lock_);
  void TakeFine(std::map<Key, Held>::iterator held) QIV_REQUIRES(states_lock_);
  void Write(const Key& key, bool fault, MessageId reason, std::string_view detail);

  CEventLog* const log_;
  const Clock clock_;
  SystemLog system_log_ = nullptr;
  std::atomic<Language> language_{Language::kEnglish};
  std::atomic<std::size_t> fault_count_{0};  ///< of `faults_`, so that Fine need not ask for the lock

  std::atomic<bool> version_told_{false};  ///< the first line of a process names it

  mutable CCriticalSection states_lock_;
  std::map<Key, Held> faults_ QIV_GUARDED_BY(states_lock_);
  std::map<std::pair<StateKind, MessageId>, Repeated> repeated_ QIV_GUARDED_BY(states_lock_);
};

}  // namespace qiv
