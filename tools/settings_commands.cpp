// qivctl pack, unpack, lint.
#include <memory>
#include <string>

#include "config/config_parser.h"
#include "port/file.h"
#include "tools/color.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/settings_lint.h"

namespace qiv {
namespace {

int Pack(const std::string& input, const std::string& output) {
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(std::move(text), &report);
  if (settings == nullptr) return report.Print();
  const std::string packed = PackSettings(*settings, &report);
  if (!report.HasError() && packed.size() > kConfigMaxBytes) report.Error(0, "the packed settings are beyond 100 MiB");
  if (!report.HasError() && !ReplaceFile(output, packed)) report.Error(0, output + " " + CannotWrite());
  return report.Print();
}

int Unpack(const std::string& input) {
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  WriteOutput(UnpackSettings(text, &report));
  return report.Print();
}

int Lint(const std::string& input, const std::string& color) {
  CReport::SetColor(WantsColor(color, OutputStream::kError));
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(std::move(text), &report);
  if (settings != nullptr) LintSettings(*settings, &report);
  return report.Print();
}

struct Files {
  std::string input;
  std::string output;
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

  CCommand& unpack = program->AddCommand("unpack", "Print a _config.db as readable settings");
  unpack.AddOption("file", &files->input, "the _config.db, or - for standard input")
      .ValueIs(ValueKind::kFile)
      .Required();
  unpack.OnRun([files] { return Unpack(files->input); });

  CCommand& lint = program->AddCommand("lint", "Say what is unknown or doubtful in readable settings");
  lint.AddOption("settings", &files->input, "settings.json, or - for standard input")
      .ValueIs(ValueKind::kFile)
      .Required();
  AddColorOption(&lint, &files->color);
  lint.OnRun([files] { return Lint(files->input, files->color); });
}

}  // namespace qiv
