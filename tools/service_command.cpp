// qivctl service.
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "port/clock.h"
#include "tools/commands.h"
#include "tools/exchange_service.h"
#include "tools/files.h"
#include "tools/report.h"

namespace qiv {
namespace {

/// A client that was locked is kept out after at most this and the two seconds between two looks of the module.
constexpr std::chrono::milliseconds kPoll{200};

struct ServiceCommandOptions {
  std::string directory;
  std::uint64_t rotate_mib = 16;
  bool once = false;
  bool quiet = false;
};

void PrintTotals(const ServiceTotals& totals) {
  WriteOutput(std::to_string(totals.lines) + " lines: " + std::to_string(totals.locks) + " locks, " +
              std::to_string(totals.messages) + " messages, " + std::to_string(totals.malformed) + " malformed\n");
}

int Serve(const ServiceCommandOptions& given) {
  ServiceOptions options;
  options.module_directory = ResolveModuleDirectory(given.directory);
  if (options.module_directory.empty()) {
    return Fail(given.directory, "is no module directory: it holds no config folder");
  }
  options.rotate_bytes = given.rotate_mib << 20;
  if (!given.quiet) options.print = [](const std::string& line) { WriteOutput(line + "\n"); };
  CExchangeService service(options);
  std::string error;
  if (!service.Start(&error)) return Fail(given.directory, error);
  if (!given.quiet) WriteOutput("serving " + options.module_directory + "\n");
  while (true) {
    if (service.Step(UnixSeconds())) continue;
    if (given.once) break;
    std::this_thread::sleep_for(kPoll);
  }
  if (!service.Finish()) return Fail(given.directory, "the lists cannot be written; what was taken is kept for them");
  if (!given.quiet) PrintTotals(service.Totals());
  return kExitOk;
}

}  // namespace

void AddServiceCommand(CCommand* program) {
  const auto options = std::make_shared<ServiceCommandOptions>();
  CCommand& service =
      program->AddCommand("service", "Stand in for the firewall service: take the module's lines, keep the lists");
  service.AddOption("--config", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  service.AddOption("--rotate", &options->rotate_mib, "move _out.log away beyond this many MiB")
      .ShowDefault()
      .Range(1, 4096);
  service.AddFlag("--once", &options->once, "end when everything has been taken; print the sums");
  service.AddFlag("--quiet", &options->quiet, "print nothing");
  service.OnRun([options] { return Serve(*options); });
}

}  // namespace qiv
