// `qivctl top`: what the firewall does at the moment, as text for a terminal.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "port/console.h"
#include "tools/event_line.h"
#include "tools/event_log_files.h"
#include "tools/event_statistics.h"
#include "tools/heavy_hitters.h"
#include "tools/list_store.h"

namespace qiv {

/// The events of the last hour. Memory does not grow with their number: the tables count for five minutes each, exactly
/// while there are no more than kTableEntries names, and are put together when they are asked for.
class CRecentEvents {
 public:
  static constexpr std::int64_t kHour = 3600;
  static constexpr std::size_t kTableEntries = 250;
  enum Table : std::uint8_t { kChecks, kClients, kRules, kUrls, kTables };

  using Ranking = std::vector<std::pair<std::string, std::uint64_t>>;

  /// `now` never goes back between the calls. Events of the future count as of now.
  void Take(const EventLineFields& event, std::int64_t now);
  /// Of the last `seconds`, at most an hour.
  std::uint64_t Count(std::int64_t seconds, std::int64_t now) const;
  OutcomeCounts CountsOfHour(std::int64_t now) const;
  /// The most frequent of the last hour, to five minutes.
  Ranking Top(Table table, std::size_t limit, std::int64_t now) const;

 private:
  static constexpr std::int64_t kSlotSeconds = 300;
  struct Second {
    std::int64_t time = -1;
    OutcomeCounts counts{};
  };
  struct Slot {
    std::int64_t number = 0;
    std::array<std::unique_ptr<CHeavyHitters>, kTables> tables;
  };

  Slot* SlotOf(std::int64_t time);

  std::array<Second, kHour> seconds_;
  std::deque<Slot> slots_;  // in order
};

/// Not thread safe.
class CTopView {
 public:
  /// `directory`: the module's, with its trailing separator.
  explicit CTopView(const std::string& directory);

  /// Takes what has been written since; the first time, all that there is. False when `go_on` said so.
  bool Update(std::int64_t now, const std::function<bool()>& go_on);

  struct Shape {
    TerminalSize size;      ///< no line is longer; no rows: as many as there are
    std::size_t lines = 0;  ///< of each table; 0: as many as fit
    bool colour = false;
  };
  /// The lines, without their ends. But for colours, nothing in them is a control character.
  std::vector<std::string> Frame(const Shape& shape, std::int64_t now);

 private:
  struct Protection {
    bool on = false;
    std::int64_t since = 0;
    std::string reason;
  };

  void Take(const EventLineFields& event, std::int64_t now);
  std::string ProtectionText() const;
  std::vector<std::string> Locked(std::int64_t now, std::size_t limit);

  const std::string directory_;
  CEventLogFiles files_;
  CListStore lists_;
  CEventLineReader reader_;
  CLocalTimes local_;
  CRecentEvents recent_;
  std::map<std::string, Protection> protection_;  // by file, "" for all
};

}  // namespace qiv
