// qivctl event.
#include <algorithm>
#include <memory>
#include <string>

#include "common/json.h"
#include "tools/commands.h"
#include "tools/event_search.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"

namespace qiv {
namespace {

struct EventOptions {
  std::string id;
  std::string directory;
  bool json = false;
};

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

int PrintEvent(const EventOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  const std::string id = CleanEventId(options.id);
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

void AddEventCommand(CCommand* program) {
  const auto options = std::make_shared<EventOptions>();
  CCommand& event = program->AddCommand("event", "Show the event whose number a block page gave");
  event.AddOption("id", &options->id, "the number").Required();
  event.AddOption("--config", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  event.AddFlag("--json", &options->json, "the line as the log holds it");
  event.OnRun([options] { return PrintEvent(*options); });
}

}  // namespace qiv
