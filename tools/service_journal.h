// How far the service has come, in config/_service.json.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// Sums over all lines that were ever consumed.
struct ServiceTotals {
  std::uint64_t lines = 0;  ///< of all kinds, malformed ones included
  std::uint64_t locks = 0;
  std::uint64_t messages = 0;
  std::uint64_t malformed = 0;
  std::map<std::string, std::uint64_t> blocks;      ///< by check, from "check" lines; names in UTF-8
  std::map<std::string, std::uint64_t> statistics;  ///< by category, from "tongji" lines
};

/// A file that was _out.log before it was moved away.
struct RetiredFile {
  std::uint64_t sequence = 0;  ///< the file is _out.SEQUENCE.log
  std::uint64_t offset = 0;    ///< consumed up to here
  std::int64_t until = 0;      ///< seconds since 1970; lines may still arrive in it up to then
};

/// All that the service needs to know after it was killed. It is written whole after each step, so it tells exactly
/// which lines have been counted; what a step has yet to do in other files stands in it before that is begun, and is
/// done again, with the same result, by whoever comes next.
struct ServiceJournal {
  std::uint64_t offset = 0;         ///< of _out.log, consumed up to here
  std::uint64_t last_sequence = 0;  ///< the highest that was ever given
  std::uint64_t moving = 0;         ///< _out.log is being moved to this sequence; 0: it is not
  std::vector<RetiredFile> retired;
  std::vector<std::string> pending;  ///< plain lock lines (GBK) that are yet to be brought into _in.db
  ServiceTotals totals;

  std::string ToJson() const;
  /// False when the text is no journal.
  bool FromJson(std::string_view text);
};

}  // namespace qiv
