#include "tools/installation.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "common/json.h"
#include "port/directory.h"
#include "port/file.h"
#include "port/system_error.h"
#include "tools/files.h"
#include "tools/rule_set.h"
#include "tools/settings_edit.h"

namespace qiv {
namespace {

/// The profile with the language in it; empty after an error.
std::string MakeSettings(const std::string& profile, Language language, int* exit_code) {
  CReport report(profile);
  std::string text;
  ReadInput(profile, &text, &report);
  const std::unique_ptr<CSettingsEdit> edit =
      report.HasError() ? nullptr : CSettingsEdit::Parse(std::move(text), &report);
  *exit_code = std::max(*exit_code, report.Print());
  if (edit == nullptr) return {};
  edit->Set("", "language", JsonString(language == Language::kChinese ? "zh-CN" : "en-US"));
  return edit->Text();
}

int WriteFiles(const InitOptions& options, const std::vector<FileText>& files) {
  for (const FileText& file : files) {
    const std::string path = options.directory + "/" + file.path;
    if (!options.force && IsFile(path)) return Fail(path, "is there already; --force overwrites it");
  }
  for (const char* const folder : {"/config", "/debug"}) {
    if (!MakeDirectories(options.directory + folder))
      return Fail(options.directory + folder, "cannot be created: " + LastSystemError());
  }
  return WriteBelow(options.directory, files);
}

}  // namespace

int InitInstallation(const InitOptions& options) {
  const std::string rules = FindRulesDirectory(options.rules);
  if (rules.empty()) {
    return Fail(options.rules.empty() ? "rules" : options.rules,
                "the rule data was not found; --rules says where it is (it holds settings/default.json)");
  }
  int exit_code = kExitOk;
  const std::string profile = rules + "/settings/" + options.profile + ".json";
  const std::string settings = MakeSettings(profile, options.language, &exit_code);
  SettingsFolder folder{options.directory, rules};
  std::vector<FileText> files{{"settings.json", settings}};
  // What is the site's own stays, whatever is overwritten.
  for (const auto& [path, text] : OwnFiles()) {
    if (IsFile(options.directory + "/" + path)) continue;
    folder.pending[path] = text;
    files.push_back({path, text});
  }
  if (exit_code == kExitError) return exit_code;
  for (FileText& file : PackInstallation(profile, settings, folder, &exit_code)) files.push_back(std::move(file));
  if (exit_code == kExitError) return exit_code;
  if (!IsSameDirectory(rules, options.directory + "/rules")) {
    CReport report(rules);
    std::vector<FileText> shipped;
    if (!ReadRuleSet(rules, &shipped, &report)) return report.Print();
    for (FileText& file : shipped) files.push_back({"rules/" + file.path, std::move(file.text)});
  }
  return std::max(exit_code, WriteFiles(options, files));
}

}  // namespace qiv
