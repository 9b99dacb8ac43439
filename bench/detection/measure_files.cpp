// measure_files: how many script files of some folders the webshell detectors report, and what a byte costs them.
//
// Two lists of folders are given: samples and ordinary files. Files are read, never run, and sorted by their name's
// ending into PHP, ASP and ASPX. For tuning the detectors on one part and judging them on another, files are divided by
// their content into two thirds ("tuned") and one third ("held back"). Near-duplicates among the samples (the same
// words but for a tenth, by 32 min-hashes of word pairs) are also counted once.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/webshell_texts.h"
#include "checks/webshell_finding.h"
#include "command_line/command.h"
#include "common/text.h"
#include "engines/webshell/script_content.h"
#include "engines/webshell/webshell_scan.h"
#include "port/console.h"

namespace {

constexpr std::array<std::string_view, 3> kLanguages = {"PHP", "ASP", "ASPX"};

struct Options {
  std::vector<std::string> samples;
  std::vector<std::string> ordinary;
  std::string list;  ///< which files of the tuned part are listed: "misses", "found", "alarms" or "spared"
  bool cost = false;
};

/// Per cent found and wrongly reported by other rule sets, on the other half of the same collections and on more
/// ordinary files of the same kind. Measured once, and not by this program.
struct OtherRules {
  const char* yara;    ///< the best public YARA set
  const char* finder;  ///< a public finder of PHP malware
};
constexpr std::array<OtherRules, 3> kOthers = {{{"86.6 %, 0.03 %", "64.6 %, 2.0 % (with the YARA set: 91.1 %, 2.0 %)"},
                                                {"88.4 %, 3.6 %", ""},
                                                {"93.5 %, 0.04 %", ""}}};

struct File {
  std::string path;
  bool held_back = false;
  bool reported = false;
  bool suspicious = false;
  bool duplicate = false;
  std::string finding;
};
using Group = std::vector<File>;  // of one language

using Print = std::array<std::uint32_t, 32>;

std::uint32_t Mix(std::uint32_t value) {
  value = (value ^ (value >> 16)) * 0x7FEB352DU;
  value = (value ^ (value >> 15)) * 0x846CA68BU;
  return value ^ (value >> 16);
}

// The least hash of all pairs of words, under 32 hash functions.
Print PrintOf(std::string_view text) {
  Print print;
  print.fill(0xFFFFFFFFU);
  std::uint32_t before = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!qiv::IsWordByte(text[i])) continue;
    std::uint32_t word = 2166136261U;
    for (; i < text.size() && qiv::IsWordByte(text[i]); ++i)
      word = (word ^ static_cast<unsigned char>(text[i])) * 16777619U;
    const std::uint32_t pair = Mix(word + before * 31);
    before = word;
    for (std::size_t k = 0; k < print.size(); ++k)
      print[k] = std::min(print[k], Mix(pair + static_cast<std::uint32_t>(k) * 0x9E3779B9U));
  }
  return print;
}

bool IsNear(const Print& a, const Print& b) {
  constexpr int kMostDifferent = 6;
  int different = 0;
  for (std::size_t k = 0; k < a.size(); ++k) different += a[k] != b[k];
  return different <= kMostDifferent;
}

// 0 PHP, 1 ASP, 2 ASPX, 3 none; by the last ending.
std::size_t LanguageOf(const std::filesystem::path& path) {
  const qiv::ScriptLanguage language = qiv::ScriptLanguageOfName(path.extension().string());
  return language == qiv::ScriptLanguage::kNone ? 3 : static_cast<std::size_t>(language) - 1;
}

std::vector<std::string> ScriptsBelow(const std::vector<std::string>& folders) {
  std::vector<std::string> paths;
  for (const std::string& folder : folders) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      if (entry.is_regular_file() && !entry.is_symlink() && LanguageOf(entry.path()) < 3)
        paths.push_back(entry.path().string());
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

/// Calls work(0) ... work(count - 1) on all processors.
template <typename Work>
void ForEach(std::size_t count, Work&& work) {
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < std::max(1U, std::thread::hardware_concurrency()); ++t) {
    threads.emplace_back([&] {
      for (std::size_t i = next++; i < count; i = next++) work(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

std::array<Group, 3> Measure(const qiv::CQivLibs& libs, const std::vector<std::string>& folders, bool near_duplicates) {
  const std::vector<std::string> paths = ScriptsBelow(folders);
  std::vector<File> files(paths.size());
  std::vector<Print> prints(paths.size());
  ForEach(paths.size(), [&](std::size_t i) {
    std::ifstream stream(paths[i], std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    qiv::WebshellResult result;
    File& file = files[i];
    file.path = paths[i];
    file.reported = libs.WebshellScan(std::string_view(text), &result);
    file.suspicious = file.reported && result.suspicious;
    const qiv::WebshellWords words = qiv::WordsOf(result, qiv::Language::kEnglish);
    file.finding = words.category + "/" + words.name + "/" + words.detail;
    prints[i] = PrintOf(text);
    file.held_back = prints[i][0] % 3 == 0;
  });
  std::array<Group, 3> groups;
  std::array<std::vector<Print>, 3> known;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::size_t language = LanguageOf(paths[i]);
    const auto same = [&](const Print& other) { return IsNear(prints[i], other); };
    files[i].duplicate = near_duplicates && std::any_of(known[language].begin(), known[language].end(), same);
    if (near_duplicates && !files[i].duplicate) known[language].push_back(prints[i]);
    groups[language].push_back(std::move(files[i]));
  }
  return groups;
}

template <typename Wanted>
std::string Share(const std::vector<File>& files, Wanted&& wanted) {
  std::size_t all = 0;
  std::size_t reported = 0;
  for (const File& file : files) {
    if (!wanted(file)) continue;
    ++all;
    reported += file.reported;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%zu/%zu = %.2f %%", reported, all,
                all == 0 ? 0.0 : 100.0 * static_cast<double>(reported) / static_cast<double>(all));
  return text;
}

void PrintTable(const std::array<Group, 3>& samples, const std::array<Group, 3>& ordinary) {
  const auto tuned = [](const File& file) { return !file.held_back; };
  const auto held_back = [](const File& file) { return file.held_back; };
  const auto once = [](const File& file) { return !file.duplicate; };
  std::printf(
      "| | samples found, tuned | held back | all, near-duplicates once | ordinary reported, tuned | held back | a "
      "YARA set"
      " | a PHP malware finder |\n|---|---|---|---|---|---|---|---|\n");
  for (std::size_t l = 0; l < samples.size(); ++l) {
    std::printf("| %s | %s | %s | %s | %s | %s | %s | %s |\n", std::string(kLanguages[l]).c_str(),
                Share(samples[l], tuned).c_str(), Share(samples[l], held_back).c_str(), Share(samples[l], once).c_str(),
                Share(ordinary[l], tuned).c_str(), Share(ordinary[l], held_back).c_str(), kOthers[l].yara,
                kOthers[l].finder);
  }
  const auto weak = [](const std::array<Group, 3>& groups) {
    std::string text;
    for (const Group& group : groups) {
      const auto is_weak = [](const File& file) { return file.suspicious; };
      text += (text.empty() ? "" : " / ") + std::to_string(std::count_if(group.begin(), group.end(), is_weak));
    }
    return text;
  };
  std::printf("\nWeak findings among them (PHP / ASP / ASPX): %s samples, %s ordinary files.\n", weak(samples).c_str(),
              weak(ordinary).c_str());
}

// Processor time of one scan, in nanoseconds a byte.
double CostOf(const qiv::CQivLibs& libs, std::string_view text) {
  constexpr double kLongEnough = 0.2;  // seconds
  const std::clock_t begin = std::clock();
  double seconds = 0;
  int runs = 0;
  while (runs == 0 || seconds < kLongEnough) {
    qiv::WebshellResult result;
    libs.WebshellScan(text, &result);
    ++runs;
    seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
  }
  return seconds * 1e9 / (static_cast<double>(runs) * static_cast<double>(text.size()));
}

void PrintCosts(const qiv::CQivLibs& libs) {
  constexpr std::array<std::size_t, 4> kSizes = {1U << 10, 1U << 14, 1U << 18, 1U << 21};
  std::printf("| nothing but | 1 KiB | 16 KiB | 256 KiB | 2 MiB | 2 MiB : 16 KiB |\n|---|---|---|---|---|---|\n");
  for (const qiv::bench::WebshellText& kind : qiv::bench::WebshellTexts()) {
    std::printf("| %s |", kind.name);
    std::array<double, kSizes.size()> costs{};
    for (std::size_t s = 0; s < kSizes.size(); ++s) {
      costs[s] = CostOf(libs, kind.make(libs.Library(), kSizes[s]));
      std::printf(" %.0f |", costs[s]);
      std::fflush(stdout);
    }
    std::printf(" %.1f |\n", costs[3] / std::max(costs[1], 0.1));
  }
}

void List(const std::array<Group, 3>& groups, bool reported) {
  for (const Group& group : groups) {
    for (const File& file : group) {
      if (!file.held_back && file.reported == reported) {
        std::printf("%s\t%s\n", file.path.c_str(), reported ? file.finding.c_str() : "");
      }
    }
  }
}

int Run(const Options& options) {
  if (options.samples.empty() && options.ordinary.empty() && !options.cost) {
    std::cerr << "measure_files: no folder given\n";
    return 2;
  }
  const qiv::CQivLibs libs;
  if (options.cost) {
    PrintCosts(libs);
    return 0;
  }
  const std::array<Group, 3> samples = Measure(libs, options.samples, true);
  const std::array<Group, 3> ordinary = Measure(libs, options.ordinary, false);
  if (options.list == "misses" || options.list == "found") {
    List(samples, options.list == "found");
  } else if (!options.list.empty()) {
    List(ordinary, options.list == "alarms");
  } else {
    PrintTable(samples, ordinary);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  qiv::CProgram program("measure_files", "Counts the script files of folders that the webshell detectors report.");
  Options options;
  program.AddOption("-s,--samples", &options.samples, "folders of webshells");
  program.AddOption("-o,--ordinary", &options.ordinary, "folders of ordinary applications");
  program
      .AddOption("-l,--list", &options.list,
                 "list of the tuned part: samples missed or found, ordinary files reported or spared")
      .Choices({"misses", "found", "alarms", "spared"});
  program.AddFlag("-c,--cost", &options.cost,
                  "print nanoseconds a byte for ordinary texts and for ones made to be slow");
  program.OnRun([&] { return Run(options); });
  return program.ParseAndRun(qiv::CommandLineArguments(argc, argv));
}
