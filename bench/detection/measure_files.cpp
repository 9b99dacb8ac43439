// measure_files: how many script files of some folders the webshell detectors report.
//
// Two lists of folders are given: samples and ordinary files. Files are read, never run, and sorted by their name's
// ending into PHP, ASP and ASPX. For tuning the detectors on one part and judging them on another, files are divided by
// their content into two thirds ("tuned") and one third ("held back"). Near-duplicates among the samples (the same
// words but for a tenth, by 32 min-hashes of word pairs) are also counted once.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell_scan.h"

namespace {

constexpr std::array<std::string_view, 3> kLanguages = {"PHP", "ASP", "ASPX"};

struct Options {
  std::vector<std::string> samples;
  std::vector<std::string> ordinary;
  std::string list;  ///< which files of the tuned part are listed: "misses", "found", "alarms" or "spared"
};

struct File {
  std::string path;
  bool held_back = false;
  bool reported = false;
  bool duplicate = false;
  std::string finding;
};

struct Group {
  std::vector<File> files;
  std::uint64_t bytes = 0;
  double seconds = 0;
};

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

// 0 PHP, 1 ASP, 2 ASPX, 3 none.
std::size_t LanguageOf(const std::filesystem::path& path) {
  const std::string end = qiv::CCharSet::LowerAscii(path.extension().string());
  for (const std::string_view php : {".php", ".php3", ".php4", ".php5", ".php7", ".phtml", ".pht", ".phps", ".inc"}) {
    if (end == php) return 0;
  }
  for (const std::string_view asp : {".asp", ".asa", ".cer", ".cdx"}) {
    if (end == asp) return 1;
  }
  for (const std::string_view aspx : {".aspx", ".ashx", ".asmx", ".ascx", ".master"}) {
    if (end == aspx) return 2;
  }
  return 3;
}

void Measure(const qiv::CQivLibs& libs, const std::vector<std::string>& folders, bool near_duplicates,
             std::array<Group, 3>* groups) {
  std::vector<std::string> paths;
  for (const std::string& folder : folders) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      if (entry.is_regular_file() && !entry.is_symlink() && LanguageOf(entry.path()) < 3)
        paths.push_back(entry.path().string());
    }
  }
  std::sort(paths.begin(), paths.end());
  std::array<std::vector<Print>, 3> prints;
  for (const std::string& path : paths) {
    std::ifstream stream(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const std::size_t language = LanguageOf(path);
    Group& group = (*groups)[language];
    File file{path, PrintOf(text)[0] % 3 == 0, false, false, {}};
    qiv::WebshellResult result;
    const auto begin = std::chrono::steady_clock::now();
    file.reported = libs.WebshellScan(std::string_view(text), &result);
    group.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    group.bytes += text.size();
    file.finding = result.category + "/" + result.name + "/" + result.detail;
    if (near_duplicates) {
      const Print print = PrintOf(text);
      const auto same = [&print](const Print& other) { return IsNear(print, other); };
      file.duplicate = std::any_of(prints[language].begin(), prints[language].end(), same);
      if (!file.duplicate) prints[language].push_back(print);
    }
    group.files.push_back(std::move(file));
  }
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

void PrintTable(std::string_view title, const std::array<Group, 3>& groups) {
  std::printf(
      "\n%s\n\n| language | tuned | held back | all | near-duplicates once | ns/byte |\n|---|---|---|---|---|---|\n",
      std::string(title).c_str());
  for (std::size_t l = 0; l < groups.size(); ++l) {
    const Group& group = groups[l];
    if (group.files.empty()) continue;
    std::printf("| %s | %s | %s | %s | %s | %.0f |\n", std::string(kLanguages[l]).c_str(),
                Share(group.files, [](const File& file) { return !file.held_back; }).c_str(),
                Share(group.files, [](const File& file) { return file.held_back; }).c_str(),
                Share(group.files, [](const File&) { return true; }).c_str(),
                Share(group.files, [](const File& file) { return !file.duplicate; }).c_str(),
                group.seconds * 1e9 / static_cast<double>(std::max<std::uint64_t>(group.bytes, 1)));
  }
}

void List(const std::array<Group, 3>& groups, bool reported) {
  for (const Group& group : groups) {
    for (const File& file : group.files) {
      if (!file.held_back && file.reported == reported) {
        std::printf("%s\t%s\n", file.path.c_str(), reported ? file.finding.c_str() : "");
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Counts the script files of folders that the webshell detectors report.");
  Options options;
  app.add_option("-s,--samples", options.samples, "folders of webshells");
  app.add_option("-o,--ordinary", options.ordinary, "folders of ordinary applications");
  app.add_option("-l,--list", options.list,
                 "list of the tuned part: samples missed or found, ordinary files reported or spared")
      ->check(CLI::IsMember({"misses", "found", "alarms", "spared"}));
  CLI11_PARSE(app, argc, argv);
  if (options.samples.empty() && options.ordinary.empty()) {
    std::cerr << "measure_files: no folder given\n";
    return 2;
  }
  const qiv::CQivLibs libs(qiv::Language::kEnglish);
  std::array<Group, 3> samples;
  std::array<Group, 3> ordinary;
  Measure(libs, options.samples, true, &samples);
  Measure(libs, options.ordinary, false, &ordinary);
  if (options.list == "misses" || options.list == "found") {
    List(samples, options.list == "found");
  } else if (!options.list.empty()) {
    List(ordinary, options.list == "alarms");
  } else {
    PrintTable("Samples found", samples);
    PrintTable("Ordinary files reported", ordinary);
  }
  return 0;
}
