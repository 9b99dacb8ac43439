#include "setup/system_machine.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "port/administration.h"
#include "port/file.h"
#include "port/system_error.h"
#include "setup/server_config.h"

namespace qiv::setup {
namespace {

namespace fs = std::filesystem;

/// The longest file that is read: far more than a server's configuration.
constexpr std::uint64_t kMostBytes = 64U << 20;
/// For programs of the system; appcmd takes a second or two.
constexpr std::int64_t kProgramLimit = 300'000;
constexpr int kRequestLimit = 30'000;  ///< milliseconds; an application that starts takes its time

fs::path PathOf(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

Fault FaultOf(const std::error_code& error) { return error ? error.message() : Fault(); }

}  // namespace

std::string Command::Text() const {
  std::string text;
  const auto append = [&text](const std::string& word) {
    const bool plain = !word.empty() && word.find_first_of(" \"") == std::string::npos;
    text += (text.empty() ? "" : " ") + (plain ? word : "\"" + word + "\"");
  };
  append(program);
  for (const std::string& argument : arguments) append(argument);
  return text;
}

std::string TextOf(const WebPlace& place) { return place.url + (place.host.empty() ? "" : " (" + place.host + ")"); }

bool CSystemMachine::IsElevated() { return qiv::IsElevated(); }

PathKind CSystemMachine::Kind(const std::string& path) { return PathKindOf(path); }

Fault CSystemMachine::Read(const std::string& path, std::string* content) {
  switch (ReadWholeFile(path, kMostBytes, content)) {
    case ReadFileResult::kOk:
      return {};
    case ReadFileResult::kTooLarge:
      return "is too large";
    case ReadFileResult::kUnreadable:
      break;
  }
  return "cannot be read";
}

Fault CSystemMachine::List(const std::string& folder, std::vector<std::string>* files,
                           std::vector<std::string>* folders) {
  std::vector<std::string> inside{""};  // folders still to be looked into
  std::vector<DirectoryEntry> entries;
  DirectoryIdentity ignored;
  Fault fault;
  while (!inside.empty()) {
    const std::string below = std::move(inside.back());
    inside.pop_back();
    if (!ListDirectory(Join(folder, below), &entries, &ignored)) fault = Join(folder, below) + " cannot be listed";
    for (const DirectoryEntry& entry : entries) {
      const bool is_folder = entry.kind == PathKind::kDirectory;
      std::vector<std::string>* const kind = is_folder ? folders : files;
      if (kind != nullptr) kind->push_back(Join(below, entry.name));
      if (is_folder) inside.push_back(Join(below, entry.name));
    }
  }
  std::sort(files->begin(), files->end());
  if (folders != nullptr) std::sort(folders->begin(), folders->end());
  return fault;
}

ProgramResult CSystemMachine::Ask(const Command& command) { return Run(command); }

std::string CSystemMachine::Registry(const std::string& key, const std::string& value) {
  return RegistryText(key, value);
}

WebAnswer CSystemMachine::Request(const WebPlace& place) { return FetchStatus(place, kRequestLimit); }

void CSystemMachine::Wait(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

ProgramResult CSystemMachine::Run(const Command& command) {
  return RunProgram(command.program, command.arguments, kProgramLimit);
}

Fault CSystemMachine::MakeFolder(const std::string& path) { return MakeDirectory(path) ? Fault() : LastSystemError(); }

Fault CSystemMachine::Copy(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::copy_file(PathOf(from), PathOf(to), fs::copy_options::overwrite_existing, error);
  return FaultOf(error);
}

Fault CSystemMachine::Move(const std::string& from, const std::string& to) {
  if (Kind(to) != PathKind::kMissing) return to + " is there already";
  return RenameFile(from, to) ? Fault() : LastSystemError();
}

Fault CSystemMachine::Remove(const std::string& path) {
  std::error_code error;
  fs::remove(PathOf(path), error);
  return FaultOf(error);
}

Fault CSystemMachine::Write(const std::string& path, const std::string& content) {
  return ReplaceFile(path, content) ? Fault() : LastSystemError();
}

Fault CSystemMachine::RemoveAtRestart(const std::string& path) {
  return qiv::RemoveAtRestart(path) ? Fault() : LastSystemError();
}

}  // namespace qiv::setup
