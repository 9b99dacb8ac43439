#include "bench/flatness.h"

#include <algorithm>
#include <cstdio>

namespace qiv::bench {

void CFlatnessReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs) {
    const auto counter = run.counters.find("ns_per_byte");
    if (run.error_occurred || counter == run.counters.end() || run.run_type != Run::RT_Iteration) continue;
    const std::string name = run.run_name.function_name;
    costs_[name].push_back({run.run_name.args, counter->second.value});
  }
}

void CFlatnessReporter::Finalize() {
  ConsoleReporter::Finalize();
  if (costs_.empty()) return;
  std::printf("\nNanoseconds per byte by size (bytes:cost), and the largest divided by the smallest\n");
  for (const auto& [name, costs] : costs_) {
    const auto [low, high] = std::minmax_element(
        costs.begin(), costs.end(), [](const Cost& a, const Cost& b) { return a.ns_per_byte < b.ns_per_byte; });
    std::printf("%-28s x%.2f ", name.c_str(), high->ns_per_byte / low->ns_per_byte);
    for (const Cost& cost : costs) std::printf(" %s:%.2f", cost.size.c_str(), cost.ns_per_byte);
    std::printf("\n");
  }
}

}  // namespace qiv::bench
