#include "tools/report.h"

#include <algorithm>
#include <cstdio>

#include "tools/color.h"

namespace qiv {

int CReport::ExitCode() const {
  int worst = kExitOk;
  for (const Entry& entry : entries_) worst = std::max(worst, entry.exit_code);
  return worst;
}

namespace {

bool print_color = false;  // set before the command's work begins

}  // namespace

void CReport::SetColor(bool wanted) { print_color = wanted; }

std::string CReport::Text(bool color) const {
  std::vector<Entry> sorted = entries_;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Entry& a, const Entry& b) { return a.line < b.line; });
  std::string text;
  for (const Entry& entry : sorted) {
    text += "qivctl: " + file_;
    if (entry.line != 0) text += ":" + std::to_string(entry.line);
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
