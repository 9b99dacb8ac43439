#include "tools/badcode_files.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

#include "base/hex.h"
#include "common/aes.h"
#include "common/char_set.h"
#include "common/text.h"
#include "engines/attacks/attack_library.h"
#include "tools/files.h"
#include "tools/report.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

constexpr std::string_view kLists = "lists";
constexpr std::string_view kOrdinary = "ordinary";
constexpr std::size_t kFields = 7;
constexpr const char* kOnlyAscii = "other bytes than those of ASCII are written %XX";

std::string Bytes(std::string_view written) { return PercentDecode(written); }

/// Reads the files of a folder, and says of each line what is wrong with it.
class CBadcodeFolder {
 public:
  CBadcodeFolder(const std::string& directory, Language language) : directory_(directory), language_(language) {}

  /// False after an error.
  bool Read(AttackLibraryText* library, int* exit_code) {
    ForEachLine(kLists, [&](std::string_view line, std::size_t) { ReadList(line, library); });
    for (std::size_t family = 0; family < AttackFamilies().size(); ++family) {
      ForEachLine(AttackFamilies()[family].name,
                  [&](std::string_view line, std::size_t number) { ReadRule(line, number, family, library); });
      for (const AttackRule& rule : library->rules) {
        if (rule.family == family) TryOwnTexts(rule, library->lists);
      }
      Print();
    }
    if (exit_ == kExitOk) TryOrdinaryTexts(*library);
    *exit_code = std::max(*exit_code, exit_);
    return exit_ == kExitOk;
  }

 private:
  template <typename Visit>
  void ForEachLine(std::string_view name, const Visit& visit) {
    Print();
    const std::string path = PlainLibraryPath(directory_, name);
    if (!IsFile(path)) return;
    report_ = CReport(path);
    std::string text;
    ReadInput(path, &text, &report_);
    std::size_t number = 0;
    for (std::string_view line : SplitUtf8(text, "\n")) {
      line_ = ++number;
      if (line.ends_with('\r')) line.remove_suffix(1);
      if (line.empty() || line.front() == '#') continue;
      if (HoldsRecordMarks(line)) {
        report_.Error(number, "a library cannot hold {#} or {*}; \"{\" is written %7B");
      } else if (!CCharSet::IsValidUtf8(line)) {
        report_.Error(number, "the line is no valid UTF-8");
      } else {
        visit(line, number);
      }
    }
  }

  void ReadList(std::string_view line, AttackLibraryText* library) {
    const std::vector<std::string_view> fields = SplitUtf8(line, "\t");
    if (fields.size() != 2 || fields[0].empty() || Trim(fields[1]).empty()) {
      return report_.Error(line_, "a list has two fields divided by a tab: name, words divided by blanks");
    }
    std::vector<std::string>& words = library->lists[std::string(fields[0])];
    for (const std::string_view word : SplitUtf8(fields[1], " ")) {
      if (!word.empty()) words.emplace_back(word);
    }
    if (!CCharSet::IsAscii(line)) report_.Error(line_, kOnlyAscii);
  }

  void ReadRule(std::string_view line, std::size_t number, std::size_t family, AttackLibraryText* library) {
    const std::vector<std::string_view> fields = SplitUtf8(line, "\t");
    if (fields.size() != kFields || std::any_of(fields.begin(), fields.end(), [](auto f) { return f.empty(); })) {
      return report_.Error(number,
                           "a rule has seven fields divided by tabs: identifier, where, pattern, English and Chinese "
                           "remark, a text that it finds, one that it does not");
    }
    const std::string identifier(fields[0]);
    if (!lines_.emplace(identifier, std::pair(PlainLibraryPath(directory_, AttackFamilies()[family].name), number))
             .second) {
      return report_.Error(number, "the identifier " + identifier + " is another rule's");
    }
    for (const std::size_t field : {1, 2, 5, 6}) {
      if (!CCharSet::IsAscii(fields[field])) return report_.Error(number, kOnlyAscii);
    }
    library->rules.push_back({identifier, std::string(fields[1]), std::string(fields[2]),
                              std::string(fields[language_ == Language::kChinese ? 4 : 3]), std::string(fields[5]),
                              std::string(fields[6]), family});
  }

  void TryOwnTexts(const AttackRule& rule, const WordLists& lists) {
    const std::size_t line = lines_.at(rule.identifier).second;
    CAttackRules alone;
    AttackFault fault;
    if (!alone.Set({rule}, lists, &fault)) return report_.Error(line, fault.text);
    if (!FindsText(alone, Bytes(rule.hits))) report_.Error(line, "the rule does not find its text: " + rule.hits);
    if (FindsText(alone, Bytes(rule.misses))) report_.Error(line, "the rule finds a text it must not: " + rule.misses);
  }

  void TryOrdinaryTexts(const AttackLibraryText& library) {
    CAttackRules all;
    AttackFault fault;
    all.Set(library.rules, library.lists, &fault);
    std::map<std::string, std::string> found;  // the first text of each rule
    ForEachLine(kOrdinary, [&](std::string_view line, std::size_t number) {
      if (const AttackRule* const rule = FindsText(all, Bytes(line))) {
        found.emplace(rule->identifier, "finds line " + std::to_string(number) + " of the ordinary texts, \"" +
                                            std::string(line.substr(0, 100)) + "\"");
      }
    });
    for (const auto& [identifier, text] : found) {
      const auto& [path, line] = lines_.at(identifier);
      Print();
      report_ = CReport(path);
      report_.Error(line, "the rule " + identifier + " " + text);
    }
    Print();
  }

  void Print() {
    exit_ = std::max(exit_, report_.Print());
    report_ = CReport("");
  }

  const std::string& directory_;
  const Language language_;
  std::map<std::string, std::pair<std::string, std::size_t>> lines_;  // file and line by identifier
  CReport report_{""};
  std::size_t line_ = 0;
  int exit_ = kExitOk;
};

}  // namespace

bool HoldsBadcodeFiles(const std::string& directory) {
  const auto& families = AttackFamilies();
  return std::any_of(families.begin(), families.end(),
                     [&](const AttackFamily& family) { return IsFile(PlainLibraryPath(directory, family.name)); });
}

std::string PackBadcodeFiles(const std::string& directory, Language language, int* exit_code) {
  AttackLibraryText library;
  *exit_code = kExitOk;
  if (!CBadcodeFolder(directory, language).Read(&library, exit_code)) return {};
  return encrypt_text("", WriteAttackLibrary(library)) + "\n";
}

std::vector<PlainLibraryFile> UnpackBadcodeFiles(std::string_view text, CReport* report) {
  AttackLibraryText library;
  AttackFault fault;
  std::vector<PlainLibraryFile> files;
  if (!ReadAttackLibrary(text, &library, &fault)) {
    if (HasTag(text, kAttackTags[1])) report->Error(0, fault.rule + ": " + fault.text);
    return files;
  }
  files.push_back({std::string(kLists), {}});
  for (const auto& [name, words] : library.lists) {
    files.back().text += name + "\t";
    for (const std::string& word : words) AppendAll(&files.back().text, {&word == &words.front() ? "" : " ", word});
    files.back().text += "\n";
  }
  for (const AttackRule& rule : library.rules) {
    const std::string_view family = AttackFamilies()[rule.family].name;
    const std::string remark = CCharSet::LocalToUtf8(rule.remark);
    if (files.back().name != family) files.push_back({std::string(family), {}});
    AppendAll(&files.back().text, {rule.identifier, "\t", rule.where, "\t", rule.pattern, "\t", remark, "\t", remark,
                                   "\t", rule.hits, "\t", rule.misses, "\n"});
  }
  return files;
}

}  // namespace qiv
