#include "tools/report.h"

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <utility>

namespace qiv {

int CReport::ExitCode() const {
  int worst = kExitOk;
  for (const Entry& entry : entries_) worst = std::max(worst, entry.exit_code);
  return worst;
}

void CReport::Add(const CReport& other) {
  for (Entry entry : other.entries_) {
    if (entry.place.file.empty()) entry.place.file = other.file_;
    entries_.push_back(std::move(entry));
  }
}

std::string CReport::Text() const {
  std::vector<Entry> sorted = entries_;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.place.file, a.place.line) < std::tie(b.place.file, b.place.line);
  });
  std::string text;
  for (const Entry& entry : sorted) {
    text += "qivctl: " + (entry.place.file.empty() ? file_ : entry.place.file);
    if (entry.place.line != 0) text += ":" + std::to_string(entry.place.line);
    text += ": " + entry.message + "\n";
  }
  return text;
}

int CReport::Print() const {
  const std::string text = Text();
  std::fwrite(text.data(), 1, text.size(), stderr);
  return ExitCode();
}

int Fail(const std::string& file, std::string message, std::size_t line) {
  CReport report(file);
  report.Error(line, std::move(message));
  return report.Print();
}

}  // namespace qiv
