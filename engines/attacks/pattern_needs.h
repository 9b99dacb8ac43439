// What a text must hold for a pattern to be found in it: which marks anywhere, and which bytes beside a word. Most
// occurrences of words are let go at that.
#pragma once

#include <bitset>
#include <cstddef>
#include <string_view>

#include "engines/attacks/attack_pattern.h"
#include "engines/attacks/text_marks.h"

namespace qiv {

/// The marks that every text holds in which the pattern is found.
TextMarks MarksNeeded(const AttackPattern& pattern);

/// Bytes, and the text's begin or end.
using Neighbours = std::bitset<257>;
inline constexpr std::size_t kTextEdge = 256;

/// What can stand right before the step's word, and right behind it.
Neighbours BytesBefore(const AttackPattern& pattern, std::size_t step, std::string_view word);
Neighbours BytesBehind(const AttackPattern& pattern, std::size_t step, std::string_view word);

}  // namespace qiv
