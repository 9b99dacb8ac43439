#include "tools/webshell_files.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "common/aes.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/webshell_library.h"
#include "engines/webshell/signatures/builtin_signatures.h"
#include "engines/webshell/signatures/signature_text.h"
#include "tools/files.h"
#include "tools/report.h"

namespace qiv {
namespace {

// Each is a file and a list of the library.
constexpr std::array<std::string_view, 3> kLists = {"trojan_rules", "trojan_free", "trojan_removal"};
constexpr std::string_view kPhp = "php";
constexpr std::string_view kAsp = "asp";

/// The record of a line in local code; empty, with an error, when it is none.
std::string RuleRecord(std::string_view text, std::size_t line, CReport* report) {
  const std::vector<std::string_view> fields = Split(text, '\t');
  if (fields.size() != 5) {
    report->Error(line,
                  "a rule has five fields divided by tabs: pattern, php or asp, size limit, English and Chinese name");
    return {};
  }
  const std::string pattern = CCharSet::ToLocal(std::string(fields[0]));
  if (ParseSignaturePattern(pattern).terms.empty()) report->Error(line, "the pattern looks for nothing");
  if (fields[1] != kPhp && fields[1] != kAsp) report->Error(line, "the second field is php or asp");
  const std::uint32_t limit = DigitsToNumber(fields[2]);
  if (limit == 0 && fields[2] != "0") report->Error(line, "the third field is a number of bytes, 0 for no limit");
  const SignatureName name{CCharSet::ToLocal(std::string(fields[3])), CCharSet::ToLocal(std::string(fields[4]))};
  if (name.english.empty() || name.chinese.empty())
    report->Error(line, "the rule lacks a name in one of the languages");
  std::string record;
  AddSignatureRule(&record, pattern, "++", name.Text(), {}, limit, fields[1] == kPhp ? kPhpRuleKind : kAspRuleKind);
  return record;
}

std::string PackList(std::string_view name, std::string_view text, CReport* report) {
  std::string list;
  std::size_t number = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    ++number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (Trim(line).empty() || line.starts_with('#')) continue;
    if (HoldsRecordMarks(line) || HasTag(line, name) ||
        line.find("</" + std::string(name) + ">") != std::string_view::npos) {
      report->Error(number, "a library cannot hold {#}, {*} or its own tags");
      continue;
    }
    list += name == kLists[0] ? RuleRecord(line, number, report) : CCharSet::ToLocal(std::string(line)) + "{#}";
    list += '\n';
  }
  return list;
}

std::string UnpackRule(std::string_view record) {
  const std::vector<std::string_view> fields = Split(record, "{*}");
  const bool whole = fields.size() >= 7;
  const SignatureName name = SignatureName::FromText(fields.size() > 2 ? fields[2] : std::string_view());
  const bool asp = whole && DigitsToNumber(fields[fields.size() - 2]) == kAspRuleKind;
  const std::string limit = std::to_string(whole ? DigitsToNumber(fields.back()) : 0);
  return std::string(fields[0]) + "\t" + std::string(asp ? kAsp : kPhp) + "\t" + limit + "\t" + name.english + "\t" +
         (name.chinese.empty() ? name.english : name.chinese);
}

}  // namespace

bool HoldsWebshellFiles(const std::string& directory) {
  return std::any_of(kLists.begin(), kLists.end(),
                     [&](std::string_view name) { return IsFile(PlainLibraryPath(directory, name)); });
}

std::string PackWebshellFiles(const std::string& directory, int* exit_code) {
  std::string stored;
  *exit_code = kExitOk;
  for (const std::string_view name : kLists) {
    const std::string path = PlainLibraryPath(directory, name);
    if (!IsFile(path)) continue;
    CReport report(path);
    std::string text;
    ReadInput(path, &text, &report);
    stored += "<" + std::string(name) + ">\n" + PackList(name, text, &report) + "</" + std::string(name) + ">\n";
    *exit_code = std::max(*exit_code, report.Print());
  }
  return *exit_code == kExitOk ? encrypt_text("", CCharSet::LocalToUtf8(stored)) + "\n" : std::string();
}

std::vector<PlainLibraryFile> UnpackWebshellFiles(std::string_view file_text) {
  const std::string text = CCharSet::ToLocal(decrypt_text("", Trim(file_text)));
  std::vector<PlainLibraryFile> files;
  if (!IsWebshellLibrary(text)) return files;
  for (const std::string_view name : kLists) {
    if (!HasTag(text, name)) continue;
    PlainLibraryFile file{std::string(name), {}};
    for (std::string_view record : Split(TaggedPart(text, name), "{#}")) {
      record = TrimBytes(record, "\r\n");
      if (record.empty()) continue;
      file.text += CCharSet::LocalToUtf8(name == kLists[0] ? UnpackRule(record) : std::string(record)) + "\n";
    }
    files.push_back(std::move(file));
  }
  return files;
}

}  // namespace qiv
