#include "tools/installation.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "common/ip_address.h"
#include "common/text.h"
#include "port/file.h"
#include "port/system_error.h"
#include "tools/badcode_files.h"
#include "tools/files.h"
#include "tools/library_files.h"
#include "tools/rule_file.h"
#include "tools/settings_document.h"
#include "tools/webshell_files.h"

namespace qiv {
namespace {

/// The records of one keyword file.
std::unique_ptr<JsonArray> KeywordRecords(const std::string& path, Language language, int* exit_code) {
  auto records = std::make_unique<JsonArray>();
  CReport report(path);
  std::string text;
  ReadInput(path, &text, &report);
  RecordForm form;
  form.language = language;
  form.user_defined = true;
  for (const RuleLine& rule : ReadRuleFile(text, &report)) {
    records->Append(std::make_unique<JsonString>(LibraryRecord(rule, form, &report)));
  }
  *exit_code = std::max(*exit_code, report.Print());
  return records;
}

const char* LanguageName(Language language) { return language == Language::kChinese ? "zh-CN" : "en-US"; }

/// A copy of a profile's response section in which "@pages/NAME" is replaced by that page in the site's language.
std::unique_ptr<JsonObject> ResponseWithPage(const JsonObject& given, const std::string& rules, Language language,
                                             int* exit_code) {
  constexpr std::string_view kPages = "@pages/";
  auto response = std::make_unique<JsonObject>();
  for (const JsonObject::Member* const member : given.Members()) {
    const std::string content = member->first == "ret_content" ? given.GetText("ret_content") : std::string();
    if (!content.starts_with(kPages)) {
      response->Set(member->first, CloneJson(*member->second));
      continue;
    }
    const std::string path = rules + "/pages/" + content.substr(kPages.size()) + "." + LanguageName(language) + ".html";
    std::string page;
    if (!ReadInput(path, &page)) *exit_code = Fail(path, CannotRead(path));
    response->SetText(member->first, page);
  }
  return response;
}

/// The IP sets of a profile; "@spiders" in one stands for the data in rules/spiders: of an address set the ranges of
/// all search engines there, of a key list the words that their user agents hold.
std::unique_ptr<JsonObject> SetsWithSpiders(const JsonObject& given, const std::string& rules, int* exit_code) {
  std::string ranges;
  std::string keys;
  for (const char* const name : {"bing", "duckassistbot", "duckduckbot", "googlebot", "openai", "perplexity"}) {
    const std::string path = rules + "/spiders/" + name + ".txt";
    std::string text;
    if (!ReadInput(path, &text)) *exit_code = Fail(path, CannotRead(path));
    for (const std::string_view written : Split(text, '\n')) {
      const std::string_view line = Trim(written);
      if (line.empty() || line.front() == '#') continue;
      const bool is_key = line.starts_with("key ");
      if (!is_key && !ParseIpRange(line)) *exit_code = Fail(path, "is no address range: " + std::string(line));
      AppendAll(is_key ? &keys : &ranges, {is_key ? line.substr(4) : line, is_key ? "|" : " "});
    }
  }
  auto sets = std::make_unique<JsonObject>();
  for (const JsonObject::Member* const member : given.Members()) {
    const bool is_keys = member->first.ends_with("_keys");
    if (given.GetText(member->first) == "@spiders") {
      sets->SetText(member->first, std::string(TrimBytes(is_keys ? keys : ranges, "| ")));
    } else {
      sets->Set(member->first, CloneJson(*member->second));
    }
  }
  return sets;
}

/// The profile with the language, the page and the keyword lists filled in; empty after an error.
std::string MakeSettings(const std::string& rules, const InitOptions& options, int* exit_code) {
  const std::string path = rules + "/settings/" + options.profile + ".json";
  CReport report(path);
  std::string text;
  ReadInput(path, &text, &report);
  const std::unique_ptr<CSettingsDocument> profile =
      report.HasError() ? nullptr : CSettingsDocument::Parse(std::move(text), &report);
  *exit_code = std::max(*exit_code, report.Print());
  if (profile == nullptr) return {};

  auto sql = std::make_unique<JsonObject>();
  if (const IJsonValue* const given = profile->Root().Find("website_sql"); given != nullptr && given->AsObject()) {
    for (const JsonObject::Member* const member : given->AsObject()->Members()) {
      sql->Set(member->first, CloneJson(*member->second));
    }
  }
  for (const std::string place : {"get", "post", "header"}) {
    sql->Set(place + "_keys", KeywordRecords(rules + "/keywords/" + place + ".txt", options.language, exit_code));
  }
  JsonObject settings;
  settings.SetText("language", LanguageName(options.language));
  for (const JsonObject::Member* const member : profile->Root().Members()) {
    if (member->first == "language") continue;
    const JsonObject* const response = member->first == "website_response" ? member->second->AsObject() : nullptr;
    if (member->first == "website_sql") {
      settings.Set(member->first, std::move(sql));
    } else if (member->first == "ip_sets" && member->second->AsObject() != nullptr) {
      settings.Set(member->first, SetsWithSpiders(*member->second->AsObject(), rules, exit_code));
    } else if (response != nullptr) {
      settings.Set(member->first, ResponseWithPage(*response, rules, options.language, exit_code));
    } else {
      settings.Set(member->first, CloneJson(*member->second));
    }
  }
  if (sql != nullptr) settings.Set("website_sql", std::move(sql));
  return WriteJson(settings, 2) + "\n";
}

struct NewFile {
  std::string path;
  std::string content;
};

int WriteFiles(const InitOptions& options, const std::vector<NewFile>& files) {
  for (const NewFile& file : files) {
    if (!options.force && IsFile(file.path)) return Fail(file.path, "is there already; --force overwrites it");
  }
  for (const char* const folder : {"/config", "/debug"}) {
    if (!MakeDirectories(options.directory + folder))
      return Fail(options.directory + folder, "cannot be created: " + LastSystemError());
  }
  for (const NewFile& file : files) {
    if (!ReplaceFile(file.path, file.content)) return Fail(file.path, CannotWrite());
  }
  return kExitOk;
}

}  // namespace

int InitInstallation(const InitOptions& options) {
  const std::string rules = FindRulesDirectory(options.rules);
  if (rules.empty()) {
    return Fail(options.rules.empty() ? "rules" : options.rules,
                "the rule data was not found; --rules says where it is (it holds settings/default.json)");
  }
  int exit_code = kExitOk;
  const std::string settings_text = MakeSettings(rules, options, &exit_code);
  RecordForm form;
  form.language = options.language;
  int library_exit = kExitOk;
  const std::string library = PackLibrary(rules + "/library", form, &library_exit);
  exit_code = std::max(exit_code, library_exit);
  const std::string webshells = PackWebshellFiles(rules + "/webshell", &library_exit);
  exit_code = std::max(exit_code, library_exit);
  const std::string badcode = PackBadcodeFiles(rules + "/badcode", options.language, &library_exit);
  exit_code = std::max(exit_code, library_exit);
  if (exit_code == kExitError) return exit_code;

  CReport report(rules + "/settings/" + options.profile + ".json");
  const std::unique_ptr<CSettingsDocument> settings = CSettingsDocument::Parse(settings_text, &report);
  const std::string packed = settings == nullptr ? std::string() : PackSettings(*settings, &report);
  exit_code = std::max(exit_code, report.Print());
  if (exit_code == kExitError) return exit_code;
  return std::max(exit_code, WriteFiles(options, {{options.directory + "/settings.json", settings_text},
                                                  {options.directory + "/config/_config.db", packed},
                                                  {options.directory + "/config/_sql.db", library},
                                                  {options.directory + "/config/_trojan.db", webshells},
                                                  {options.directory + "/config/_badcode.db", badcode}}));
}

}  // namespace qiv
