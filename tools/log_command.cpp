// qivctl log.
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/exchange_lines.h"
#include "port/file.h"
#include "tools/commands.h"
#include "tools/exchange_service.h"
#include "tools/files.h"
#include "tools/log_text.h"
#include "tools/report.h"

namespace qiv {
namespace {

constexpr std::size_t kPieceBytes = 4U << 20;
constexpr std::chrono::milliseconds kPoll{250};

struct LogOptions {
  std::string directory;
  bool follow = false;
  bool json = false;
};

/// Prints the whole lines of a file from *offset on. True when there was one.
bool PrintFrom(const std::string& path, const LogOptions& options, std::uint64_t* offset) {
  bool printed = false;
  std::string text;
  while (ReadFilePart(path, *offset, kPieceBytes, &text) == ReadFileResult::kOk && !text.empty()) {
    const std::size_t last_end = text.rfind('\n');
    if (last_end == std::string::npos && text.size() < kPieceBytes) break;
    const std::size_t end = last_end == std::string::npos ? text.size() : last_end + 1;
    *offset += end;
    std::string output;
    ForEachLine(std::string_view(text).substr(0, end), [&](std::string_view line) {
      output += options.json ? LogLineJson(line) : LogLineText(line);
      output += '\n';
    });
    WriteOutput(output);
    printed = true;
  }
  return printed;
}

int PrintLog(const LogOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) {
    CReport report(options.directory);
    report.Error(0, "is no module directory: it holds no config folder");
    return report.Print();
  }
  const std::vector<std::string> files = OutFiles(directory);
  std::uint64_t offset = 0;
  for (const std::string& file : files) {
    offset = 0;
    PrintFrom(file, options, &offset);
  }
  const std::string& live = files.back();
  std::size_t moved = files.size();
  while (options.follow && OutputIsGood()) {
    std::this_thread::sleep_for(kPoll);
    const std::vector<std::string> now = OutFiles(directory);
    // The service has moved the file away: its last lines are read under its new name.
    const bool was_moved = FileSize(live).value_or(0) < offset;
    if (was_moved && now.size() > 1 && now.size() >= moved) PrintFrom(now[now.size() - 2], options, &offset);
    if (was_moved) offset = 0;
    moved = now.size();
    PrintFrom(live, options, &offset);
  }
  return kExitOk;
}

}  // namespace

void AddLogCommand(CCommand* program) {
  const auto options = std::make_shared<LogOptions>();
  CCommand& log = program->AddCommand("log", "Show what the module has written for the firewall service");
  log.AddOption("--config", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  log.AddFlag("--follow", &options->follow, "go on with what is written, until Ctrl-C");
  log.AddFlag("--json", &options->json, "one JSON object a line");
  log.OnRun([options] { return PrintLog(*options); });
}

}  // namespace qiv
