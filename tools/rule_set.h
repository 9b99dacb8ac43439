// A rule set: the folder rules/ as it is shipped and as it stands beside a site's settings. Its file VERSION names it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/language.h"
#include "tools/report.h"
#include "tools/settings_files.h"

namespace qiv {

/// Where the module finds out which rule set is in force, below its directory.
inline constexpr const char* kRuleSetFile = "config/_rules.db";

/// A file below some folder, by its path there ("keywords/get.txt").
struct FileText {
  std::string path;
  std::string text;
};

/// "name version" of the set in the folder. Empty, with an error in *report, when VERSION is missing or no such line.
std::string RuleSetName(const std::string& folder, CReport* report);

/// The files that an installation takes from the folder, in the order of their paths. False when one cannot be read,
/// or a part that every set has is missing; the report says which.
bool ReadRuleSet(const std::string& folder, std::vector<FileText>* files, CReport* report);

/// Writes files, with the folders they are in. kExitError after an error, which was printed.
int WriteBelow(const std::string& directory, const std::vector<FileText>& files);

/// Whether both are there and the same folder.
bool IsSameDirectory(const std::string& a, const std::string& b);

/// The files of the site's own words that settings of the shipped profiles name, and what is in them at first.
std::map<std::string, std::string> OwnFiles();

/// What the module reads, by paths below its directory: settings and libraries in their stored forms, and
/// kRuleSetFile. Empty after an error, which was printed; *exit_code becomes that of the worst message.
/// `folder.rules` is the rule set; `settings_file` names the settings in messages.
std::vector<FileText> PackInstallation(const std::string& settings_file, const std::string& settings,
                                       const SettingsFolder& folder, int* exit_code);

/// The first line of kRuleSetFile, and what the files were when they were packed: digests by path.
struct InstalledRules {
  std::string name;
  std::map<std::string, std::string, std::less<>> digests;
};
InstalledRules ReadInstalledRules(const std::string& module_directory);
std::string FileDigest(std::string_view text);

}  // namespace qiv
