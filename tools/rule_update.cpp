#include "tools/rule_update.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "common/text.h"
#include "config/exemptions.h"
#include "config/qiv_config.h"
#include "port/directory.h"
#include "port/file.h"
#include "port/system_error.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/rule_changes.h"
#include "tools/rule_set.h"

namespace qiv {
namespace {

/// Where things are in an installation.
struct Places {
  std::string directory;  // with its trailing separator
  std::string settings;
  std::string rules;
  std::string old_rules;
  std::string new_rules;  // while they are being written
};

/// False after an error, which was printed.
bool FindPlaces(const std::string& given, Places* places) {
  places->directory = ResolveModuleDirectory(given);
  if (places->directory.empty()) {
    Fail(given, "is no module directory: it holds no config folder");
    return false;
  }
  places->settings = places->directory + "settings.json";
  places->rules = places->directory + "rules";
  places->old_rules = places->directory + "rules.old";
  places->new_rules = places->directory + "rules.new";
  return true;
}

std::filesystem::path SystemPath(const std::string& path) { return std::u8string(path.begin(), path.end()); }

bool RemoveFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::remove_all(SystemPath(path), error);
  return !error;
}

/// The rule set of a folder that was given: it, or rules/ in an unpacked archive. Empty after an error.
std::string FindSource(const std::string& given) {
  if (IsFile(given)) {
    Fail(given, "is a file: unpack the archive, and name its folder");
    return {};
  }
  if (!IsFile(given + "/VERSION") && IsFile(given + "/rules/VERSION")) return given + "/rules";
  return given;
}

/// Files of the installed set that are not any more what they were when it came.
std::vector<std::string> EditedFiles(const std::vector<FileText>& files, const InstalledRules& installed) {
  std::vector<std::string> edited;
  for (const FileText& file : files) {
    const auto digest = installed.digests.find(file.path);
    const bool same = digest != installed.digests.end() && digest->second == FileDigest(file.text);
    if (!same && !installed.digests.empty()) edited.push_back(file.path);
  }
  return edited;
}

/// Exemptions of rules that there are no more: they do nothing from then on.
std::string IdleExemptions(const Places& places, const std::vector<FileText>& before,
                           const std::vector<FileText>& after) {
  const std::string path = ConfigPaths(places.directory).exemptions;
  std::string file;
  std::string text;
  std::vector<Exemption> exemptions;
  std::size_t bad_line = 0;
  if (!IsFile(path) || !ReadInput(path, &file) || !CExemptions::Read(file, &exemptions, &bad_line)) return text;
  for (const Exemption& exemption : exemptions) {
    if (!HasRule(before, exemption.rule) || HasRule(after, exemption.rule)) continue;
    AppendAll(&text,
              {"  exempted rule ", PrintableUtf8(exemption.rule), " is gone: its exemption does nothing any more\n"});
  }
  return text;
}

/// Writes files; after a failure those that were there are back.
int WriteOrRestore(const Places& places, const std::vector<FileText>& files) {
  std::vector<FileText> before;
  for (const FileText& file : files) {
    const std::string path = places.directory + file.path;
    FileText old{file.path, ""};
    if (IsFile(path) && !ReadInput(path, &old.text)) return Fail(path, CannotRead(path));
    if (IsFile(path)) before.push_back(std::move(old));
  }
  const int exit_code = WriteBelow(places.directory, files);
  if (exit_code != kExitOk) {
    for (const FileText& file : files) {
      const auto old = std::ranges::find(before, file.path, &FileText::path);
      if (old == before.end()) {
        RemoveFile(places.directory + file.path);
      } else {
        ReplaceFile(places.directory + file.path, old->text);
      }
    }
  }
  return exit_code;
}

/// Puts a folder in the place of DIR/rules, which becomes `away`. False, with nothing moved and a message, on failure.
bool Exchange(const Places& places, const std::string& coming, const std::string& away) {
  if (IsDirectory(places.rules) && !RenameFile(places.rules, away)) {
    Fail(places.rules, "cannot be moved to " + away + ": " + LastSystemError());
    return false;
  }
  if (RenameFile(coming, places.rules)) return true;
  Fail(coming, "cannot be moved to " + places.rules + ": " + LastSystemError());
  RenameFile(away, places.rules);
  return false;
}

/// Packs with the rules of a folder; empty after an error.
std::vector<FileText> Packed(const Places& places, const std::string& rules, int* exit_code) {
  std::string settings;
  if (!ReadInput(places.settings, &settings)) {
    *exit_code = Fail(places.settings, CannotRead(places.settings));
    return {};
  }
  std::vector<FileText> packed =
      PackInstallation(places.settings, settings, SettingsFolder{places.directory, rules}, exit_code);
  if (packed.empty() && *exit_code != kExitError) *exit_code = kExitError;
  if (*exit_code == kExitError) return {};
  return packed;
}

/// What the installation has now, and what it would have; false after an error.
bool ReadBoth(const Places& places, const std::string& source, std::vector<FileText>* before,
              std::vector<FileText>* after) {
  CReport report(source);
  if (!ReadRuleSet(source, after, &report)) {
    report.Print();
    return false;
  }
  // What is there now need not be whole.
  CReport ignored(places.rules);
  if (IsDirectory(places.rules)) ReadRuleSet(places.rules, before, &ignored);
  return true;
}

std::string NameOf(const std::string& folder) {
  CReport ignored(folder);
  return IsFile(folder + "/VERSION") ? RuleSetName(folder, &ignored) : std::string();
}

/// Tells what would change; the notes about edited files go to stderr.
void Tell(const Places& places, const std::string& source, const std::vector<FileText>& before,
          const std::vector<FileText>& after, const std::string& away) {
  const std::string old_name = NameOf(places.rules);
  const std::string changes = RuleChanges(before, after);
  WriteOutput((old_name.empty() ? "no rule set" : old_name) + " -> " + NameOf(source) + "\n" +
              (changes.empty() ? "  no rule is different\n" : changes) + IdleExemptions(places, before, after));
  CReport notes(places.rules);
  for (const std::string& path : EditedFiles(before, ReadInstalledRules(places.directory))) {
    notes.Note(Place{places.rules + "/" + path, 0},
               "was edited here; it goes to " + away + ". What is the site's own is safe in own/");
  }
  notes.Print();
}

}  // namespace

int UpdateRules(const std::string& directory, const std::string& given, bool only_show) {
  Places places;
  if (!FindPlaces(directory, &places)) return kExitError;
  const std::string source = FindSource(given);
  std::vector<FileText> before;
  std::vector<FileText> after;
  if (source.empty() || !ReadBoth(places, source, &before, &after)) return kExitError;
  const bool in_place = IsSameDirectory(source, places.rules);
  if (!in_place) Tell(places, source, before, after, places.old_rules);
  int exit_code = kExitOk;
  const std::vector<FileText> packed = Packed(places, source, &exit_code);
  if (exit_code == kExitError) {
    WriteOutput("nothing was changed\n");
    return exit_code;
  }
  if (only_show) return exit_code;
  if (in_place) return std::max(exit_code, WriteOrRestore(places, packed));
  const auto refuse = [](int code) {
    WriteOutput("nothing was changed\n");
    return code;
  };
  if (!RemoveFolder(places.new_rules)) return refuse(Fail(places.new_rules, "cannot be removed"));
  if (WriteBelow(places.new_rules, after) != kExitOk) return refuse(kExitError);
  if (!RemoveFolder(places.old_rules)) return refuse(Fail(places.old_rules, "cannot be removed"));
  if (!Exchange(places, places.new_rules, places.old_rules)) return refuse(kExitError);
  if (WriteOrRestore(places, packed) != kExitOk) {
    RenameFile(places.rules, places.new_rules);
    RenameFile(places.old_rules, places.rules);
    return refuse(kExitError);
  }
  WriteOutput("in force; \"qivctl rules undo\" takes it back\n");
  return exit_code;
}

int UndoRules(const std::string& directory) {
  Places places;
  if (!FindPlaces(directory, &places)) return kExitError;
  if (!IsDirectory(places.old_rules)) return Fail(places.old_rules, "is not there: no rules were updated here");
  std::vector<FileText> before;
  std::vector<FileText> after;
  if (!ReadBoth(places, places.old_rules, &before, &after)) return kExitError;
  Tell(places, places.old_rules, before, after, places.old_rules);
  int exit_code = kExitOk;
  const std::vector<FileText> packed = Packed(places, places.old_rules, &exit_code);
  const auto refuse = [] {
    WriteOutput("nothing was changed\n");
    return kExitError;
  };
  if (exit_code == kExitError || !RemoveFolder(places.new_rules)) return refuse();
  if (!Exchange(places, places.old_rules, places.new_rules)) return refuse();
  if (WriteOrRestore(places, packed) != kExitOk) {
    RenameFile(places.rules, places.old_rules);
    RenameFile(places.new_rules, places.rules);
    return refuse();
  }
  if (IsDirectory(places.new_rules)) RenameFile(places.new_rules, places.old_rules);
  WriteOutput("in force; \"qivctl rules undo\" takes it back\n");
  return exit_code;
}

int ShowRules(const std::string& directory) {
  Places places;
  if (!FindPlaces(directory, &places)) return kExitError;
  const InstalledRules installed = ReadInstalledRules(places.directory);
  const std::string name = NameOf(places.rules);
  const std::string old_name = NameOf(places.old_rules);
  std::string text = "in force   " + (installed.name.empty() ? "unknown" : PrintableUtf8(installed.name)) + "\n";
  std::vector<FileText> files;
  CReport ignored(places.rules);
  if (IsDirectory(places.rules)) ReadRuleSet(places.rules, &files, &ignored);
  std::size_t rules = 0;
  for (const FileText& file : files) rules += CountRules(file);
  AppendAll(&text, {"rules/     ", name.empty() ? "no rule set" : name, ", ", std::to_string(rules), " rules\n"});
  const std::vector<std::string> edited = EditedFiles(files, installed);
  for (const std::string& path : edited) AppendAll(&text, {"edited     rules/", PrintableUtf8(path), "\n"});
  if (name != installed.name || !edited.empty()) {
    AppendAll(&text, {"           to bring rules/ into force: qivctl rules update ", PrintableUtf8(places.rules),
                      " --config ", PrintableUtf8(directory), "\n"});
  }
  if (!old_name.empty()) AppendAll(&text, {"kept       ", old_name, ", for \"qivctl rules undo\"\n"});
  WriteOutput(text);
  return kExitOk;
}

}  // namespace qiv
