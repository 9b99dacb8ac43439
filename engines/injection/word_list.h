// The words of a rule list, prepared for finding them all in one pass, and as whole characters.
//
// A word of ASCII bytes, or of high bytes that make no character of two bytes, is found byte by byte, whatever stands
// around it: no byte before it can hide it. A word that holds characters of two bytes (GBK) is text in Chinese, say,
// and is found only where it stands as such: it begins and ends between characters, and its characters have exactly
// these bytes, lower-casing left aside. Without that a word of one character would be found across two others, and in
// others whose second byte differs by the bit that tells "A" from "a".
//
// So the automaton runs over the lower-cased form and offers occurrences; those of words with such characters are then
// compared with the text as it is. Where characters begin is known by walking over the text once, up to the occurrence
// and no further than the longest word behind the furthest one: linear in the text, and nothing at all for lists of
// ASCII words.
// Tested by tests/engines/injection/keyword_rules_test.cpp against plain searches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "engines/injection/judged_text.h"

namespace qiv {

/// Immutable once built; one object serves all threads. Words are numbered by their index; an empty one never occurs.
class CWordList {
 public:
  CWordList() = default;
  explicit CWordList(const std::vector<std::string>& words);

  /// What occurs in the lower-cased form; CWholeCharacters says which of it counts.
  const CMultiPattern& Patterns() const { return patterns_; }
  bool HasCharacters() const { return !with_characters_.empty(); }

  /// First occurrence of any word in the text, in order of its end; npos when there is none.
  std::size_t FindFirst(const JudgedText& text) const;

 private:
  friend class CWholeCharacters;

  CMultiPattern patterns_;
  std::vector<std::string> with_characters_;  // per word, itself when it holds characters of two bytes; or no entry
  std::size_t longest_ = 0;
};

/// One search of a text. Occurrences come in order of their beginnings or of their ends.
class CWholeCharacters {
 public:
  /// Both are kept by reference.
  CWholeCharacters(const CWordList& words, std::string_view exact) : words_(words), exact_(exact) {}

  bool Counts(std::uint32_t word, std::size_t begin) {
    return words_.with_characters_.empty() || words_.with_characters_[word].empty() || IsWhole(word, begin);
  }

 private:
  bool IsWhole(std::uint32_t word, std::size_t begin);
  bool BeginsCharacter(std::size_t pos);

  const CWordList& words_;
  std::string_view exact_;
  std::size_t walked_ = 0;    // a character begins here; what is asked for later does not lie before
  std::size_t furthest_ = 0;  // beginning asked for
};

/// First place at which `word` counts in the text, npos when none. For texts about a hit, not for searching requests.
std::size_t FindWord(const JudgedText& text, const std::string& word);

}  // namespace qiv
