#include "tools/rule_set.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <utility>

#include "common/char_set.h"
#include "common/cmac.h"
#include "common/text.h"
#include "config/config_parser.h"
#include "port/directory.h"
#include "port/file.h"
#include "port/system_error.h"
#include "tools/badcode_files.h"
#include "tools/files.h"
#include "tools/library_files.h"
#include "tools/settings_document.h"
#include "tools/tree_walk.h"
#include "tools/utf8_text.h"
#include "tools/webshell_files.h"

namespace qiv {
namespace {

constexpr std::string_view kVersionFile = "VERSION";
constexpr std::size_t kLongestName = 60;

/// Compiled into the module: changing the file changes nothing.
constexpr std::string_view kCompiledIn = "webshell/builtin_signatures.txt";

bool BelongsToSet(std::string_view path) {
  if (path == kVersionFile) return true;
  if (path == kCompiledIn || path.starts_with("generate/")) return false;
  return path.ends_with(".txt") || path.ends_with(".html") || path.ends_with(".json");
}

/// Whether a packed configuration is one that the module takes, switched off on purpose or not.
bool Loads(const std::string& packed) {
  WebsiteConfig config;
  const ConfigStatus status = ParseConfigText(packed, &config);
  return status == ConfigStatus::kLoaded || status == ConfigStatus::kNotOnServers;
}

}  // namespace

std::string RuleSetName(const std::string& folder, CReport* report) {
  const std::string path = folder + "/" + std::string(kVersionFile);
  std::string text;
  CReport read(path);
  if (!ReadInput(path, &text, &read)) {
    report->Add(read);
    return {};
  }
  const std::string name(Trim(text));
  const bool good = SplitUtf8(name, " ").size() == 2 && name.size() <= kLongestName &&
                    std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c < 0x7F; });
  if (good) return name;
  report->Error(Place{path, 1}, "is no \"NAME VERSION\" of at most 60 letters");
  return {};
}

bool ReadRuleSet(const std::string& folder, std::vector<FileText>* files, CReport* report) {
  files->clear();
  CTreeWalk walk({folder}, {});
  for (CTreeWalk::Step step; walk.Next(&step);) {
    if (!step.error.empty()) {
      report->Error(Place{step.path, 0}, step.error);
      continue;
    }
    FileText file{ReplaceAll(step.path.substr(folder.size() + (folder.ends_with('/') ? 0 : 1)), "\\", "/"), ""};
    if (!BelongsToSet(file.path)) continue;
    CReport read(step.path);
    if (!ReadInput(step.path, &file.text, &read)) report->Add(read);
    files->push_back(std::move(file));
  }
  RuleSetName(folder, report);
  for (const char* const needed :
       {"keywords/get.txt", "keywords/post.txt", "keywords/header.txt", "library/sql_rules.txt", "library/sql_keys.txt",
        "library/xss_events.txt", "settings/default.json"}) {
    if (std::ranges::none_of(*files, [&](const FileText& file) { return file.path == needed; })) {
      report->Error(0, std::string("is no whole rule set: it has no ") + needed);
    }
  }
  if (!HoldsBadcodeFiles(folder + "/badcode")) report->Error(0, "is no whole rule set: badcode/ holds no rules");
  if (!HoldsWebshellFiles(folder + "/webshell")) report->Error(0, "is no whole rule set: webshell/ holds no rules");
  return !report->HasError();
}

int WriteBelow(const std::string& directory, const std::vector<FileText>& files) {
  for (const FileText& file : files) {
    const std::string path = directory + "/" + file.path;
    const std::string folder = path.substr(0, path.rfind('/'));
    if (!IsDirectory(folder) && !MakeDirectories(folder)) {
      return Fail(folder, "cannot be created: " + LastSystemError());
    }
    if (!ReplaceFile(path, file.text)) return Fail(path, CannotWrite());
  }
  return kExitOk;
}

bool IsSameDirectory(const std::string& a, const std::string& b) {
  std::vector<DirectoryEntry> entries;
  DirectoryIdentity first;
  DirectoryIdentity second;
  return ListDirectory(a, &entries, &first) && ListDirectory(b, &entries, &second) && first == second;
}

std::map<std::string, std::string> OwnFiles() {
  std::map<std::string, std::string> files;
  for (const auto& [name, place] : {std::pair{"get", "the query"}, {"post", "the body"}, {"header", "the headers"}}) {
    files[std::string("own/") + name + ".txt"] =
        std::string("# Keyword rules of this site for ") + place +
        ". Updates of rules/ leave them alone. A line is a rule, its fields divided by tabs:\n"
        "# identifier\twords (\"*\" between them: with anything between)\tshown (- for the words)\tEnglish remark\t"
        "Chinese remark\n";
  }
  return files;
}

std::vector<FileText> PackInstallation(const std::string& settings_file, const std::string& settings,
                                       const SettingsFolder& folder, int* exit_code) {
  const std::string rules = folder.rules.empty() ? folder.path + "/rules" : folder.rules;
  CReport report(settings_file);
  CReport set_report(rules);
  std::vector<FileText> rule_files;
  ReadRuleSet(rules, &rule_files, &set_report);
  const std::unique_ptr<CSettingsDocument> document = CSettingsDocument::Parse(settings, &report, &folder);
  std::string packed;
  RecordForm form;
  if (document != nullptr && !report.HasError()) {
    packed = PackSettings(*document, &report);
    if (document->TextOf("", "language") == "zh-CN") form.language = Language::kChinese;
    if (!report.HasError() && !Loads(packed)) report.Error(0, "the module would refuse these settings");
  }
  *exit_code = std::max({*exit_code, report.Print(), set_report.Print()});
  int library_exit = kExitOk;
  const auto note = [&](std::string stored) {
    *exit_code = std::max(*exit_code, library_exit);
    return stored;
  };
  if (set_report.HasError()) return {};
  const std::string sql = note(PackLibrary(rules + "/library", form, &library_exit));
  const std::string trojan = note(PackWebshellFiles(rules + "/webshell", &library_exit));
  const std::string badcode = note(PackBadcodeFiles(rules + "/badcode", form.language, &library_exit));
  if (*exit_code == kExitError) return {};
  CReport none(rules);
  std::string installed = RuleSetName(rules, &none) + "\n";
  for (const FileText& file : rule_files) AppendAll(&installed, {FileDigest(file.text), " ", file.path, "\n"});
  // The settings come last: the module reads the name of the set, and then the libraries, when they change.
  return {{kRuleSetFile, installed},
          {"config/_sql.db", sql},
          {"config/_trojan.db", trojan},
          {"config/_badcode.db", badcode},
          {"config/_config.db", packed}};
}

InstalledRules ReadInstalledRules(const std::string& module_directory) {
  InstalledRules installed;
  std::string text;
  if (!ReadInput(module_directory + "/" + kRuleSetFile, &text)) return installed;
  const std::vector<std::string_view> lines = SplitUtf8(text, "\n");
  installed.name = lines.front();
  for (const std::string_view line : lines) {
    const std::size_t blank = line.find(' ');
    if (&line != &lines.front() && blank != std::string_view::npos) {
      installed.digests.emplace(line.substr(blank + 1), line.substr(0, blank));
    }
  }
  return installed;
}

/// Tells a change by hand; whoever wants to hide one can.
std::string FileDigest(std::string_view text) {
  static const CCmac cmac("rules as shipped");
  return TagText(cmac.Of(text));
}

}  // namespace qiv
