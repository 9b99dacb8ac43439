// The keyword-rule test: which rule of a list has all its words in a text, in order, as whole words.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "engines/injection/injection_rule.h"
#include "engines/injection/word_list.h"

namespace qiv {

/// A rule list prepared for searching. Immutable after construction; one object serves all threads.
class CKeywordRules {
 public:
  CKeywordRules() = default;
  explicit CKeywordRules(std::vector<InjectionRule> rules);

  const std::vector<InjectionRule>& Rules() const { return rules_; }
  bool Empty() const { return rules_.empty(); }

  /// The first rule in list order whose every word occurs in the text in the list's order, each at or after the end of
  /// the one before, as whole characters (word_list.h), and as a whole word where its first or last byte is a word
  /// byte; a search for a word goes on from the END of an occurrence that failed the whole-word test. Null when none. A
  /// rule without words, or with an empty word among them, matches nothing. One pass over the text whatever the list.
  const InjectionRule* FindFirst(const JudgedText& text) const;

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFU;

  // A node of the tree of word lists: rules that begin with the same words share the nodes of these words.
  struct Step {
    std::uint32_t word = kNone;        // pattern number in words_
    std::uint32_t rule = kNone;        // first rule that ends here
    std::uint32_t best_below = kNone;  // first rule that ends here or further down
    std::uint32_t first_child = kNone;
    std::uint32_t next_sibling = kNone;
  };

  class CSearch;  // keyword_rules.cpp

  bool IsWholeWord(std::string_view text, std::size_t begin, std::uint32_t word) const;

  std::vector<InjectionRule> rules_;
  CWordList words_;
  std::vector<Step> steps_;                        // [0] is the root; parents before children
  std::vector<std::uint32_t> first_step_of_word_;  // per word: the root's child for it, or kNone
};

}  // namespace qiv
