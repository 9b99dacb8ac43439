// What the access protections cost a plain GET, together and each by itself, and what their counters hold.
#pragma once

#include <string>

namespace qiv::bench {

void RegisterAccessBenchmarks(const std::string& rules);

}  // namespace qiv::bench
