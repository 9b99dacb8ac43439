// What one input costs: processor time and the most memory held at once.
#pragma once

#include <cstddef>
#include <string>

#include "bench/dearest/mixes.h"

namespace qiv::bench {

struct Cost {
  double ns_per_byte = 0;  ///< of this thread's processor time
  double memory = 0;       ///< heap held at once beyond the input, as a multiple of it
  bool blocked = false;    ///< a request was refused, or a text found to be a webshell
};

/// Processor time of this thread: the machine is shared, and other threads of this process are not the input's.
double ThreadSeconds();

class CCosts {
 public:
  /// An installation in a temporary directory, with everything of the profile on.
  CCosts(const std::string& rules, const std::string& profile);
  ~CCosts();
  CCosts(const CCosts&) = delete;
  CCosts& operator=(const CCosts&) = delete;

  bool Ready() const { return ready_; }
  /// The least of `rounds` measurements.
  Cost Measure(const Mix& mix, std::size_t bytes, int rounds);

 private:
  struct Parts;
  bool ready_ = false;
  std::string directory_;
  Parts* parts_ = nullptr;
};

}  // namespace qiv::bench
