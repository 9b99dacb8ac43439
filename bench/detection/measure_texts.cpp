// measure_texts: how many of the lines of some text files injection protection blocks, and by what.
//
// Each line is one text (see UnescapeLine). It is put into a request at each chosen place and goes through the same
// decoding, settings, rules and check as in the module. For tuning the rules on one part of a collection and judging
// them on another, the lines are divided by a fixed rule into two thirds ("tuned") and one third ("held back").

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "bench/detection/text_places.h"
#include "common/text.h"

namespace {

struct Options {
  std::string module_directory;
  std::string places = "query,form,json,header";
  std::vector<std::string> files;
  std::string list;  ///< "hits" or "misses" of the tuned part are listed
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

bool Measure(const qiv::Protection& protection, const Options& options, qiv::Place place, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::cerr << "measure_texts: " << path << ": cannot be read\n";
    return false;
  }
  Counts tuned;
  Counts held_back;
  std::array<std::uint64_t, 6> by_mechanism{};
  std::string line;
  for (std::uint64_t number = 0; std::getline(file, line); ++number) {
    const qiv::Verdict verdict = qiv::Judge(protection, place, qiv::UnescapeLine(line));
    const bool blocked = verdict.mechanism != qiv::Mechanism::kNone;
    const bool is_held_back = IsHeldBack(number);
    Counts& counts = is_held_back ? held_back : tuned;
    ++counts.lines;
    counts.blocked += blocked;
    ++by_mechanism[static_cast<std::size_t>(verdict.mechanism)];
    if (!is_held_back && ((blocked && options.list == "hits") || (!blocked && options.list == "misses"))) {
      std::cout << verdict.rule << '\t' << verdict.reason << '\t' << line << '\n';
    }
  }
  if (tuned.lines + held_back.lines == 0) {
    std::cerr << "measure_texts: " << path << ": no line\n";
    return false;
  }
  if (options.list.empty()) {
    std::printf("%-32s %-9s %7llu %8s %8s   %6llu %6llu %6llu %6llu %6llu\n", BaseName(path).c_str(),
                std::string(qiv::PlaceName(place)).c_str(),
                static_cast<unsigned long long>(tuned.lines + held_back.lines), Percent(tuned).c_str(),
                Percent(held_back).c_str(), static_cast<unsigned long long>(by_mechanism[1]),
                static_cast<unsigned long long>(by_mechanism[2]), static_cast<unsigned long long>(by_mechanism[3]),
                static_cast<unsigned long long>(by_mechanism[4]), static_cast<unsigned long long>(by_mechanism[5]));
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
    std::printf("%-32s %-9s %7s %8s %8s   %6s %6s %6s %6s %6s\n", "file", "place", "lines", "tuned %", "held %",
                "detect", "keywrd", "event", "script", "url");
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
  CLI::App app("Counts the lines of text files that injection protection blocks.");
  Options options;
  app.add_option("-m,--module", options.module_directory, "module directory, as made by qivctl init")->required();
  app.add_option("-p,--place", options.places, "query, form, json, header, raw-query, raw-body, divided by commas");
  app.add_option("-l,--list", options.list, "list the tuned part's blocked lines, or those that pass")
      ->check(CLI::IsMember({"hits", "misses"}));
  app.add_option("files", options.files, "one text a line; %0D, %0A and %00 are bytes")->required();
  CLI11_PARSE(app, argc, argv);
  return Run(options);
}
