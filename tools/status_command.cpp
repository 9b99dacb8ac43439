// qivctl status.
#include <memory>
#include <string>
#include <utility>

#include "base/version.h"
#include "common/json.h"
#include "tools/color.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/log_text.h"
#include "tools/protection_status.h"
#include "tools/report.h"

namespace qiv {
namespace {

struct StatusOptions {
  std::string directory;
  std::string color = "auto";
  bool json = false;
};

using Protection = ProtectionStatus::Protection;

const char* NameOf(Protection protection) {
  return protection == Protection::kOn ? "on" : protection == Protection::kLogOnly ? "log only" : "off";
}

const char* NameOf(CheckMode mode) {
  return mode == CheckMode::kOn ? "on" : mode == CheckMode::kLogOnly ? "log only" : "off";
}

const char* NameOf(FileVerdict verdict) {
  switch (verdict) {
    case FileVerdict::kInForce:
      return "in force";
    case FileVerdict::kMissing:
      return "missing";
    case FileVerdict::kRefused:
      return "refused";
    case FileVerdict::kNotRead:
      return "not read";
  }
  return "";
}

std::string Cell(std::string text, std::size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text + " ";
}

std::string ChecksText(const ProtectionStatus& status, bool color) {
  std::string text;
  for (const CheckMode mode : {CheckMode::kOn, CheckMode::kLogOnly, CheckMode::kOff}) {
    std::string names;
    for (const CheckSwitch& check : status.checks) {
      if (check.mode == mode) names += (names.empty() ? "" : ", ") + check.name;
    }
    const Color paint = mode == CheckMode::kOn ? Color::kGreen : Color::kYellow;
    if (!names.empty()) text += "  " + Colored(Cell(NameOf(mode), 8), paint, color) + names + "\n";
  }
  return text;
}

std::string FilesText(const ProtectionStatus& status, bool color) {
  std::string text;
  for (const FileStatus& file : status.files) {
    const bool refused = file.verdict == FileVerdict::kRefused;
    std::string line = Colored(Cell(NameOf(file.verdict), 8), refused ? Color::kRed : Color::kGreen,
                               color && (refused || file.verdict == FileVerdict::kInForce));
    text += "  " + Cell(file.name, 12) + line;
    if (file.written != 0) text += "written " + LocalTimeText(file.written);
    if (!file.remark.empty()) text += (file.written != 0 ? ", " : "") + file.remark;
    const LoggedState* const told = status.told.Find("load", file.name);
    if (told != nullptr) text += "; module at " + told->time + ": " + ReasonOf(*told);
    while (text.back() == ' ') text.pop_back();
    text += "\n";
  }
  return text;
}

std::string LogText(const ProtectionStatus& status, bool color) {
  std::string text = "Log\n  debug/_log.log ";
  text += status.log_takes_lines ? "takes lines" : Colored("takes no lines", Color::kRed, color);
  if (!status.log_remark.empty()) text += ": " + status.log_remark;
  if (status.log_written != 0) text += ", last one " + LocalTimeText(status.log_written);
  text += "\n";
  if (!status.told.version.empty()) text += "  module " + status.told.version + "\n";
  if (const LoggedState* const told = status.told.Find("protection", ""); told != nullptr) {
    text += "  protection " + told->state + " since " + told->time + ": " + ReasonOf(*told) + "\n";
  }
  return text;
}

std::string StatusText(const ProtectionStatus& status, bool color) {
  const Color paint = status.protection == Protection::kOn        ? Color::kGreen
                      : status.protection == Protection::kLogOnly ? Color::kYellow
                                                                  : Color::kRed;
  std::string text = "Protection is " + Colored(NameOf(status.protection), paint, color);
  if (!status.why.empty()) text += ": " + status.why;
  text += "\n\nChecks\n" + ChecksText(status, color) + "\nFiles of config\n" + FilesText(status, color) + "\nLocks\n";
  for (const std::string& obstacle : status.lock_obstacles)
    text += "  " + Colored(obstacle, Color::kYellow, color) + "\n";
  if (status.lock_obstacles.empty()) text += "  act\n";
  text += "  on the lists: deny " + std::to_string(status.listed[0]) + ", auth " + std::to_string(status.listed[1]) +
          ", verify " + std::to_string(status.listed[2]) + "\n\n" + LogText(status, color);
  if (!status.faults.empty()) text += "\nFaults\n";
  for (const std::string& fault : status.faults) text += "  " + Colored(fault, Color::kRed, color) + "\n";
  return text;
}

std::unique_ptr<JsonArray> TextArray(const std::vector<std::string>& texts) {
  auto array = std::make_unique<JsonArray>();
  for (const std::string& text : texts) array->Append(std::make_unique<JsonString>(text));
  return array;
}

std::unique_ptr<JsonObject> ToldJson(const LoggedState& state) {
  auto object = std::make_unique<JsonObject>();
  const std::pair<const char*, const std::string*> texts[] = {
      {"time", &state.time}, {"state", &state.state}, {"reason", &state.reason}, {"detail", &state.detail}};
  for (const auto& [key, text] : texts) object->SetText(key, *text);
  return object;
}

std::string StatusJson(const ProtectionStatus& status) {
  JsonObject json;
  json.SetText("protection", NameOf(status.protection));
  json.SetText("why", status.why);
  json.Set("in_order", std::make_unique<JsonBoolean>(status.InOrder()));
  json.SetText("qivctl", kVersion);
  json.SetText("module", status.told.version);
  if (const LoggedState* const told = status.told.Find("protection", "")) json.Set("told", ToldJson(*told));
  auto checks = std::make_unique<JsonObject>();
  for (const CheckSwitch& check : status.checks) checks->SetText(check.name, NameOf(check.mode));
  json.Set("checks", std::move(checks));
  auto files = std::make_unique<JsonArray>();
  for (const FileStatus& file : status.files) {
    auto object = std::make_unique<JsonObject>();
    object->SetText("file", file.name);
    object->SetText("result", NameOf(file.verdict));
    object->Set("written", std::make_unique<JsonNumber>(file.written));
    object->SetText("remark", file.remark);
    if (const LoggedState* const told = status.told.Find("load", file.name)) object->Set("told", ToldJson(*told));
    files->Append(std::move(object));
  }
  json.Set("files", std::move(files));
  json.Set("lock_obstacles", TextArray(status.lock_obstacles));
  auto listed = std::make_unique<JsonObject>();
  for (std::size_t list = 0; list < kClientLists; ++list) {
    listed->Set(std::string(ClientListName(static_cast<ClientList>(list))),
                std::make_unique<JsonNumber>(static_cast<std::int64_t>(status.listed[list])));
  }
  json.Set("listed", std::move(listed));
  auto log = std::make_unique<JsonObject>();
  log->Set("takes_lines", std::make_unique<JsonBoolean>(status.log_takes_lines));
  log->SetText("remark", status.log_remark);
  log->Set("written", std::make_unique<JsonNumber>(status.log_written));
  json.Set("log", std::move(log));
  json.Set("faults", TextArray(status.faults));
  return WriteJson(json, 2) + "\n";
}

int PrintStatus(const StatusOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  const ProtectionStatus status = LookAtProtection(directory);
  WriteOutput(options.json ? StatusJson(status) : StatusText(status, WantsColor(options.color, OutputStream::kOutput)));
  return status.InOrder() ? kExitOk : kExitFinding;
}

}  // namespace

void AddStatusCommand(CCommand* program) {
  const auto options = std::make_shared<StatusOptions>();
  CCommand& status = program->AddCommand(
      "status", "Tell what protects and what does not. Exit code 1: protection is off, or something does not load");
  status.AddOption("folder", &options->directory, "the module's directory").Required().ValueIs(ValueKind::kFolder);
  status.AddFlag("--json", &options->json, "as JSON");
  AddColorOption(&status, &options->color);
  status.OnRun([options] { return PrintStatus(*options); });
}

}  // namespace qiv
