// qivctl: settings, libraries and their stored forms. See tools/README.md.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "port/console.h"
#include "tools/commands.h"
#include "tools/report.h"

int main(int argc, char** argv) {
  qiv::PrepareStandardStreams();
  CLI::App app{"Operator tool of the web application firewall", "qivctl"};
  app.allow_windows_style_options(false);  // "/a/path" is a path on every system
  app.require_subcommand(1);
  int exit_code = qiv::kExitOk;
  qiv::AddInitCommand(&app, &exit_code);
  qiv::AddSettingsCommands(&app, &exit_code);
  qiv::AddLibraryCommand(&app, &exit_code);
  qiv::AddCipherCommands(&app, &exit_code);
  qiv::AddCheckCommand(&app, &exit_code);
  qiv::AddReferenceCommand(&app, &exit_code);
  qiv::AddAreaCommand(&app, &exit_code);
  qiv::AddListCommands(&app, &exit_code);
  qiv::AddEventCommand(&app, &exit_code);
  qiv::AddLogCommand(&app, &exit_code);
  qiv::AddScanCommand(&app, &exit_code);
  qiv::AddServiceCommand(&app, &exit_code);

  std::vector<std::string> arguments = qiv::CommandLineArguments(argc, argv);
  std::reverse(arguments.begin(), arguments.end());  // the order in which CLI11 takes them
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? qiv::kExitOk : qiv::kExitError;
  } catch (const std::exception& error) {
    qiv::CReport report("internal error");
    report.Error(0, error.what());
    return report.Print();
  }
  return exit_code;
}
