#include "tools/report_run.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "base/ascii.h"
#include "common/area_library.h"
#include "common/event_log.h"
#include "common/ip_address.h"
#include "port/clock.h"
#include "port/file.h"
#include "tools/event_log_files.h"
#include "tools/event_statistics.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"
#include "tools/report_page.h"
#include "tools/scan_progress.h"

namespace qiv {
namespace {

constexpr std::size_t kLeastCapacity = 2000;  // of a table: some hundred kilobytes
constexpr std::size_t kCapacityPerRow = 50;   // that the rows shown are the true ones

/// "24h" and the like in seconds; nothing for other texts and for more than a century.
std::optional<std::int64_t> ParseAge(std::string_view text) {
  constexpr std::string_view kUnits = "mhdw";
  constexpr std::int64_t kSeconds[] = {60, 3600, 86400, 7 * 86400};
  constexpr std::int64_t kLongest = std::int64_t{100} * 366 * 86400;
  const std::size_t unit = text.size() < 2 || text.size() > 8 ? kUnits.npos : kUnits.find(text.back());
  if (unit == kUnits.npos) return std::nullopt;
  std::int64_t number = 0;
  for (const char c : text.substr(0, text.size() - 1)) {
    if (!IsDigit(c)) return std::nullopt;
    number = number * 10 + (c - '0');
  }
  return number * kSeconds[unit] <= kLongest ? std::optional(number * kSeconds[unit]) : std::nullopt;
}

/// The moment at which clocks on the wall show this. Where they are set back it happens twice: either.
std::int64_t FromWall(std::int64_t wall_seconds) {
  CLocalTimes local;
  std::int64_t moment = wall_seconds;
  for (int i = 0; i < 2; ++i) moment = std::max<std::int64_t>(wall_seconds - (local.Wall(moment) - moment), 0);
  return moment;
}

/// The libraries of areas, as far as there are any.
class CAreas {
 public:
  explicit CAreas(const std::string& module_directory) {
    for (const bool ipv4 : {true, false}) {
      const std::string path = module_directory + (ipv4 ? "config/iplib.db" : "config/iplibv6.db");
      AreaLoad result = AreaLoad::kMissing;
      auto& library = ipv4 ? ipv4_ : ipv6_;
      library = CAreaLibrary::Load(path, ipv4, &result);
      if (result != AreaLoad::kOk && result != AreaLoad::kMissing) Fail(path, std::string(AreaLoadText(result)));
    }
  }

  bool Any() const { return ipv4_ != nullptr || ipv6_ != nullptr; }

  std::string Of(std::string_view client) const {
    const auto address = CIpAddress::Parse(client);
    if (!address) return {};
    const auto& library = address->IsIpv4() ? ipv4_ : ipv6_;
    const Area* const area = library == nullptr ? nullptr : library->Find(*address);
    if (area == nullptr) return {};
    return std::string(area->code) + (area->name.empty() ? "" : " " + std::string(area->name));
  }

 private:
  std::shared_ptr<const CAreaLibrary> ipv4_;
  std::shared_ptr<const CAreaLibrary> ipv6_;
};

/// False, with the error printed, when the text is no moment.
bool TakeMoment(std::string_view option, const std::string& text, std::int64_t now, std::int64_t* moment) {
  if (text.empty()) return true;
  const auto parsed = ParseMoment(text, now);
  if (parsed) *moment = *parsed;
  if (!parsed)
    Fail("command line", std::string(option) + " " + text + ": is neither a period (24h, 7d) nor a date (2026-05-01)");
  return parsed.has_value();
}

std::string Summary(const CEventStatistics& statistics) {
  std::string text = Grouped(statistics.Counts()[0]) + " stopped, " + Grouped(statistics.Counts()[1]) +
                     " would be stopped, " + Grouped(statistics.Faults() + statistics.Failures()) + " errors of state";
  if (statistics.Unreadable() > 0) text += "; " + Grouped(statistics.Unreadable()) + " unreadable lines left out";
  return text;
}

}  // namespace

std::optional<std::int64_t> ParseMoment(std::string_view text, std::int64_t now) {
  if (const auto age = ParseAge(text)) return std::max<std::int64_t>(now - *age, 0);
  // Filled up to the form that the log writes.
  std::string full(text);
  if (full.size() > 10 && full[10] == ' ') full[10] = 'T';
  if (full.size() == 10) full += "T00:00";
  if (full.size() == 16) full += ":00";
  const std::int64_t wall = full.size() == 19 ? ParseLogTime(full + "Z") : -1;
  return wall < 0 ? std::nullopt : std::optional(FromWall(wall));
}

int WriteReport(const ReportRequest& request) {
  const std::string directory = ResolveModuleDirectory(request.directory);
  if (directory.empty())
    return Fail(PrintablePath(request.directory), "is no module directory: it holds no config folder");
  ReportPage page;
  page.now = UnixSeconds();
  if (!TakeMoment("--since", request.since, page.now, &page.since)) return kExitError;
  if (!TakeMoment("--until", request.until, page.now, &page.until)) return kExitError;

  const CAreas areas(directory);
  StatisticsOptions options;
  options.since = page.since;
  if (page.until != 0) options.until = page.until;
  options.now = page.now;
  options.capacity = std::max(kLeastCapacity, request.top * kCapacityPerRow);
  if (areas.Any()) options.area_of = [&areas](std::string_view client) { return areas.Of(client); };
  CEventStatistics statistics(options);
  CEventLogFiles files(directory);
  files.ReadAll([&statistics](std::string_view line) {
    statistics.Take(line);
    return true;
  });

  page.source = PrintablePath(files.Path());
  page.top = request.top;
  page.language = request.language;
  page.has_areas = areas.Any();
  for (const std::string& path : files.Unreadable()) page.unreadable.push_back(PrintablePath(path));
  page.nonce = CEventLog::NewEventId() + CEventLog::NewEventId();
  const std::string html = WriteReportPage(statistics, page);
  if (request.output == "-") {
    WriteOutput(html);
  } else if (!ReplaceFile(request.output, html)) {
    return Fail(PrintablePath(request.output), CannotWrite());
  } else {
    WriteOutput(PrintablePath(request.output) + ": " + Summary(statistics) + "\n");
  }
  if (page.unreadable.empty()) return kExitOk;
  for (const std::string& path : page.unreadable) Fail(path, "cannot be read; the report is not whole");
  return kExitError;
}

}  // namespace qiv
