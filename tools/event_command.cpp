// qivctl event.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "common/char_set.h"
#include "common/event_log.h"
#include "common/json.h"
#include "common/text.h"
#include "port/file.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"

namespace qiv {
namespace {

constexpr std::size_t kPieceBytes = 4U << 20;

struct EventOptions {
  std::string id;
  std::string directory;
  bool json = false;
};

/// The line of a log with this text in it; empty when there is none.
std::string FindLine(const std::string& path, std::string_view wanted) {
  std::string piece;
  for (std::uint64_t offset = 0;
       ReadFilePart(path, offset, kPieceBytes, &piece) == ReadFileResult::kOk && !piece.empty();) {
    const std::size_t found = piece.find(wanted);
    const std::size_t last_end = piece.rfind('\n');
    const std::size_t whole = last_end == std::string::npos ? piece.size() : last_end + 1;
    if (found < whole) {
      const std::size_t begin = piece.rfind('\n', found) + 1;  // npos + 1 is 0
      return piece.substr(begin, piece.find('\n', found) - begin);
    }
    offset += whole;
  }
  return {};
}

/// The event, in the log or what was moved away from it, the newest first; empty when it is in none.
std::string FindEvent(const std::string& directory, const std::string& id) {
  const std::string wanted = "\"event_id\":\"" + id + "\"";
  const std::string log = directory + "debug/_log.log";
  std::string line = FindLine(log, wanted);
  for (int kept = 1; line.empty() && kept <= CEventLog::kKeptFiles; ++kept) {
    line = FindLine(log + "." + std::to_string(kept), wanted);
  }
  return line;
}

/// Visitors read the number out or copy it with what stands around it.
std::string CleanId(std::string_view given) { return CCharSet::LowerAscii(Trim(given)); }

bool IsEventId(std::string_view id) {
  return !id.empty() && id.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string EventText(const JsonObject& event) {
  constexpr std::size_t kNameColumn = 12;
  std::string text;
  for (const JsonObject::Member* const member : event.Members()) {
    const std::string value = PrintableUtf8(member->second->Text());
    if (value.empty()) continue;
    std::string name = member->first;
    name.resize(std::max(name.size() + 1, kNameColumn), ' ');
    text.append(name).append(value).append("\n");
  }
  return text;
}

int Fail(const std::string& file, const std::string& message) {
  CReport report(file);
  report.Error(0, message);
  return report.Print();
}

int PrintEvent(const EventOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  const std::string id = CleanId(options.id);
  if (!IsEventId(id)) return Fail(options.id, "is no event number: they are 16 of the digits 0-9 and a-f");
  const std::string line = FindEvent(directory, id);
  if (line.empty()) {
    CReport report(id);
    report.Finding(0, "no such event in " + directory + "debug/_log.log and what was moved away from it");
    return report.Print();
  }
  const std::unique_ptr<IJsonValue> value = options.json ? nullptr : ParseJson(line);
  const JsonObject* const event = value == nullptr ? nullptr : value->AsObject();
  WriteOutput(event == nullptr ? line + "\n" : EventText(*event));
  return kExitOk;
}

}  // namespace

void AddEventCommand(CLI::App* app, int* exit_code) {
  const auto options = std::make_shared<EventOptions>();
  CLI::App* const event = app->add_subcommand("event", "Show the event whose number a block page gave");
  event->add_option("id", options->id, "the number")->required();
  event->add_option("--config", options->directory, "the module's directory")->required();
  event->add_flag("--json", options->json, "the line as the log holds it");
  event->callback([options, exit_code] { *exit_code = PrintEvent(*options); });
}

}  // namespace qiv
