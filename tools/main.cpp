// qivctl: settings, libraries and their stored forms. See tools/README.md.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "base/version.h"
#include "port/console.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/report.h"
#include "tools/suggestion.h"

namespace {

/// The exit code of a command, once it is known whether its output arrived.
int AfterOutput(int exit_code) {
  if (std::cout.flush() && qiv::OutputIsGood()) return exit_code;
  qiv::CReport report("standard output");
  report.Error(0, "cannot be written");
  return report.Print();
}

/// The names of a command's own commands, or of its options.
std::vector<std::string> NamesOf(const CLI::App& command, bool options) {
  std::vector<std::string> names;
  if (options) {
    for (const CLI::Option* const option : command.get_options()) {
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
  } else {
    for (const CLI::App* const inner : command.get_subcommands([](const CLI::App*) { return true; })) {
      names.push_back(inner->get_name());
    }
  }
  return names;
}

/// What is wrong with the command line, with the nearest name of what is unknown.
int UsageError(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* command = &app;
  std::string path = app.get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    path += " " + command->get_name();
  }
  std::string message = error.what();
  const std::vector<std::string> unknown = app.remaining(true);
  if (!unknown.empty()) {
    const std::string name = unknown.front().substr(0, unknown.front().find('='));
    const bool is_option = name.size() > 1 && name.front() == '-';
    const std::vector<std::string> known = NamesOf(*command, is_option);
    const std::string kind = is_option ? "option" : known.empty() ? "argument" : "command";
    message = "unknown " + kind + " \"" + name + "\"" + qiv::Suggestion(name, {known.begin(), known.end()});
  }
  qiv::CReport report("command line");
  report.Error(0, message + "; \"" + path + " --help\" says what there is");
  return report.Print();
}

}  // namespace

int main(int argc, char** argv) {
  qiv::PrepareStandardStreams();
  CLI::App app{"Operator tool of the web application firewall", "qivctl"};
  app.allow_windows_style_options(false);  // "/a/path" is a path on every system
  app.require_subcommand(1);
  app.set_version_flag("--version", "qivctl " + std::string(qiv::kVersion));
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
  qiv::AddExemptCommand(&app, &exit_code);
  qiv::AddLogCommand(&app, &exit_code);
  qiv::AddScanCommand(&app, &exit_code);
  qiv::AddServiceCommand(&app, &exit_code);

  std::vector<std::string> arguments = qiv::CommandLineArguments(argc, argv);
  std::reverse(arguments.begin(), arguments.end());  // the order in which CLI11 takes them
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) return UsageError(app, error);
    return AfterOutput(app.exit(error));
  } catch (const std::exception& error) {
    qiv::CReport report("internal error");
    report.Error(0, error.what());
    return report.Print();
  }
  return AfterOutput(exit_code);
}
