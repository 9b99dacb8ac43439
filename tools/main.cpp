// qivctl: settings, libraries and their stored forms. See tools/README.md.
#include <exception>
#include <iostream>
#include <string>

#include "base/version.h"
#include "command_line/command.h"
#include "port/console.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/report.h"

namespace {

/// The exit code of a command, once it is known whether its output arrived.
int AfterOutput(int exit_code) {
  if (std::cout.flush() && qiv::OutputIsGood()) return exit_code;
  qiv::CReport report("standard output");
  report.Error(0, qiv::OutputError());
  return report.Print();
}

}  // namespace

int main(int argc, char** argv) {
  qiv::PrepareStandardStreams();
  qiv::CProgram program("qivctl", "Operator tool of the web application firewall", qiv::kVersion);
  program.RequireCommand();
  qiv::AddInitCommand(&program);
  qiv::AddSettingsCommands(&program);
  qiv::AddLibraryCommand(&program);
  qiv::AddCipherCommands(&program);
  qiv::AddCheckCommand(&program);
  qiv::AddReferenceCommand(&program);
  qiv::AddAreaCommand(&program);
  qiv::AddListCommands(&program);
  qiv::AddEventCommand(&program);
  qiv::AddExemptCommand(&program);
  qiv::AddLogCommand(&program);
  qiv::AddReportCommand(&program);
  qiv::AddRulesCommand(&program);
  qiv::AddScanCommand(&program);
  qiv::AddServiceCommand(&program);
  qiv::AddStatusCommand(&program);
  qiv::AddTopCommand(&program);
  qiv::AddDocumentationCommands(&program);

  try {
    const qiv::ParsedCommandLine parsed = program.Parse(qiv::CommandLineArguments(argc, argv));
    if (parsed.kind == qiv::ParsedCommandLine::Kind::kWrong) return qiv::Fail("command line", parsed.text);
    if (parsed.kind == qiv::ParsedCommandLine::Kind::kRun) return AfterOutput(parsed.command->Run());
    qiv::WriteOutput(parsed.text);
    return AfterOutput(qiv::kExitOk);
  } catch (const std::exception& error) {
    return qiv::Fail("internal error", error.what());
  }
}
