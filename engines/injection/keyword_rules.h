// The keyword-rule test: which rule of a list has all its words in a text, in order, as whole words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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

  /// The memory of a search, kept for the next one of the same rules: many short texts in a row take none. Of one
  /// thread.
  class CRoom;
  const InjectionRule* FindFirst(const JudgedText& text, CRoom* room) const;

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

  // What a step keeps while it waits. A group is a chain of steps; its first step holds what belongs to the group.
  struct Waiting {
    std::size_t position;
    std::uint32_t next;        // step of the same group
    std::uint32_t last;        // last step of the group
    std::uint32_t next_group;  // first step of the next group in the queue
  };
  struct Queue {
    std::uint32_t front;
    std::uint32_t back;
  };

  class CSearch;  // keyword_rules.cpp

  bool IsWholeWord(std::string_view text, std::size_t begin, std::uint32_t word) const;

  std::vector<InjectionRule> rules_;
  CWordList words_;
  std::vector<Step> steps_;                        // [0] is the root; parents before children
  std::vector<std::uint32_t> first_step_of_word_;  // per word: the root's child for it, or kNone
  std::size_t shortest_ = 0;                       // bytes of the shortest text that a rule matches
};

class CKeywordRules::CRoom {
 private:
  friend class CSearch;

  std::unique_ptr<std::uint64_t[]> set_up_;  // a bit per word: its queue is set up; none between searches
  std::vector<std::uint32_t> words_set_up_;
  std::unique_ptr<Queue[]> queues_;     // per word
  std::unique_ptr<Waiting[]> waiting_;  // per step
};

}  // namespace qiv
