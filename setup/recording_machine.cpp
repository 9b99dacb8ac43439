#include "setup/recording_machine.h"

#include <algorithm>

namespace qiv::setup {

template <typename Change>
Fault CRecordingMachine::Make(const std::string& what, Change change) {
  line_(what);
  if (rehearsal_) return {};
  Fault fault = change();
  if (!fault.empty()) line_("  failed: " + fault);
  return fault;
}

ProgramResult CRecordingMachine::Told(ProgramResult result) const {
  if (!result.Succeeded()) line_("  exit code " + std::to_string(result.exit_code));
  for (std::size_t begin = 0; begin < result.output.size();) {
    const std::size_t end = std::min(result.output.find_first_of("\r\n", begin), result.output.size());
    if (end != begin) line_("  | " + result.output.substr(begin, end - begin));
    begin = end + 1;
  }
  return result;
}

ProgramResult CRecordingMachine::Ask(const Command& command) {
  if (!rehearsal_) line_("ask " + command.Text());
  ProgramResult result = machine_.Ask(command);
  return rehearsal_ ? result : Told(std::move(result));
}

WebAnswer CRecordingMachine::Request(const WebPlace& place) {
  WebAnswer answer = machine_.Request(place);
  line_("request " + TextOf(place) + ": " + (answer.status != 0 ? std::to_string(answer.status) : answer.failure));
  return answer;
}

ProgramResult CRecordingMachine::Run(const Command& command) {
  line_("run " + command.Text());
  if (rehearsal_) return {true, true, 0, ""};
  return Told(machine_.Run(command));
}

Fault CRecordingMachine::MakeFolder(const std::string& path) {
  return Make("create folder " + path, [&] { return machine_.MakeFolder(path); });
}

Fault CRecordingMachine::Copy(const std::string& from, const std::string& to) {
  return Make("copy " + from + " to " + to, [&] { return machine_.Copy(from, to); });
}

Fault CRecordingMachine::Move(const std::string& from, const std::string& to) {
  return Make("move " + from + " to " + to, [&] { return machine_.Move(from, to); });
}

Fault CRecordingMachine::Remove(const std::string& path) {
  return Make("delete " + path, [&] { return machine_.Remove(path); });
}

Fault CRecordingMachine::Write(const std::string& path, const std::string& content) {
  return Make("write " + path + " (" + std::to_string(content.size()) + " bytes)",
              [&] { return machine_.Write(path, content); });
}

Fault CRecordingMachine::RemoveAtRestart(const std::string& path) {
  return Make("delete at the next start of the system " + path, [&] { return machine_.RemoveAtRestart(path); });
}

}  // namespace qiv::setup
