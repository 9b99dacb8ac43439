#include "setup/event_source.h"

namespace qiv::setup {
namespace {

const std::string kKey =
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + std::string(kModuleName);
constexpr char kValue[] = "EventMessageFile";
constexpr char kType[] = "REG_EXPAND_SZ";

}  // namespace

Fault CEventSource::Run(std::vector<std::string> arguments) {
  const Command command{places_.reg, std::move(arguments)};
  const ProgramResult result = machine_.Run(command);
  return result.Succeeded() ? Fault() : command.Text() + " failed: " + result.output;
}

std::string CEventSource::File() {
  const ProgramResult result = machine_.Ask({places_.reg, {"query", kKey, "/v", kValue}});
  // "    EventMessageFile    REG_EXPAND_SZ    C:\\..."
  const std::size_t type = result.output.find(kType);
  if (!result.Succeeded() || type == std::string::npos) return {};
  const std::size_t begin = result.output.find_first_not_of(" \t", type + sizeof kType - 1);
  if (begin == std::string::npos) return {};
  return result.output.substr(begin, result.output.find_first_of("\r\n", begin) - begin);
}

Fault CEventSource::SetFile(const std::string& file) {
  if (file == File()) return {};
  if (file.empty()) return Run({"delete", kKey, "/f"});
  Fault fault = Run({"add", kKey, "/v", kValue, "/t", kType, "/d", file, "/f"});
  // Errors, warnings and information.
  if (fault.empty()) fault = Run({"add", kKey, "/v", "TypesSupported", "/t", "REG_DWORD", "/d", "7", "/f"});
  return fault;
}

}  // namespace qiv::setup
