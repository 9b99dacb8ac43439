// qivctl library pack, library unpack.
#include <memory>
#include <string>

#include "port/file.h"
#include "tools/badcode_files.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/library_files.h"
#include "tools/webshell_files.h"

namespace qiv {
namespace {

struct LibraryOptions {
  std::string input;
  std::string output;
  std::string language;  ///< empty: not given
  bool user_defined = false;
};

int Store(const LibraryOptions& options, const std::string& name, const std::string& stored) {
  const std::string path = options.output + "/" + name;
  if (MakeDirectories(options.output) && ReplaceFile(path, stored)) return kExitOk;
  CReport report(path);
  report.Error(0, CannotWrite());
  return report.Print();
}

int Pack(const LibraryOptions& options) {
  RecordForm form;
  form.language = options.language == "zh-CN" ? Language::kChinese : Language::kEnglish;
  form.user_defined = options.user_defined;
  int exit_code = kExitOk;
  if (HoldsWebshellFiles(options.input)) {
    if (!options.language.empty()) {
      CReport report(options.input);
      report.Error(0, "holds rules for webshells, which keep their names in both languages: --language does nothing");
      return report.Print();
    }
    const std::string stored = PackWebshellFiles(options.input, &exit_code);
    return exit_code == kExitOk ? Store(options, "_trojan.db", stored) : exit_code;
  }
  if (HoldsBadcodeFiles(options.input)) {
    const std::string stored = PackBadcodeFiles(options.input, form.language, &exit_code);
    return exit_code == kExitOk ? Store(options, "_badcode.db", stored) : exit_code;
  }
  const std::string stored = PackLibrary(options.input, form, &exit_code);
  if (exit_code != kExitOk) return exit_code;
  return Store(options, options.user_defined ? "_sql_user.db" : "_sql.db", stored);
}

void PutList(const LibraryOptions& options, const std::string& name, const std::string& text, CReport* report) {
  const std::string path = options.output + "/" + name + ".txt";
  if (options.output.empty()) {
    WriteOutput("# " + name + "\n" + text);
  } else if (!ReplaceFile(path, text)) {
    report->Error(0, path + " " + CannotWrite());
  }
}

int Unpack(const LibraryOptions& options) {
  CReport report(options.input);
  std::string stored;
  if (!ReadInput(options.input, &stored, &report)) return report.Print();
  const std::string text = DecipheredLibrary(stored);
  const std::vector<LibraryList> lists = UnpackLibrary(text, options.user_defined);
  std::vector<PlainLibraryFile> files = UnpackWebshellFiles(text);
  if (files.empty()) files = UnpackBadcodeFiles(text, &report);
  if (lists.empty() && files.empty() && !report.HasError()) {
    report.Error(0, "is no library: it holds none of the lists, or is enciphered with another key");
  }
  if (!options.output.empty()) MakeDirectories(options.output);
  for (const LibraryList& list : lists) PutList(options, std::string(list.name), WriteRuleFile(list.rules), &report);
  for (const PlainLibraryFile& file : files) PutList(options, file.name, file.text, &report);
  return report.Print();
}

}  // namespace

void AddLibraryCommand(CCommand* program) {
  CCommand& library = program->AddCommand("library", "Rule libraries between plain text and their stored form");
  library.RequireCommand();
  const auto options = std::make_shared<LibraryOptions>();

  CCommand& pack = library.AddCommand("pack", "Turn a folder of rule files into a library");
  pack.AddOption("folder", &options->input,
                 "holds sql_rules.txt, sql_keys.txt, xss_events.txt; or trojan_rules.txt, trojan_free.txt, "
                 "trojan_removal.txt; "
                 "or lfi.txt, rce.txt and the other families of rules/badcode")
      .ValueIs(ValueKind::kFolder)
      .Required();
  pack.AddOption("-o,--output", &options->output, "the folder that receives _sql.db, _trojan.db or _badcode.db")
      .ValueIs(ValueKind::kFolder)
      .Required();
  pack.AddOption("--language", &options->language,
                 "language of the remarks, en-US without it; not of rules for webshells, which keep both")
      .Choices({"en-US", "zh-CN"});
  pack.AddFlag("--user", &options->user_defined, "write the user-defined library, _sql_user.db");
  pack.OnRun([options] { return Pack(*options); });

  CCommand& unpack = library.AddCommand("unpack", "Print a library as rule files");
  unpack.AddOption("file", &options->input, "the _sql.db, _trojan.db or _badcode.db, or - for standard input")
      .ValueIs(ValueKind::kFile)
      .Required();
  unpack.AddOption("-o,--output", &options->output, "a folder that receives the rule files instead")
      .ValueIs(ValueKind::kFolder);
  unpack.AddFlag("--user", &options->user_defined, "it is a user-defined library");
  unpack.OnRun([options] { return Unpack(*options); });
}

}  // namespace qiv
