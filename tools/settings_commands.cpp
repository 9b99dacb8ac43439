// qivctl pack, unpack, lint, set.
#include <algorithm>
#include <memory>
#include <string>

#include "config/config_parser.h"
#include "port/file.h"
#include "tools/color.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/settings_edit.h"
#include "tools/settings_lint.h"

namespace qiv {
namespace {

int Pack(const std::string& input, const std::string& output) {
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  const SettingsFolder folder = FolderOfSettings(input);
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(std::move(text), &report, &folder);
  if (settings == nullptr) return report.Print();
  const std::string packed = PackSettings(*settings, &report);
  if (!report.HasError() && packed.size() > kConfigMaxBytes) report.Error(0, "the packed settings are beyond 100 MiB");
  if (!report.HasError() && !ReplaceFile(output, packed)) report.Error(0, output + " " + CannotWrite());
  return report.Print();
}

int Unpack(const std::string& input, const std::string& output) {
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  std::string readable = UnpackSettings(text, &report);
  if (output.empty()) WriteOutput(readable);
  if (output.empty() || report.HasError()) return report.Print();
  CReport written(output);
  if (IsFile(output)) {
    std::string existing;
    if (ReadInput(output, &existing, &written)) {
      readable = MergeSettings(existing, FolderOfSettings(output), readable, &written);
    }
  }
  if (!written.HasError() && !ReplaceFile(output, readable)) written.Error(0, CannotWrite());
  return std::max(report.Print(), written.Print());
}

/// `name`: "key" of the top level, or "section.key".
int Set(const std::string& file, const std::string& name, const std::string& value) {
  CReport report(file);
  std::string text;
  if (!ReadInput(file, &text, &report)) return report.Print();
  const std::size_t dot = name.find('.');
  const std::string section = dot == std::string::npos ? std::string() : name.substr(0, dot);
  const std::string key = name.substr(dot == std::string::npos ? 0 : dot + 1);
  const std::unique_ptr<CSettingsEdit> edit = CSettingsEdit::Parse(std::move(text), &report);
  if (edit != nullptr && FindConfigKey(section, key) == nullptr) {
    report.Error(0, "\"" + name + "\" is no key; docs/configuration-reference.md has all, as SECTION.KEY");
  }
  if (report.HasError()) return report.Print();
  edit->Set(section, key, JsonString(value));
  if (!ReplaceFile(file, edit->Text())) report.Error(0, CannotWrite());
  return report.Print();
}

int Lint(const std::string& input, const std::string& color) {
  CReport::SetColor(WantsColor(color, OutputStream::kError));
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  const SettingsFolder folder = FolderOfSettings(input);
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(std::move(text), &report, &folder);
  if (settings != nullptr) LintSettings(*settings, &report);
  return report.Print();
}

struct Files {
  std::string input;
  std::string output;
  std::string key;
  std::string value;
  std::string color = "auto";
};

}  // namespace

void AddSettingsCommands(CCommand* program) {
  const auto files = std::make_shared<Files>();

  CCommand& pack = program->AddCommand("pack", "Turn readable settings into a _config.db");
  pack.AddOption("settings", &files->input, "settings.json, or - for standard input")
      .ValueIs(ValueKind::kFile)
      .Required();
  pack.AddOption("-o,--output", &files->output, "the _config.db to write").ValueIs(ValueKind::kFile).Required();
  pack.OnRun([files] { return Pack(files->input, files->output); });

  CCommand& unpack = program->AddCommand("unpack", "Print a _config.db as readable settings, or put it into some");
  unpack.AddOption("file", &files->input, "the _config.db, or - for standard input")
      .ValueIs(ValueKind::kFile)
      .Required();
  unpack
      .AddOption("-o,--output", &files->output,
                 "a settings.json instead: what is the same there stays as it is written, with comments")
      .ValueIs(ValueKind::kFile);
  unpack.OnRun([files] { return Unpack(files->input, files->output); });

  CCommand& lint = program->AddCommand("lint", "Say what is unknown or doubtful in readable settings");
  lint.AddOption("settings", &files->input, "settings.json, or - for standard input")
      .ValueIs(ValueKind::kFile)
      .Required();
  AddColorOption(&lint, &files->color);
  lint.OnRun([files] { return Lint(files->input, files->color); });

  CCommand& set = program->AddCommand("set", "Set one key in readable settings, which keep all else as it is written");
  set.AddOption("settings", &files->input, "settings.json").ValueIs(ValueKind::kFile).Required();
  set.AddOption("key", &files->key, "SECTION.KEY, or KEY of the top level").Required();
  set.AddOption("value", &files->value, "the text").Required();
  set.OnRun([files] { return Set(files->input, files->key, files->value); });
}

}  // namespace qiv
