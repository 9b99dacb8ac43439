// AES-CMAC: a keyed tag that only who knows the key can make.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/aes.h"

namespace qiv {

/// AES-CMAC with a 128-bit key (RFC 4493). Immutable after construction; thread safe.
class CCmac {
 public:
  using Tag = std::array<std::uint8_t, CAES::kBlockSize>;

  /// `key` as for CAES.
  explicit CCmac(std::string_view key);

  Tag Of(std::string_view message) const;

 private:
  const CAES cipher_;
  Tag whole_mask_;   ///< for a last block that is whole
  Tag padded_mask_;  ///< for one that had to be padded
};

/// 32 digits, lower case.
std::string TagText(const CCmac::Tag& tag);

/// Whether two texts are equal, in a time that depends on their lengths alone.
bool EqualInConstantTime(std::string_view a, std::string_view b);

}  // namespace qiv
