#include "setup/layout.h"

#include <algorithm>

#include "port/module_path.h"

namespace qiv::setup {
namespace {

// Identifiers of the system's groups: https://learn.microsoft.com/windows/win32/secauthz/well-known-sids
constexpr char kSystem[] = "*S-1-5-18";
constexpr char kAdministrators[] = "*S-1-5-32-544";
constexpr char kWorkers[] = "*S-1-5-32-568";
constexpr char kOwner[] = "*S-1-3-4";

/// The folders above a file of an installation, outermost first.
std::vector<std::string> FoldersOf(const std::string& file) {
  std::vector<std::string> folders;
  for (std::size_t at = file.find(kPathSeparator); at != std::string::npos; at = file.find(kPathSeparator, at + 1)) {
    folders.push_back(file.substr(0, at));
  }
  return folders;
}

}  // namespace

std::vector<std::string> ManifestFiles(IMachine& machine, const std::string& target) {
  std::string text;
  std::vector<std::string> files;
  if (!machine.Read(Join(target, kManifestFile), &text).empty()) return files;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    std::string file = text.substr(begin, end - begin);
    if (file.ends_with('\r')) file.pop_back();
    // A line leads nowhere but into the folder.
    const bool inside = !file.empty() && file.find("..") == std::string::npos && file.find(':') == std::string::npos &&
                        file.front() != '/' && file.front() != '\\';
    if (inside) files.push_back(std::move(file));
    begin = end + 1;
  }
  return files;
}

Fault CFileExchange::MakeFolder(const std::string& path) {
  if (machine_.Kind(path) == PathKind::kDirectory || !made_.insert(path).second) return {};
  transaction_.OnRollback("delete the folder " + path, [this, path] {
    return machine_.Kind(path) == PathKind::kMissing ? Fault() : machine_.Remove(path);
  });
  const Fault fault = machine_.MakeFolder(path);
  return fault.empty() ? fault : "the folder " + path + " cannot be created: " + fault;
}

Fault CFileExchange::MakeFoldersOf(const std::string& below, const std::string& file) {
  for (const std::string& folder : FoldersOf(file)) {
    if (Fault fault = MakeFolder(Join(below, folder)); !fault.empty()) return fault;
  }
  return {};
}

Fault CFileExchange::MakeStaging() {
  const std::string staging = Join(target_, kStagingFolder);
  std::vector<std::string> in_use;
  RemoveTree(staging, &in_use);
  if (!in_use.empty()) return in_use.front() + " is left from an earlier run and cannot be deleted";
  if (Fault fault = MakeFolder(staging); !fault.empty()) return fault;
  transaction_.OnRollback("empty " + staging, [this, staging] {
    std::vector<std::string> left;
    RemoveTree(staging, &left);
    return left.empty() ? Fault() : left.front() + " is in use";
  });
  return {};
}

Fault CFileExchange::Stage(const std::string& source, const std::vector<std::string>& files,
                           const std::vector<std::string>& all) {
  const std::string staging = Join(target_, kStagingFolder);
  for (const std::string& file : files) {
    // They go with all that is in the staging folder.
    for (const std::string& folder : FoldersOf(file)) {
      const std::string path = Join(staging, folder);
      if (machine_.Kind(path) == PathKind::kDirectory || !made_.insert(path).second) continue;
      if (Fault fault = machine_.MakeFolder(path); !fault.empty()) return path + " cannot be created: " + fault;
    }
    const std::string place = Join(staging, file);
    Fault fault;
    if (file == kManifestFile) {
      std::string text;
      for (const std::string& name : all) text += name + "\r\n";
      fault = machine_.Write(place, text);
    } else {
      fault = machine_.Copy(Join(source, file), place);
    }
    if (!fault.empty()) return place + " cannot be written: " + fault;
  }
  return {};
}

Fault CFileExchange::MoveAsideOne(const std::string& file) {
  const std::string place = Join(target_, file);
  if (machine_.Kind(place) == PathKind::kMissing) return {};
  std::string aside = Join(target_, kAsideFolder);
  if (Fault fault = MakeFolder(aside); !fault.empty()) return fault;
  if (Fault fault = MakeFoldersOf(aside, file); !fault.empty()) return fault;
  aside = Join(aside, file);
  // One of an earlier update may still be loaded: no two have the same name.
  const std::string plain = aside;
  for (int number = 1; machine_.Kind(aside) != PathKind::kMissing; ++number) {
    aside = plain + "." + std::to_string(number);
  }
  transaction_.OnRollback("bring back " + place, [this, place, aside] {
    return machine_.Kind(aside) == PathKind::kMissing ? Fault() : machine_.Move(aside, place);
  });
  const Fault fault = machine_.Move(place, aside);
  return fault.empty() ? fault : place + " cannot be moved aside: " + fault;
}

Fault CFileExchange::MoveAside(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    if (Fault fault = MoveAsideOne(file); !fault.empty()) return fault;
  }
  return {};
}

Fault CFileExchange::Exchange(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    if (Fault fault = MakeFoldersOf(target_, file); !fault.empty()) return fault;
    if (Fault fault = MoveAsideOne(file); !fault.empty()) return fault;
    const std::string staged = Join(Join(target_, kStagingFolder), file);
    const std::string place = Join(target_, file);
    transaction_.OnRollback("take away " + place, [this, staged, place] {
      const bool in_place = machine_.Kind(staged) == PathKind::kMissing && machine_.Kind(place) != PathKind::kMissing;
      return in_place ? machine_.Move(place, staged) : Fault();
    });
    const Fault fault = machine_.Move(staged, place);
    if (!fault.empty()) return staged + " cannot be moved to its place: " + fault;
  }
  return {};
}

void CFileExchange::RemoveTree(const std::string& folder, std::vector<std::string>* in_use) {
  if (machine_.Kind(folder) != PathKind::kDirectory) return;
  std::vector<std::string> files;
  std::vector<std::string> folders;
  machine_.List(folder, &files, &folders);
  for (const std::string& file : files) {
    if (!machine_.Remove(Join(folder, file)).empty()) in_use->push_back(Join(folder, file));
  }
  // Inner ones first; one that was not emptied stays.
  for (auto inner = folders.rbegin(); inner != folders.rend(); ++inner) machine_.Remove(Join(folder, *inner));
  machine_.Remove(folder);
  made_.erase(folder);
}

std::vector<std::string> CFileExchange::CleanUp() {
  std::vector<std::string> in_use;
  RemoveTree(Join(target_, kStagingFolder), &in_use);
  RemoveTree(Join(target_, kAsideFolder), &in_use);
  return in_use;
}

Fault CRights::Run(std::vector<std::string> arguments) {
  arguments.emplace_back("/Q");
  const Command command{places_.icacls, std::move(arguments)};
  const ProgramResult result = machine_.Run(command);
  return result.Succeeded() ? Fault() : "rights cannot be set: " + command.Text() + " failed: " + result.output;
}

Fault CRights::GrantFolders(const std::string& target) {
  const auto all = [](const char* who) { return std::string(who) + ":(OI)(CI)F"; };
  const auto workers = [](const char* what) { return std::string(kWorkers) + ":" + what; };
  const std::string config = Join(target, "config");
  const std::string debug = Join(target, "debug");
  // RX, no inheritance: the folder itself. In debug WD on the folder means adding files; on the files AD appends, D
  // renames (rotation) and WD, writing over what is there, is missing. The owner of a file may always change its
  // rights, unless something is said about owners: worker processes own the logs that they begin.
  const std::vector<std::string> steps[] = {
      {target, "/inheritance:r", "/grant:r", all(kSystem), all(kAdministrators), workers("RX")},
      {config, "/grant:r", workers("(OI)(CI)RX")},
      {debug, "/grant:r", workers("(RX,WD)"), std::string(kOwner) + ":(OI)(IO)(RC)"},
      {debug, "/grant", workers("(OI)(IO)(RD,AD,RA,REA,RC,S,D)")},
  };
  for (const std::vector<std::string>& step : steps) {
    if (Fault fault = Run(step); !fault.empty()) return fault;
  }
  return {};
}

Fault CRights::GrantModule(const std::string& file) { return Run({file, "/grant:r", std::string(kWorkers) + ":RX"}); }

Fault CRights::GrantAppending(const std::string& file) {
  return Run({file, "/grant:r", std::string(kWorkers) + ":(RD,AD,RA,REA,RC,S)"});
}

Fault CRights::Save(const std::string& target, const std::string& file) {
  return Run({target, "/save", file, "/T", "/C"});
}

Fault CRights::Restore(const std::string& target, const std::string& file) {
  // The file names what it holds relative to the folder above.
  return Run({target.substr(0, target.find_last_of(kPathSeparator) + 1), "/restore", file, "/C"});
}

}  // namespace qiv::setup
