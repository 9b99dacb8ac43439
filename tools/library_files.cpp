#include "tools/library_files.h"

#include <algorithm>
#include <utility>

#include "common/aes.h"
#include "common/char_set.h"
#include "common/text.h"
#include "engines/injection/rule_text.h"
#include "tools/files.h"
#include "tools/plain_library.h"

namespace qiv {
namespace {

/// A separator that no word holds: "*" if it can be.
char ChooseSeparator(const std::vector<LibraryList>& lists) {
  const auto is_free = [&lists](char separator) {
    for (const LibraryList& list : lists) {
      for (const RuleLine& rule : list.rules) {
        for (const std::string& word : rule.words) {
          if (word.find(separator) != std::string::npos) return false;
        }
      }
    }
    return true;
  };
  constexpr std::string_view kCandidates = "*,;^~ ";
  const auto found = std::find_if(kCandidates.begin(), kCandidates.end(), is_free);
  return found == kCandidates.end() ? '*' : *found;  // a rule that cannot be carried is reported as such
}

std::string SeparatorSetting(char separator) { return separator == ' ' ? "space" : std::string(1, separator); }

std::string Utf8(const std::string& local) { return CCharSet::LocalToUtf8(local); }

}  // namespace

std::string PackLibrary(const std::string& directory, RecordForm form, int* exit_code) {
  std::vector<LibraryList> lists;
  std::vector<CReport> reports;
  for (const std::string_view name : kLibraryLists) {
    const std::string path = PlainLibraryPath(directory, name);
    std::string text;
    if (!IsFile(path)) continue;
    reports.emplace_back(path);
    ReadInput(path, &text, &reports.back());
    lists.push_back({name, ReadRuleFile(text, &reports.back())});
  }
  if (lists.empty()) {
    reports.emplace_back(directory);
    reports.back().Error(0, "holds no sql_rules.txt, sql_keys.txt or xss_events.txt");
  }
  form.separator = form.user_defined ? '*' : ChooseSeparator(lists);
  std::string stored = "<separator>" + SeparatorSetting(form.separator) + "</separator>\n";
  for (std::size_t i = 0; i < lists.size(); ++i) {
    const std::string name(lists[i].name);
    stored += "<" + name + ">";
    for (const RuleLine& rule : lists[i].rules) stored += LibraryRecord(rule, form, &reports[i]) + "{#}\n";
    stored += "</" + name + ">\n";
  }
  *exit_code = kExitOk;
  for (const CReport& report : reports) *exit_code = std::max(*exit_code, report.Print());
  return *exit_code == kExitOk ? encrypt_text("", stored) + "\n" : std::string();
}

std::string DecipheredLibrary(std::string_view file_text) {
  return CCharSet::ToLocal(decrypt_text("", Trim(file_text)));
}

std::vector<LibraryList> UnpackLibrary(std::string_view text, bool user_defined) {
  const char separator = RuleWordSeparator(TaggedPart(text, "separator"));
  std::vector<LibraryList> lists;
  for (const std::string_view name : kLibraryLists) {
    if (!HasTag(text, name)) continue;
    LibraryList list{name, {}};
    for (const InjectionRule& stored : ParseRules(TaggedPart(text, name), separator, user_defined)) {
      RuleLine rule;
      rule.identifier = Utf8(stored.identifier);
      std::string joined;
      for (const std::string& word : stored.words) {
        if (!joined.empty()) joined += separator;
        joined += word;
        rule.words.push_back(Utf8(word));
      }
      if (stored.shown != joined) rule.shown = Utf8(stored.shown);
      rule.english = rule.chinese = Utf8(stored.remark);
      list.rules.push_back(std::move(rule));
    }
    lists.push_back(std::move(list));
  }
  return lists;
}

}  // namespace qiv
