// `qivctl report`: from the log of an installation to the page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/language.h"

namespace qiv {

/// A moment as it is given to --since and --until, in seconds since 1970: "90m", "24h", "7d", "2w" before `now`, or
/// "2026-05-01", "2026-05-01 12:30", "2026-05-01T12:30:15" in local time. Nothing for other texts.
std::optional<std::int64_t> ParseMoment(std::string_view text, std::int64_t now);

struct ReportRequest {
  static constexpr std::size_t kMostRows = 500;

  std::string directory;  ///< as it was given
  std::string output;     ///< path of the page; "-" for standard output
  std::string since;      ///< empty: from the beginning
  std::string until;      ///< empty: to the end
  std::size_t top = 10;   ///< 1 to kMostRows
  std::optional<Language> language;
};

/// Writes the page and says on standard output what it holds. The exit code.
int WriteReport(const ReportRequest& request);

}  // namespace qiv
