#include "setup/checks.h"

#include <algorithm>
#include <cctype>

#include "common/char_set.h"
#include "port/administration.h"
#include "port/module_path.h"
#include "setup/layout.h"

namespace qiv::setup {
namespace {

/// "%SystemDrive%\inetpub" with the variables' values.
std::string Expanded(const std::string& text) {
  std::string expanded;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text[at] == '%' ? text.find('%', at + 1) : std::string::npos;
    if (end == std::string::npos) {
      expanded += text[at++];
    } else {
      expanded += EnvironmentText(text.substr(at + 1, end - at - 1));
      at = end + 1;
    }
  }
  return expanded;
}

/// Whether `path` is `folder` or lies in it.
bool IsWithin(const std::string& path, const std::string& folder) {
  if (folder.empty()) return false;
  const std::string inner = CCharSet::LowerBytes(path) + kPathSeparator;
  return inner.starts_with(Join(CCharSet::LowerBytes(folder), ""));
}

bool IsAbsolute(const std::string& path) {
  if (kPathSeparator == '/') return path.size() > 1 && path.front() == '/';
  return path.size() > 3 && std::isalpha(static_cast<unsigned char>(path[0])) != 0 && path[1] == ':' && path[2] == '\\';
}

Fault CheckModuleFile(const std::string& content) {
  constexpr std::size_t kHeaderAt = 0x3C;
  constexpr unsigned kAmd64 = 0x8664;
  const auto number = [&content](std::size_t at, std::size_t bytes) {
    std::size_t value = 0;
    for (std::size_t i = bytes; i-- > 0;) {
      value = value << 8 | (at + i < content.size() ? static_cast<unsigned char>(content[at + i]) : 0U);
    }
    return value;
  };
  const std::size_t header = number(kHeaderAt, 4);
  if (!content.starts_with("MZ") || number(header, 4) != 0x4550) return "is no program file of Windows";
  return number(header + 4, 2) == kAmd64 ? Fault() : "is not made for 64-bit worker processes";
}

}  // namespace

std::string PlainPath(std::string path) {
  if (kPathSeparator == '\\') std::replace(path.begin(), path.end(), '/', '\\');
  while (path.size() > 1 && path.back() == kPathSeparator) path.pop_back();
  return path;
}

bool SamePath(const std::string& one, const std::string& other) {
  const auto form = [](const std::string& path) { return CCharSet::LowerBytes(PlainPath(Expanded(path))); };
  return form(one) == form(other);
}

Fault CheckServer(IMachine& machine, const ServerPlaces& places, ServerConfig* config) {
  if (!machine.IsElevated()) return "this needs an administrator's rights; start it from an elevated prompt";
  if (machine.Kind(places.appcmd) != PathKind::kFile) return "IIS is not installed: there is no " + places.appcmd;
  return ReadServerConfig(machine, places, config);
}

Fault CheckSource(IMachine& machine, const std::string& source, std::vector<std::string>* files) {
  *files = {std::string(kModuleFile),
            std::string(kToolFile),
            std::string(kSetupFile),
            "uninstall.ps1",
            "README.md",
            "INSTALL.md"};
  std::vector<std::string> rules;
  machine.List(Join(source, "rules"), &rules, nullptr);
  if (rules.empty()) files->push_back(Join("rules", "settings"));  // told below as missing
  for (const std::string& rule : rules) files->push_back(Join("rules", rule));
  for (const std::string& file : *files) {
    if (machine.Kind(Join(source, file)) != PathKind::kFile) {
      return file + " is missing in " + source + "; unpack the whole archive";
    }
  }
  files->emplace_back(kManifestFile);
  std::string module;
  Fault fault = machine.Read(Join(source, kModuleFile), &module);
  if (fault.empty()) fault = CheckModuleFile(module);
  return fault.empty() ? fault : Join(source, kModuleFile) + " " + fault;
}

Fault CheckTarget(IMachine& machine, const ServerPlaces& places, const ServerConfig& config, const std::string& source,
                  const std::string& target) {
  if (!IsAbsolute(target)) return "\"" + target + "\" is no full path of a folder on a disk of this machine";
  // Of appcmd's own signs; there is no way to write them in a path that it is given.
  if (target.find_first_of("'\"[];=") != std::string::npos) {
    return target + ": a path with one of '\"[];= cannot be registered; choose another folder";
  }
  if (IsWithin(target, places.windows)) return target + " belongs to the system; choose another folder";
  if (IsWithin(source, target) || IsWithin(target, source)) {
    return target + ": the archive is unpacked there; install into another folder";
  }
  for (const std::string& site : config.site_folders) {
    const std::string folder = PlainPath(Expanded(site));
    if (IsWithin(target, folder)) return target + " is served to visitors, as it lies in " + folder;
  }
  std::vector<std::string> files;
  if (machine.Kind(target) == PathKind::kFile) return target + " is a file";
  machine.List(target, &files, nullptr);
  const bool is_ours = std::any_of(files.begin(), files.end(), [](const std::string& file) {
    // What an uninstallation leaves is an installation's too.
    return file == kModuleFile || file == kManifestFile || file == "settings.json" ||
           file.starts_with(Join("config", "_")) || file.starts_with(Join("debug", "_")) ||
           file.starts_with(kStagingFolder) || file.starts_with(kAsideFolder);
  });
  return files.empty() || is_ours ? Fault() : target + " holds other files; choose a folder of its own";
}

}  // namespace qiv::setup
