// Bytes that are no text: in them short words stand by chance.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/ascii.h"

namespace qiv {

/// How much of a text is looked at.
inline constexpr std::size_t kBinarySample = 4096;

/// Whether one in sixteen of the first bytes is a control byte that is no white space, which no text has.
inline bool HoldsControlBytes(std::string_view text) {
  constexpr std::size_t kShare = 16;
  const std::string_view sample = text.substr(0, kBinarySample);
  const auto odd = std::count_if(sample.begin(), sample.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x20 && !IsSpace(c); });
  return static_cast<std::size_t>(odd) * kShare > sample.size();
}

}  // namespace qiv
