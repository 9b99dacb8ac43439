// A text as the engines are given it, and places in it.
#pragma once

#include <cstddef>
#include <string_view>
#include <type_traits>

#include "common/text.h"

namespace qiv {

/// The two forms in which words are looked for, of one length, so that a place in one is a place in the other.
///
/// Attack words are ASCII, and a text says not in which encoding the application will read it: behind a stray high byte
/// a capital may be the second byte of a character, or (a database that reads "\xA0UNION" as a blank and a keyword) a
/// letter. So they are looked for in a form that is lower-cased byte by byte. That changes characters whose second byte
/// is "A"-"Z" into others; words that hold such characters are looked for in the text as it is (word_list.h).
struct JudgedText {
  JudgedText() = default;
  /// A text that is not to be compared without case, or holds no capitals in any byte.
  template <typename Text>
    requires std::is_convertible_v<const Text&, std::string_view>
  JudgedText(const Text& text) : lowered(text), exact(text) {}  // NOLINT: converting on purpose
  JudgedText(std::string_view lowered_bytes, std::string_view text) : lowered(lowered_bytes), exact(text) {}

  JudgedText Part(TextPlace place) const { return {place.In(lowered), place.In(exact)}; }

  std::string_view lowered;  ///< lower-cased byte by byte by whom case does not matter to
  std::string_view exact;
};

/// The place of `part`, a view into `text`.
inline TextPlace PlaceOf(std::string_view part, std::string_view text) {
  return part.empty() ? TextPlace{} : TextPlace{static_cast<std::size_t>(part.data() - text.data()), part.size()};
}

}  // namespace qiv
