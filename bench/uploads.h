// What upload protection costs by the byte, alone and together with injection protection.
#pragma once

namespace qiv::bench {

void RegisterUploadBenchmarks();

}  // namespace qiv::bench
