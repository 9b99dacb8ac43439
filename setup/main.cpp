// qivsetup: installs, updates, repairs and uninstalls the module. See setup/README.md.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "base/version.h"
#include "command_line/command.h"
#include "host/module_host.h"
#include "port/administration.h"
#include "port/clock.h"
#include "port/console.h"
#include "port/file.h"
#include "port/module_path.h"
#include "setup/checks.h"
#include "setup/installer.h"
#include "setup/recording_machine.h"
#include "setup/system_machine.h"

namespace qiv::setup {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 2;

struct Options {
  InstallOptions install;
  UninstallOptions uninstall;
  std::string module;
  std::string windows;
  std::string transcript;
  bool rehearsal = false;
};

/// "20240501-080307", local time.
std::string Stamp() {
  const CalendarTime now = LocalTime(UnixSeconds());
  char text[32];
  std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d", now.year, now.month, now.day, now.hour, now.minute,
                now.second);
  return text;
}

std::string FolderOf(const std::string& file) { return PlainPath(file.substr(0, file.find_last_of("/\\") + 1)); }

std::string DefaultTarget() {
  // The folder of 64-bit programs, whatever the shell that started this.
  const std::string programs = EnvironmentText("ProgramW6432");
  return Join(programs.empty() ? EnvironmentText("ProgramFiles") : programs, kModuleName);
}

std::string TemporaryFolder() {
  for (const char* const name : {"TEMP", "TMPDIR"}) {
    if (std::string folder = EnvironmentText(name); !folder.empty()) return folder;
  }
  return kPathSeparator == '/' ? "/tmp" : "C:\\Windows\\Temp";
}

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

/// Runs one of the two with a transcript, or as a rehearsal that tells every step on the console.
template <typename Work>
int Perform(const Options& options, Work work) {
  const ServerPlaces places(options.windows.empty() ? EnvironmentText("SystemRoot") : PlainPath(options.windows));
  CSystemMachine system;
  bool writes = !options.rehearsal;
  const auto record = [&](const std::string& line) {
    if (options.rehearsal) Print("what if: " + line);
    if (writes) writes = AppendToFile(options.transcript, line + "\r\n");
  };
  CRecordingMachine machine(system, options.rehearsal, record);
  record(std::string("qivsetup ") + kVersion);
  if (!options.rehearsal && !writes) Print("warning: " + options.transcript + " cannot be written: no transcript");
  CInstaller installer(machine, places, [&](const std::string& line) {
    Print(line);
    if (!options.rehearsal) record("* " + line);
  });
  const bool done = work(&installer);
  if (writes) Print("transcript: " + options.transcript);
  return done ? kDone : kFailed;
}

/// Loads a module file and has it register, as a worker process would, with a server that agrees to everything.
int Try(const std::string& module) {
  // Never destroyed: a worker process does not unload a module either.
  static host::CModuleHost* const server = new host::CModuleHost;
  std::string error;
  if (server->Load(module, &error)) return kDone;
  Print(error);
  return kFailed;
}

void AddCommon(CCommand* command, Options* options, std::string* target) {
  command->AddOption("--target", target, "folder of the installation").ShowDefault().ValueIs(ValueKind::kFolder);
  command->AddOption("--transcript", &options->transcript, "file that every step is written to")
      .ShowDefault()
      .ValueIs(ValueKind::kFile);
  command->AddFlag("--what-if", &options->rehearsal, "tell what would be done, and change nothing");
  command->AddOption("--windows", &options->windows, "the system's folder").Hidden();  // for tests
}

int Run(const std::vector<std::string>& arguments) {
  Options options;
  options.install.stamp = options.uninstall.stamp = Stamp();
  options.install.source = FolderOf(ProgramFile());
  options.install.target = options.uninstall.target = DefaultTarget();
  options.transcript = Join(TemporaryFolder(), "qivsetup-" + Stamp() + ".log");

  CProgram program("qivsetup", "Installs the web application firewall into IIS", kVersion);
  program.RequireCommand();
  CCommand& install = program.AddCommand("install", "Install, update or repair; settings stay");
  AddCommon(&install, &options, &options.install.target);
  install.AddOption("--source", &options.install.source, "folder of the unpacked archive")
      .ShowDefault()
      .ValueIs(ValueKind::kFolder);
  install.AddOption("--language", &options.install.language, "of pages and logs of a first installation")
      .ShowDefault()
      .Choices({"en-US", "zh-CN"});
  install.AddOption("--profile", &options.install.profile, "settings of a first installation")
      .ShowDefault()
      .Choices({"default", "strict", "off"});
  install.AddOption("--url", &options.install.url, "what must still answer afterwards (left out: the first site)");
  install.OnRun([&] {
    options.install.source = PlainPath(options.install.source);
    options.install.target = PlainPath(options.install.target);
    return Perform(options, [&](CInstaller* installer) { return installer->Install(options.install); });
  });
  CCommand& uninstall = program.AddCommand("uninstall", "Take the module out of IIS and delete its files");
  AddCommon(&uninstall, &options, &options.uninstall.target);
  uninstall.AddFlag("--remove-settings", &options.uninstall.with_settings, "settings and logs go too");
  uninstall.OnRun([&] {
    options.uninstall.target = PlainPath(options.uninstall.target);
    return Perform(options, [&](CInstaller* installer) { return installer->Uninstall(options.uninstall); });
  });
  CCommand& trial = program.AddCommand("trial", "Load a module file and let it register, and no more");
  trial.AddOption("file", &options.module, "the module file").Required().ValueIs(ValueKind::kFile);
  trial.OnRun([&] { return Try(options.module); });
  return program.ParseAndRun(arguments);
}

}  // namespace
}  // namespace qiv::setup

int main(int argc, char** argv) {
  qiv::PrepareStandardStreams();
  try {
    return qiv::setup::Run(qiv::CommandLineArguments(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "qivsetup: %s\n", error.what());
    return qiv::setup::kFailed;
  }
}
