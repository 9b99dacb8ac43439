// Weighs the words of a script: what shells speak about, and ordinary applications seldom.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qiv {

enum class RiskLanguage : std::uint8_t { kPhp, kAsp, kAspx };

struct RiskScore {
  std::int32_t score = 0;     ///< compared with the limits below
  std::string_view heaviest;  ///< the weightiest word that was met (a view of the table)
  std::size_t begin = 0;      ///< of that word in the text
};

/// A text of this score is reported. Pages hold fewer such words by chance than PHP programs do.
inline constexpr std::int32_t kPhpRiskLimit = 100;
inline constexpr std::int32_t kPageRiskLimit = 80;

/// The weights of all different listed words of `text` added up, each counted once, letters compared without case. A
/// word is a run of letters, digits and "_"; in pages, words of lists ("a|b", ",a,") are left out. Linear; takes no
/// memory.
RiskScore ScoreRiskWords(std::string_view text, RiskLanguage language);

}  // namespace qiv
