// What the module has told of its installation's state in debug/_log.log.
#pragma once

#include <string>
#include <vector>

namespace qiv {

/// A line with a kind (docs/file-formats.md); texts in UTF-8, fit for a terminal.
struct LoggedState {
  std::string time;  ///< "2026-05-01T08:03:07.250Z"
  std::string kind;
  std::string state;
  std::string file;
  std::string item;
  std::string reason;
  std::string detail;
};

struct StateLog {
  std::vector<LoggedState> last;  ///< of each kind, file and item the last line that was found
  std::string version;            ///< of the module that wrote last; empty: not told

  /// Null when there is none.
  const LoggedState* Find(const std::string& kind, const std::string& file) const;
};

/// Reads the log, and what was moved away from it until one of them tells whether requests are checked. `directory`:
/// the module's, with its trailing separator.
StateLog ReadStateLog(const std::string& directory);

/// "REASON (DETAIL)"
std::string ReasonOf(const LoggedState& state);

}  // namespace qiv
