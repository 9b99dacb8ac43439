#include "tools/report.h"

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <utility>

#include "tools/color.h"

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

namespace {

bool print_color = false;  // set before the command's work begins

}  // namespace

void CReport::SetColor(bool wanted) { print_color = wanted; }

std::string CReport::Text(bool color) const {
  std::vector<Entry> sorted = entries_;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.place.file, a.place.line) < std::tie(b.place.file, b.place.line);
  });
  std::string text;
  for (const Entry& entry : sorted) {
    text += "qivctl: " + (entry.place.file.empty() ? file_ : entry.place.file);
    if (entry.place.line != 0) text += ":" + std::to_string(entry.place.line);
    const Color paint = entry.exit_code == kExitError     ? Color::kRed
                        : entry.exit_code == kExitFinding ? Color::kYellow
                                                          : Color::kGreen;
    text += ": " + Colored(entry.message, paint, color) + "\n";
  }
  return text;
}

int CReport::Print() const {
  const std::string text = Text(print_color);
  std::fwrite(text.data(), 1, text.size(), stderr);
  return ExitCode();
}

int Fail(const std::string& file, std::string message, std::size_t line) {
  CReport report(file);
  report.Error(line, std::move(message));
  return report.Print();
}

}  // namespace qiv
