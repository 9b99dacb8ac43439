// The page that `qivctl report` writes: one file with everything in it, which loads nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/language.h"
#include "tools/event_statistics.h"

namespace qiv {

struct ReportPage {
  std::string source;                   ///< path of the log, as it is named on the page
  std::int64_t now = 0;                 ///< seconds since 1970
  std::int64_t since = 0;               ///< 0: not limited
  std::int64_t until = 0;               ///< 0: not limited
  std::size_t top = 10;                 ///< rows of each table
  std::optional<Language> language;     ///< that the page starts in; unless given, the browser's
  bool has_areas = false;               ///< there is an area library
  std::vector<std::string> unreadable;  ///< files of the log, by path
  /// Of the page's own style and script, in base64 characters: nobody may know it when the log is written.
  std::string nonce;
};

/// HTML, UTF-8. Texts of the log are escaped wherever they stand. Without script, everything but the filter works.
std::string WriteReportPage(const CEventStatistics& statistics, const ReportPage& page);

}  // namespace qiv
