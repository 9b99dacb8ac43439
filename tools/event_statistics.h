// What an event log comes to: sums, the most frequent of everything, a course of time, the latest events. Memory does
// not grow with the log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/event_line.h"
#include "tools/heavy_hitters.h"

namespace qiv {

/// What became of a request. A column of each table.
enum class EventOutcome : std::uint8_t {
  kStopped,    ///< answered by the firewall
  kWouldStop,  ///< only logged
  kPassed,     ///< a note about a request that went on
};
EventOutcome OutcomeOf(std::string_view action);

/// Sums of one stretch of time.
using OutcomeCounts = std::array<std::uint64_t, CHeavyHitters::kColumns>;

/// The machine's time zone, looked up once for a quarter of an hour.
class CLocalTimes {
 public:
  /// Seconds since 1970 as a clock on the wall would have counted them.
  std::int64_t Wall(std::int64_t unix_seconds);

 private:
  std::int64_t quarter_ = std::numeric_limits<std::int64_t>::min();
  std::int64_t offset_ = 0;
};

/// "2024-05-01 08:03:07" of seconds on the wall.
std::string WallText(std::int64_t wall_seconds);

/// Sums for stretches of equal length, which grows with the whole period: of at most kMostBars there is one.
class CTimeCourse {
 public:
  static constexpr std::int64_t kMostBars = 120;

  struct Bar {
    std::int64_t begin = 0;  ///< seconds on the wall
    OutcomeCounts counts{};
  };

  void Add(std::int64_t wall_seconds, EventOutcome outcome);
  /// From the first to the last that holds anything, empty ones between them too.
  std::vector<Bar> Bars() const;
  std::int64_t SecondsPerBar() const;

 private:
  std::int64_t BeginOf(std::int64_t wall_seconds) const;
  void Coarsen();

  std::size_t width_ = 0;
  std::map<std::int64_t, OutcomeCounts> bars_;
};

/// A time in which the log says that protection, or a part of it, was off.
struct ProtectionGap {
  std::int64_t begin = 0;  ///< seconds since 1970
  std::int64_t end = 0;    ///< 0: not on again until the log ends
  std::string file;        ///< what part, empty for all
  std::string reason;
};

struct StatisticsOptions {
  std::int64_t since = 0;                                         ///< seconds since 1970; what is older is not counted
  std::int64_t until = std::numeric_limits<std::int64_t>::max();  ///< that moment itself is counted no more
  std::int64_t now = 0;         ///< what is still off is off until now, or until `until`
  std::size_t capacity = 2000;  ///< of each table
  std::size_t latest = 200;     ///< events kept
  /// The area of a client's address, UTF-8; empty for none. Without it there is no table of areas.
  std::function<std::string(std::string_view client)> area_of;
};

class CEventStatistics {
 public:
  enum Table : std::uint8_t { kChecks, kRules, kClients, kAreas, kUrls, kTables };
  static constexpr std::size_t kKeptStates = 200;  ///< lines about the installation, and times without protection

  explicit CEventStatistics(StatisticsOptions options);

  /// A line of the log without its end; lines in their order.
  void Take(std::string_view line);

  const CHeavyHitters& Of(Table table) const { return *tables_[table]; }
  const CTimeCourse& Course() const { return course_; }
  const OutcomeCounts& Counts() const { return counts_; }
  std::uint64_t Requests() const { return counts_[0] + counts_[1] + counts_[2]; }

  std::uint64_t Faults() const { return faults_; }      ///< lines that say that something is wrong
  std::uint64_t Failures() const { return failures_; }  ///< requests that passed because the firewall itself failed
  std::uint64_t StateLines() const { return state_lines_; }
  std::uint64_t Unreadable() const { return unreadable_; }
  std::int64_t First() const { return first_; }  ///< time of the first line counted; 0 when there is none
  std::int64_t Last() const { return last_; }
  const std::string& Version() const { return version_; }  ///< the module's, as told last; may be empty

  /// Empty for none, and without a library.
  std::string AreaOf(std::string_view client) const { return options_.area_of ? options_.area_of(client) : ""; }

  /// Lines as they were, the oldest first.
  const std::deque<std::string>& LatestEvents() const { return events_; }
  const std::deque<std::string>& LatestStates() const { return states_; }
  /// The latest kKeptStates; what goes on is the last.
  std::vector<ProtectionGap> Gaps() const;
  std::uint64_t GapCount() const { return gap_count_; }
  /// Seconds without any protection, all gaps of the whole together (those of a part do not count).
  std::int64_t UnprotectedSeconds() const;

 private:
  void TakeRequest(const EventLineFields& event);
  void TakeState(const EventLineFields& event);
  void TakeProtection(const EventLineFields& event);
  std::int64_t EndOfTime() const;
  static void Keep(std::string_view line, std::size_t most, std::deque<std::string>* ring);

  const StatisticsOptions options_;
  CEventLineReader reader_;
  CLocalTimes local_;
  std::array<std::unique_ptr<CHeavyHitters>, kTables> tables_;
  CTimeCourse course_;
  OutcomeCounts counts_{};
  std::uint64_t faults_ = 0;
  std::uint64_t failures_ = 0;
  std::uint64_t state_lines_ = 0;
  std::uint64_t unreadable_ = 0;
  std::int64_t first_ = 0;
  std::int64_t last_ = 0;
  std::string version_;
  std::deque<std::string> events_;
  std::deque<std::string> states_;
  std::map<std::string, ProtectionGap> open_gaps_;  // by file
  std::deque<ProtectionGap> gaps_;
  std::uint64_t gap_count_ = 0;
  std::int64_t unprotected_ = 0;  // of gaps that are over
};

}  // namespace qiv
