#include "setup/event_source.h"

namespace qiv::setup {
namespace {

const std::string kKey = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + std::string(kModuleName);
const std::string kFullKey = "HKLM\\" + kKey;
constexpr char kValue[] = "EventMessageFile";
constexpr char kType[] = "REG_EXPAND_SZ";

}  // namespace

Fault CEventSource::Run(std::vector<std::string> arguments) {
  const Command command{places_.reg, std::move(arguments)};
  const ProgramResult result = machine_.Run(command);
  return result.Succeeded() ? Fault() : command.Text() + " failed: " + result.output;
}

std::string CEventSource::File() { return machine_.Registry(kKey, kValue); }

Fault CEventSource::SetFile(const std::string& file) {
  if (file == File()) return {};
  if (file.empty()) return Run({"delete", kFullKey, "/f"});
  Fault fault = Run({"add", kFullKey, "/v", kValue, "/t", kType, "/d", file, "/f"});
  // Errors, warnings and information.
  if (fault.empty()) fault = Run({"add", kFullKey, "/v", "TypesSupported", "/t", "REG_DWORD", "/d", "7", "/f"});
  return fault;
}

}  // namespace qiv::setup
