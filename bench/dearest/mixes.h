// Texts made at random of the words and marks that the detectors know: what the search of this folder tries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace qiv::bench {

/// How the tokens of a mix are put one after the other.
enum class Shape : std::uint8_t {
  kCycle,    ///< again and again in order
  kShuffle,  ///< at random
  kNest,     ///< the first half of the tokens up to the middle of the text, then the second half
};

/// A text of any length: what it begins with, and what follows. As text ("asp:0:c:12,40,7"), to be tried again.
struct Mix {
  std::size_t kind = 0;  ///< index into KindNames()
  std::size_t head = 0;  ///< of the heads of the kind
  Shape shape = Shape::kCycle;
  std::vector<std::size_t> tokens;  ///< one to eight

  std::string Name() const;
  /// The bytes of the unit, escaped, for people.
  std::string Shown() const;
};

/// The kinds of input: texts for the webshell scan ("php", "script"), the analyses of pages alone ("asp", "aspx") or
/// the search for the families of attack ("attacks"), and requests, through all notifications of the module.
std::vector<std::string_view> KindNames();

std::optional<Mix> ParseMix(std::string_view name);

Mix RandomMix(std::size_t kind, std::mt19937_64* random);

/// A mix one or two changes away.
Mix Changed(const Mix& mix, std::mt19937_64* random);

/// `bytes` bytes of it. "\x01" in a token becomes a name that occurs nowhere else in the text.
std::string TextOf(const Mix& mix, std::size_t bytes);

}  // namespace qiv::bench
