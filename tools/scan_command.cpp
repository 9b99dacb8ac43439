// qivctl scan: looks for webshells in files and folders.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "checks/webshell_finding.h"
#include "common/char_set.h"
#include "common/json.h"
#include "config/address_libraries.h"
#include "config/config_parser.h"
#include "config/webshell_library.h"
#include "config/website_config.h"
#include "port/clock.h"
#include "port/console.h"
#include "port/file.h"
#include "tools/color.h"
#include "tools/commands.h"
#include "tools/file_judge.h"
#include "tools/file_scan.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"
#include "tools/scan_progress.h"

namespace qiv {
namespace {

constexpr unsigned kMostJobs = 256;

struct ScanOptions {
  std::vector<std::string> paths;
  TreeWalkOptions walk;
  std::string config;    ///< of an installation; empty: the built-in rules alone
  std::string language;  ///< of the findings' names; empty: not given
  unsigned jobs = 0;
  std::string color = "auto";
  bool json = false;
  bool no_suspicious = false;
};

/// What an installation adds to the built-in rules.
struct Rules {
  std::string library;
  std::string user_rules;
  std::string free_code;
};

volatile std::sig_atomic_t interrupted = 0;  // the signal's number

// The first interruption ends the scan in order, a second one at once.
void OnInterrupt(int signal) {
  interrupted = signal;
  std::signal(signal, SIG_DFL);
}

void SetNumber(JsonObject* line, const char* key, std::uint64_t number) {
  line->Set(key, std::make_unique<JsonNumber>(std::to_string(number)));
}

void SetSwitch(JsonObject* line, const char* key, bool on) { line->Set(key, std::make_unique<JsonBoolean>(on)); }

std::string JsonLine(const FileScanResult& result, Language language) {
  JsonObject line;
  line.SetText("path", PrintablePath(result.path));
  const WebshellResult& finding = result.verdict.finding;
  const WebshellWords words = WordsOf(finding, language);
  const std::pair<const char*, std::string_view> texts[] = {
      {"finding", words.name}, {"category", words.category}, {"detail", words.detail}, {"rule", finding.rule}};
  for (const auto& [key, text] : texts) line.SetText(key, CCharSet::LocalToUtf8(text));
  line.SetText("excerpt", Printable(result.verdict.excerpt));
  SetNumber(&line, "line", result.verdict.line);
  SetSwitch(&line, "suspicious", finding.suspicious);
  SetSwitch(&line, "code_alone", result.verdict.code_alone);
  SetNumber(&line, "bytes", result.verdict.bytes);
  return WriteJson(line) + "\n";
}

std::string JsonSummary(const FileScanTotals& totals, double seconds) {
  auto sums = std::make_unique<JsonObject>();
  const std::pair<const char*, std::uint64_t> numbers[] = {
      {"files", totals.done},
      {"bytes", totals.bytes},
      {"judged", totals.judged},
      {"findings", totals.findings},
      {"suspicious", totals.suspicious},
      {"errors", totals.errors},
      {"links", totals.links},
      {"milliseconds", static_cast<std::uint64_t>(seconds * 1000)}};
  for (const auto& [key, number] : numbers) SetNumber(sums.get(), key, number);
  SetSwitch(sums.get(), "stopped", totals.stopped);
  JsonObject line;
  line.Set("summary", std::move(sums));
  return WriteJson(line) + "\n";
}

std::string ReadableLine(const FileScanResult& result, Language language, bool color) {
  const WebshellResult& finding = result.verdict.finding;
  const WebshellWords words = WordsOf(finding, language);
  std::string text = (finding.suspicious ? Colored("suspicious", Color::kYellow, color)
                                         : Colored("WEBSHELL", Color::kRed, color) + "  ") +
                     "  " + PrintablePath(result.path) + ": ";
  if (!words.category.empty()) text += Printable(words.category) + ": ";
  text += Printable(words.name);
  if (!words.detail.empty() && words.detail != words.name) text += " (" + Printable(words.detail) + ")";
  if (result.verdict.code_alone) text += " [over 2 MiB: server code alone]";
  return text + "\n";
}

std::string ReadableSummary(const FileScanTotals& totals, double seconds) {
  std::string text = totals.stopped ? "Stopped. " : "";
  text += Grouped(totals.done) + " files, " + Grouped(totals.bytes >> 20) + " MiB in " + Duration(seconds) + "; " +
          Grouped(totals.judged) + " held code: " + Grouped(totals.findings) + " webshells, " +
          Grouped(totals.suspicious) + " suspicious, " + Grouped(totals.errors) + " errors";
  if (totals.links > 0) text += "; " + Grouped(totals.links) + " links not followed";
  return text + "\n";
}

void PrintError(const std::string& path, const std::string& message) {
  CReport report(PrintablePath(path));
  report.Error(0, message);
  report.Print();
}

bool LoadRules(const std::string& directory, Rules* rules, Language* language) {
  const std::string module = ResolveModuleDirectory(directory);
  if (module.empty()) {
    PrintError(directory, "there is no config folder");
    return false;
  }
  WebsiteConfig site;
  const std::string settings = module + "config/_config.db";
  const ConfigStatus status = LoadConfigFile(settings, &site);
  if (status != ConfigStatus::kLoaded && status != ConfigStatus::kNotOnServers) {
    PrintError(settings, "cannot be used");
    return false;
  }
  *language = site.language;
  rules->user_rules = site.trojan_usertrojan;
  rules->free_code = site.trojan_freecode;
  const std::string library = module + "config/_trojan.db";
  if (!IsFile(library)) return true;
  std::string enciphered;
  if (ReadWholeFile(library, CWebshellLibrary::kFileMaxBytes, &enciphered) == ReadFileResult::kOk) {
    rules->library = CCharSet::ToLocal(DecipherPieces(enciphered));
  }
  if (!IsWebshellLibrary(rules->library)) {
    PrintError(library, "is no webshell library");
    return false;
  }
  return true;
}

FileScanTotals RunScan(const ScanOptions& options, const CFileJudge& judge, Language language, std::int64_t begin) {
  CScanProgress progress(begin);
  const bool color = WantsColor(options.color, OutputStream::kOutput);
  CReport::SetColor(WantsColor(options.color, OutputStream::kError));
  CFileScan scan(judge, options.jobs);
  return scan.Run(
      options.paths, options.walk,
      [&](const FileScanResult& result) {
        progress.Clear();
        if (!result.verdict.error.empty()) PrintError(result.path, result.verdict.error);
        if (!result.verdict.found || (result.verdict.finding.suspicious && options.no_suspicious)) return;
        WriteOutput(options.json ? JsonLine(result, language) : ReadableLine(result, language, color));
      },
      [&](const FileScanTotals& totals) {
        progress.Show(totals, MonotonicMicroseconds());
        return interrupted == 0 && OutputIsGood();
      });
}

int Scan(const ScanOptions& given) {
  ScanOptions options = given;
  if (options.jobs == 0) options.jobs = std::clamp(std::thread::hardware_concurrency(), 1U, kMostJobs);
  Rules rules;
  Language language = Language::kEnglish;
  if (!options.config.empty() && !LoadRules(options.config, &rules, &language)) return kExitError;
  if (!options.language.empty()) language = options.language == "zh-CN" ? Language::kChinese : Language::kEnglish;
  const CFileJudge judge(rules.library, rules.user_rules, rules.free_code);

  interrupted = 0;
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
  const std::int64_t begin = MonotonicMicroseconds();
  const FileScanTotals totals = RunScan(options, judge, language, begin);
  const double seconds = static_cast<double>(MonotonicMicroseconds() - begin) * 1e-6;
  WriteOutput(options.json ? JsonSummary(totals, seconds) : ReadableSummary(totals, seconds));
  if (interrupted != 0) return kExitSignal + interrupted;
  // A finding first: no unreadable file may hide it from whoever asks for the exit code alone.
  if (totals.findings > 0 || (totals.suspicious > 0 && !options.no_suspicious)) return kExitFinding;
  return totals.errors > 0 || totals.stopped ? kExitError : kExitOk;
}

}  // namespace

void AddScanCommand(CCommand* program) {
  const auto options = std::make_shared<ScanOptions>();
  CCommand& command = program->AddCommand("scan",
                                          "Look for webshells in files and folders. Exit code 0: none, 1: a "
                                          "finding, 2: something cannot be read, 130: interrupted");
  command.AddOption("paths", &options->paths, "Files and folders").ValueIs(ValueKind::kFile).Required();
  command.AddFlag("--json", &options->json, "One JSON object a line, the last one with the sums");
  command.AddOption("--jobs", &options->jobs, "Processors to use; all unless given").Range(1U, kMostJobs);
  command
      .AddOption("--exclude", &options->walk.exclude,
                 "Leave out names, or with \"/\" whole paths, of this form: * any text, ? one character")
      .OneValueEach();
  command.AddFlag("--follow", &options->walk.follow_links, "Follow links below the given folders");
  command.AddFlag("--no-suspicious", &options->no_suspicious, "Leave out weak findings");
  command.AddOption("--config", &options->config, "Installation whose own rules and language count as well")
      .ValueIs(ValueKind::kFolder);
  command.AddOption("--language", &options->language, "Of the findings' names: en-US or zh-CN")
      .Choices({"en-US", "zh-CN"});
  AddColorOption(&command, &options->color);
  command.OnRun([options] { return Scan(*options); });
}

}  // namespace qiv
