// measure_texts: how many of the lines of some text files are blocked, and by what: injection protection, the families
// of other attacks, or the search for webshells in requests.
//
// Each line is one text (see UnescapeLine). It is put into a request at each chosen place and goes through the same
// decoding, settings, rules and check as in the module. For tuning the rules on one part of a collection and judging
// them on another, the lines are divided by a fixed rule into two thirds ("tuned") and one third ("held back").
// Long texts: --join makes documents of a given size from the lines, --whole takes each file as one text.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/detection/text_places.h"
#include "command_line/command.h"
#include "common/text.h"
#include "port/console.h"

namespace {

struct Options {
  std::string module_directory;
  std::string places = "query,form,json,header";
  std::vector<std::string> files;
  std::string list;      ///< "hits", "misses" or "mislabelled" of the tuned part are listed; or "verdicts" of all
  std::size_t join = 0;  ///< lines are joined to texts of at least this many bytes; 0: each line is a text
  qiv::Judges by = qiv::Judges::kBoth;
  bool whole = false;   ///< a file is one text, byte for byte
  unsigned rounds = 1;  ///< the lines are joined that often, each time in another order
};

struct Counts {
  std::uint64_t lines = 0;
  std::uint64_t blocked = 0;
};

/// A third of the lines, scattered the same way in every run (multiplicative hashing of the line's number).
bool IsHeldBack(std::uint64_t line) { return ((line * 2654435761U + 12345U) >> 7) % 3 == 0; }

std::string Percent(const Counts& counts) {
  if (counts.lines == 0) return "-";
  char text[16];
  std::snprintf(text, sizeof text, "%.2f",
                100.0 * static_cast<double>(counts.blocked) / static_cast<double>(counts.lines));
  return text;
}

std::string BaseName(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

/// One line of at most 300 bytes.
std::string Shown(const std::string& text) {
  std::string shown = text.substr(0, 300);
  for (char& c : shown) {
    if (c == '\n' || c == '\r' || c == '\0') c = ' ';
  }
  return shown;
}

/// The texts of a file, as the options cut it. What is left at the end of a joined round counts only when it is all.
template <typename Visit>
void ForEachText(const Options& options, std::istream& file, const Visit& visit) {
  if (options.whole) return visit(std::string(std::istreambuf_iterator<char>(file), {}));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(qiv::UnescapeLine(line));
  std::mt19937 random(1);
  for (unsigned round = 0; round < options.rounds; ++round) {
    bool any = false;
    std::string text;
    for (const std::string& line : lines) {
      text += line;
      if (text.size() >= options.join) {
        visit(text);
        any = true;
        text.clear();
      } else {
        text += '\n';
      }
    }
    if (!text.empty() && !any) visit(text);
    std::shuffle(lines.begin(), lines.end(), random);
  }
}

/// The same settings without SQL protection: what the XSS detector finds alone.
qiv::Protection ScriptsOnly(const qiv::Protection& protection) {
  auto config = std::make_shared<qiv::WebsiteConfig>(*protection.config);
  config->sql.get = 0;
  config->sql.post = 0;
  config->sql.header = 0;
  return {std::move(config), protection.library, protection.webshells, protection.attacks};
}

bool Measure(const qiv::Protection& protection, const Options& options, qiv::Place place, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::cerr << "measure_texts: " << path << ": cannot be read\n";
    return false;
  }
  Counts tuned;
  Counts held_back;
  std::array<std::uint64_t, 8> by_mechanism{};
  const qiv::Protection scripts_only = ScriptsOnly(protection);
  std::uint64_t mislabelled = 0;
  std::uint64_t number = 0;
  ForEachText(options, file, [&](const std::string& text) {
    const qiv::Verdict verdict = qiv::Judge(protection, place, text, options.by);
    const bool blocked = verdict.mechanism != qiv::Mechanism::kNone;
    const bool as_sql = verdict.mechanism == qiv::Mechanism::kDetector || verdict.mechanism == qiv::Mechanism::kKeyword;
    const bool is_mislabelled = as_sql && options.by == qiv::Judges::kInjection &&
                                qiv::Judge(scripts_only, place, text, options.by).mechanism != qiv::Mechanism::kNone;
    mislabelled += is_mislabelled;
    const bool is_held_back = IsHeldBack(number++);
    Counts& counts = is_held_back ? held_back : tuned;
    ++counts.lines;
    counts.blocked += blocked;
    ++by_mechanism[static_cast<std::size_t>(verdict.mechanism)];
    if (options.list == "verdicts") {
      std::cout << BaseName(path) << '\t' << qiv::PlaceName(place) << '\t' << number << '\t'
                << static_cast<int>(verdict.mechanism) << '\t' << verdict.rule << '\n';
    }
    if (!is_held_back && ((blocked && options.list == "hits") || (!blocked && options.list == "misses") ||
                          (is_mislabelled && options.list == "mislabelled"))) {
      std::cout << verdict.rule << '\t' << verdict.reason << '\t' << Shown(text) << '\n';
    }
  });
  if (tuned.lines + held_back.lines == 0) {
    std::cerr << "measure_texts: " << path << ": no line\n";
    return false;
  }
  if (options.list.empty()) {
    std::printf("%-32s %-9s %7llu %8s %8s   %6llu %6llu %6llu %6llu %6llu %6llu %6llu %8llu\n", BaseName(path).c_str(),
                std::string(qiv::PlaceName(place)).c_str(),
                static_cast<unsigned long long>(tuned.lines + held_back.lines), Percent(tuned).c_str(),
                Percent(held_back).c_str(), static_cast<unsigned long long>(by_mechanism[1]),
                static_cast<unsigned long long>(by_mechanism[2]), static_cast<unsigned long long>(by_mechanism[3]),
                static_cast<unsigned long long>(by_mechanism[4]), static_cast<unsigned long long>(by_mechanism[5]),
                static_cast<unsigned long long>(by_mechanism[6]), static_cast<unsigned long long>(by_mechanism[7]),
                static_cast<unsigned long long>(mislabelled));
  }
  return true;
}

int Run(const Options& options) {
  std::string error;
  const auto begin = std::chrono::steady_clock::now();
  const qiv::Protection protection = qiv::LoadProtection(options.module_directory, &error);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  if (!protection.config) {
    std::cerr << "measure_texts: " << options.module_directory << ": " << error << "\n";
    return 2;
  }
  if (options.list.empty()) {
    std::printf(
        "# rules: query %zu, body %zu, headers %zu; detector %zu cut words, %zu rule words, %zu events; loaded in %.0f "
        "ms\n",
        protection.config->get_rules.Rules().size(), protection.config->post_rules.Rules().size(),
        protection.config->header_rules.Rules().size(), protection.library->Keys().size(),
        protection.library->Rules().size(), protection.library->Events().size(), took.count());
    std::printf("%-32s %-9s %7s %8s %8s   %6s %6s %6s %6s %6s %6s %6s %8s\n", "file", "place", "lines", "tuned %",
                "held %", "detect", "keywrd", "event", "script", "url", "upload", "family", "mislabel");
  }
  bool good = true;
  for (const std::string_view name : qiv::Split(options.places, ',')) {
    qiv::Place place{};
    if (!qiv::PlaceFromName(name, &place)) {
      std::cerr << "measure_texts: no place is called " << name << "\n";
      return 2;
    }
    for (const std::string& path : options.files) good &= Measure(protection, options, place, path);
  }
  return good ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  qiv::CProgram program(
      "measure_texts",
      "Counts the lines of text files that a protection blocks: by default injection and malicious code.");
  Options options;
  program.AddOption("-m,--module", &options.module_directory, "module directory, as made by qivctl init").Required();
  program.AddOption(
      "-p,--place", &options.places,
      "query, form, json, header, xml, cookie, referer, path, field, raw-query, raw-body, file, divided by commas");
  program
      .AddOption("-l,--list", &options.list,
                 "list the tuned part's blocked lines, those that pass, those that the XSS detector would find but a "
                 "keyword rule names first; or of every line its number and what blocks it, to compare two versions")
      .Choices({"hits", "misses", "mislabelled", "verdicts"});
  program.AddOption("-j,--join", &options.join, "join the lines to texts of at least this many bytes");
  program.AddOption("-r,--rounds", &options.rounds, "join the lines that often, in another order each time");
  program.AddFlag("-w,--whole", &options.whole, "each file is one text");
  std::string by = "both";
  program
      .AddOption("-b,--by", &by,
                 "who judges: families (rules for malicious code), injection, both of them, or webshells alone")
      .Choices({"both", "families", "injection", "webshells"});
  program.AddOption("files", &options.files, "one text a line; %0D, %0A and %00 are bytes").Required();
  program.OnRun([&] {
    options.by = by == "families"    ? qiv::Judges::kFamilies
                 : by == "injection" ? qiv::Judges::kInjection
                 : by == "webshells" ? qiv::Judges::kWebshells
                                     : qiv::Judges::kBoth;
    return Run(options);
  });
  return program.ParseAndRun(qiv::CommandLineArguments(argc, argv));
}
