// What takes back the steps of a change that did not come to its end.
#pragma once

#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "setup/machine.h"

namespace qiv::setup {

/// What `work` returns, or why it threw.
template <typename Work>
Fault Caught(Work work) {
  try {
    return work();
  } catch (const std::exception& error) {
    return error.what();
  }
}

/// Steps are named before they are made, so that one that was made only in part is taken back too: each way back looks
/// at what there is.
class CTransaction {
 public:
  void OnRollback(std::string what, std::function<Fault()> way_back) {
    steps_.emplace_back(std::move(what), std::move(way_back));
  }
  /// From here on nothing is taken back.
  void Commit() { steps_.clear(); }
  /// Takes everything back, the last step first. "WHAT: REASON" of each step that could not be.
  std::vector<std::string> Rollback() {
    std::vector<std::string> left;
    while (!steps_.empty()) {
      const auto [what, way_back] = std::move(steps_.back());
      steps_.pop_back();
      if (const Fault fault = Caught(way_back); !fault.empty()) left.push_back(what + ": " + fault);
    }
    return left;
  }

 private:
  std::vector<std::pair<std::string, std::function<Fault()>>> steps_;
};

}  // namespace qiv::setup
