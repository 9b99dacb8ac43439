// Benchmarks of the search for webshells in request bodies: "webshell_check:KIND/BYTES".
#pragma once

namespace qiv::bench {

/// Ordinary bodies, and bodies made to be dear.
void RegisterRequestWebshellBenchmarks();

}  // namespace qiv::bench
