#include "tools/scan_progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "port/console.h"

namespace qiv {
namespace {

constexpr std::size_t kBarColumns = 24;
constexpr int kEcho = 2;          // columns of "^C", which the terminal itself writes behind the bar
constexpr double kSoonest = 1.0;  // seconds before which a rate says nothing

std::string TwoDigits(std::uint64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

std::string Bar(double share) {
  const auto full = static_cast<std::size_t>(share * static_cast<double>(kBarColumns));
  return "[" + std::string(full, '#') + std::string(kBarColumns - full, '.') + "]";
}

}  // namespace

std::string Grouped(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t p = text.size(); p > 3;) text.insert(p -= 3, 1, ',');
  return text;
}

std::string Duration(double seconds) {
  const auto whole = static_cast<std::uint64_t>(seconds);
  if (seconds < 10) {
    const auto tenths = static_cast<std::uint64_t>(std::lround(seconds * 10));
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
  }
  if (whole < 60) return std::to_string(whole) + " s";
  const std::string minutes = std::to_string(whole / 60 % 60);
  const std::string rest = ":" + TwoDigits(whole % 60);
  if (whole < 3600) return minutes + rest;
  return std::to_string(whole / 3600) + ":" + TwoDigits(whole / 60 % 60) + rest;
}

std::string ProgressLine(const FileScanTotals& totals, double seconds, int width) {
  const double share = totals.met == 0 ? 0 : static_cast<double>(totals.done) / static_cast<double>(totals.met);
  std::string line;
  if (totals.all_met) line = Bar(share) + " " + std::to_string(static_cast<int>(share * 100)) + " %  ";
  line += Grouped(totals.done) + "/" + Grouped(totals.met) + (totals.all_met ? "" : "+") + " files";
  if (seconds >= kSoonest) {
    const auto a_second = [seconds](std::uint64_t sum) {
      return Grouped(static_cast<std::uint64_t>(static_cast<double>(sum) / seconds));
    };
    line += "  " + a_second(totals.done) + " files/s  " + a_second(totals.bytes / 1'000'000) + " MB/s";
    if (totals.all_met && totals.done > 0) line += "  " + Duration(seconds / share - seconds) + " left";
  }
  if (totals.findings + totals.suspicious > 0) line += "  " + Grouped(totals.findings + totals.suspicious) + " found";
  return line.substr(0, static_cast<std::size_t>(std::max(width, 0)));
}

void CScanProgress::Show(const FileScanTotals& totals, std::int64_t now) {
  const int width = TerminalWidth();
  if (width == 0) return;
  // One column less: a terminal that is written to its edge goes to the next line.
  std::string line = ProgressLine(totals, static_cast<double>(now - begin_) * 1e-6, width - 1 - kEcho);
  const std::size_t columns = line.size();
  if (columns < shown_) line.append(shown_ - columns, ' ');
  shown_ = columns;
  line.insert(0, 1, '\r');
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

void CScanProgress::Clear() {
  if (shown_ == 0) return;
  const std::string line = "\r" + std::string(shown_ + kEcho, ' ') + "\r";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  shown_ = 0;
}

}  // namespace qiv
