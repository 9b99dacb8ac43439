// What lists of clients and the area library cost, by size.
#pragma once

namespace qiv::bench {

void RegisterAddressBenchmarks();

}  // namespace qiv::bench
