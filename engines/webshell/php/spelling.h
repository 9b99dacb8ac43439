// How a PHP file is written: names and alphabets that nobody writes by hand.
#pragma once

#include <cstdint>
#include <string_view>

namespace qiv {

enum class PhpSpelling : std::uint8_t {
  kOrdinary,
  kBlankNames,  ///< names of nothing but "_", counted up letter by letter
  kLookAlikes,  ///< names of letters that are hard to tell apart
  kForeign,     ///< names in no encoding that people write in
  kScrambled,   ///< labels and jumps that scramble the order of statements
};
/// Linear.
PhpSpelling SpellingOfPhp(std::string_view text);

/// Whether there is nothing but operators, brackets and names without letters: the alphabet is computed. Linear.
bool HasComputedAlphabet(std::string_view text);

}  // namespace qiv
