// qivctl pack, unpack, lint.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "config/config_parser.h"
#include "port/file.h"
#include "tools/commands.h"
#include "tools/files.h"
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

int Unpack(const std::string& input) {
  CReport report(input);
  std::string text;
  if (!ReadInput(input, &text, &report)) return report.Print();
  WriteOutput(UnpackSettings(text, &report));
  return report.Print();
}

int Lint(const std::string& input) {
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
};

}  // namespace

void AddSettingsCommands(CLI::App* app, int* exit_code) {
  const auto files = std::make_shared<Files>();

  CLI::App* const pack = app->add_subcommand("pack", "Turn readable settings into a _config.db");
  pack->add_option("settings", files->input, "settings.json, or - for standard input")->required();
  pack->add_option("-o,--output", files->output, "the _config.db to write")->required();
  pack->callback([files, exit_code] { *exit_code = Pack(files->input, files->output); });

  CLI::App* const unpack = app->add_subcommand("unpack", "Print a _config.db as readable settings");
  unpack->add_option("file", files->input, "the _config.db, or - for standard input")->required();
  unpack->callback([files, exit_code] { *exit_code = Unpack(files->input); });

  CLI::App* const lint = app->add_subcommand("lint", "Say what is unknown or doubtful in readable settings");
  lint->add_option("settings", files->input, "settings.json, or - for standard input")->required();
  lint->callback([files, exit_code] { *exit_code = Lint(files->input); });
}

}  // namespace qiv
