// The version of everything that is built here.
#pragma once

namespace qiv {

inline constexpr char kVersion[] = "1.0.0";

}  // namespace qiv
