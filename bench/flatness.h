// Prints, after the ordinary table, what one byte costs at each size and how far the costs lie apart.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace qiv::bench {

/// A console reporter that remembers every run whose name ends in "/<bytes>" and that sets the counter "ns_per_byte".
class CFlatnessReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  struct Cost {
    std::string size;
    double ns_per_byte;
  };
  std::map<std::string, std::vector<Cost>> costs_;
};

}  // namespace qiv::bench
