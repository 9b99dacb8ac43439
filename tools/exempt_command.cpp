// qivctl exempt: the findings that a site does not want (config/exemptions.h).
#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/char_set.h"
#include "common/json.h"
#include "common/text.h"
#include "config/exemptions.h"
#include "config/qiv_config.h"
#include "port/clock.h"
#include "port/file.h"
#include "tools/commands.h"
#include "tools/event_search.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"

namespace qiv {
namespace {

struct ExemptOptions {
  std::string directory;
  std::string event;  ///< number of an event
  Exemption exemption;
  std::uint64_t number = 0;  ///< of one to be removed, as `list` counts
};

/// False after an error, which was printed. A file that is not there holds none.
bool Load(const ExemptOptions& options, std::string* path, std::vector<Exemption>* exemptions, int* exit_code) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) {
    *exit_code = Fail(options.directory, "is no module directory: it holds no config folder");
    return false;
  }
  *path = ConfigPaths(directory).exemptions;
  std::string text;
  std::size_t bad_line = 0;
  if (IsFile(*path) && ReadWholeFile(*path, CExemptions::kFileMaxBytes, &text) != ReadFileResult::kOk) {
    *exit_code = Fail(*path, CannotRead(*path, CExemptions::kFileMaxBytes));
  } else if (!CExemptions::Read(text, exemptions, &bad_line)) {
    *exit_code = Fail(*path, "is no exemption: rule, path, parameter, date and remark, divided by tabs", bad_line);
  } else {
    return true;
  }
  return false;
}

int Store(const std::string& path, const std::vector<Exemption>& exemptions) {
  std::string text = "# rule\tpath\tparameter\tdate\tremark\n";
  for (const Exemption& exemption : exemptions) text += ExemptionLine(exemption) + "\n";
  return ReplaceFile(path, text) ? kExitOk : Fail(path, CannotWrite());
}

std::string Today() {
  const CalendarTime now = LocalTime(UnixSeconds());
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d", now.year, now.month, now.day);
  return text.data();
}

int Add(const ExemptOptions& options) {
  Exemption exemption = options.exemption;
  std::string path;
  std::vector<Exemption> exemptions;
  int exit_code = kExitOk;
  if (Trim(exemption.rule).empty()) return Fail("--rule", "is empty");
  if (!exemption.path.empty() && exemption.path[0] != '/') return Fail(exemption.path, "a path begins with /");
  if (exemption.path.find_first_of("?%") != std::string::npos) {
    return Fail(exemption.path, "is no path: it is written decoded, and without a query");
  }
  if (!Load(options, &path, &exemptions, &exit_code)) return exit_code;
  const auto same = [&exemption](const Exemption& other) {
    return other.rule == exemption.rule && other.path == exemption.path && other.parameter == exemption.parameter;
  };
  if (std::any_of(exemptions.begin(), exemptions.end(), same)) return Fail(exemption.rule, "is exempt there already");
  exemption.date = Today();
  exemptions.push_back(exemption);
  return Store(path, exemptions);
}

int List(const ExemptOptions& options) {
  std::string path;
  std::vector<Exemption> exemptions;
  int exit_code = kExitOk;
  if (!Load(options, &path, &exemptions, &exit_code)) return exit_code;
  std::string text;
  for (std::size_t i = 0; i < exemptions.size(); ++i) {
    const Exemption& e = exemptions[i];
    AppendAll(&text, {std::to_string(i + 1), ". rule ", PrintableUtf8(e.rule), " on ",
                      e.path.empty() ? "every path" : PrintableUtf8(e.path), " in ",
                      e.parameter.empty() ? "everything" : "parameter " + PrintableUtf8(e.parameter)});
    if (!e.date.empty()) AppendAll(&text, {", ", PrintableUtf8(e.date)});
    if (!e.remark.empty()) AppendAll(&text, {": ", PrintableUtf8(e.remark)});
    text += "\n";
  }
  WriteOutput(text.empty() ? "nothing is exempt\n" : text);
  return kExitOk;
}

int Remove(const ExemptOptions& options) {
  std::string path;
  std::vector<Exemption> exemptions;
  int exit_code = kExitOk;
  if (!Load(options, &path, &exemptions, &exit_code)) return exit_code;
  if (options.number == 0 || options.number > exemptions.size()) {
    return Fail(std::to_string(options.number), "is the number of no exemption; \"qivctl exempt list\" numbers them");
  }
  exemptions.erase(exemptions.begin() + static_cast<std::ptrdiff_t>(options.number - 1));
  return Store(path, exemptions);
}

/// The name in "GET[name]" or "Detail:name=" of an event's detail; empty when it names none.
std::string ParameterOf(std::string_view detail) {
  for (const std::string_view place : {"GET[", "POST["}) {
    const std::size_t begin = detail.find(place);
    const std::size_t end = begin == std::string_view::npos ? begin : detail.find(']', begin);
    if (end != std::string_view::npos)
      return std::string(detail.substr(begin + place.size(), end - begin - place.size()));
  }
  for (const std::string_view word : {"Detail:", "\xE8\xAF\xA6\xE6\x83\x85\xEF\xBC\x9A"}) {
    const std::size_t begin = detail.find(word);
    const std::size_t end = begin == std::string_view::npos ? begin : detail.find('=', begin);
    if (end != std::string_view::npos)
      return std::string(detail.substr(begin + word.size(), end - begin - word.size()));
  }
  return {};
}

std::string ShellWord(const std::string& text) { return "'" + ReplaceAll(text, "'", "'\\''") + "'"; }

/// Prints the smallest exemption that would have let the event's request pass; changes nothing.
int Propose(const ExemptOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  const std::string id = CleanEventId(options.event);
  if (!IsEventId(id)) return Fail(options.event, "is no event number: they are 16 of the digits 0-9 and a-f");
  const std::unique_ptr<IJsonValue> value = ParseJson(FindEvent(directory, id));
  const JsonObject* const event = value == nullptr ? nullptr : value->AsObject();
  if (event == nullptr) {
    CReport report(id);
    report.Finding(0, "no such event in " + directory + "debug/_log.log and what was moved away from it");
    return report.Print();
  }
  const std::string check = event->GetText("check");
  if (check.empty() || check == "lists") return Fail(id, "is no event of a check that exemptions are for");
  const std::string rule = event->GetText("rule").empty() ? check : event->GetText("rule");
  const std::string url = event->GetText("url");
  const std::string path = CCharSet::LocalToUtf8(Trim(NormalizeText(url.substr(0, url.find('?')))));
  const std::string parameter = ParameterOf(event->GetText("detail"));
  std::string text =
      PrintableUtf8(event->GetText("reason")) + "\nTo exempt it there, and nowhere else:\n  qivctl exempt add";
  AppendAll(&text, {" --rule ", ShellWord(rule)});
  if (path.starts_with('/')) AppendAll(&text, {" --path ", ShellWord(path)});
  if (!parameter.empty()) AppendAll(&text, {" --parameter ", ShellWord(parameter)});
  AppendAll(&text, {" --remark ", ShellWord("event " + id), " --config ", ShellWord(options.directory), "\n"});
  if (parameter.empty()) text += "The event names no parameter; where you know it, --parameter NAME opens less.\n";
  WriteOutput(text);
  return kExitOk;
}

}  // namespace

void AddExemptCommand(CCommand* program) {
  const auto options = std::make_shared<ExemptOptions>();
  CCommand& exempt = program->AddCommand("exempt", "Findings that are no attacks on this site");
  const auto add_config = [options](CCommand* command) {
    command->AddOption("--config", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder);
  };
  add_config(&exempt);
  exempt.AddOption("--from-event", &options->event, "propose the exemption for an event of the log");
  CCommand& add = exempt.AddCommand("add", "Exempt a rule");
  add_config(&add);
  add.AddOption("--rule", &options->exemption.rule, "identifier in an event; where it has none, its check").Required();
  add.AddOption("--path", &options->exemption.path, "only on this path, whole and decoded");
  add.AddOption("--parameter", &options->exemption.parameter, "only in this parameter of query or body");
  add.AddOption("--remark", &options->exemption.remark, "why");
  CCommand& list = exempt.AddCommand("list", "Show what is exempt");
  add_config(&list);
  CCommand& remove = exempt.AddCommand("remove", "Take an exemption back");
  add_config(&remove);
  remove.AddOption("number", &options->number, "as list counts").Required();
  // --config may stand before the inner command's name or behind it.
  exempt.Demand([options, &exempt]() -> std::string {
    if (options->directory.empty()) return "--config is required";
    const bool nothing = exempt.Chosen() == nullptr && options->event.empty();
    return nothing ? "add, list, remove or --from-event is required" : "";
  });
  exempt.OnRun([options] { return Propose(*options); });
  add.OnRun([options] { return Add(*options); });
  list.OnRun([options] { return List(*options); });
  remove.OnRun([options] { return Remove(*options); });
}

}  // namespace qiv
