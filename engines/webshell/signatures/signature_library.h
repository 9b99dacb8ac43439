// The signature library of the webshell detectors: rules, known-good code and the removal list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {

/// Immutable once built; one object serves all threads.
class CSignatureLibrary {
 public:
  /// What a library is made of. Free code is brought into the form of BlankFreeLower here, removal texts are
  /// lower-cased.
  struct Parts {
    std::vector<SignatureRule> rules;
    std::vector<std::string> free_code;
    std::vector<std::string> removal;
    bool whole_word = false;  ///< terms count only where no word byte stands before or behind them
  };

  /// The widest gap between two terms of a near sequence, in bytes.
  static constexpr std::size_t kNearGap = 10;
  static constexpr std::size_t kNearGapWholeWord = 20;

  CSignatureLibrary() = default;
  explicit CSignatureLibrary(Parts parts);

  struct Match {
    bool known_good = false;              ///< the text holds known-good code; no rule was asked
    const SignatureRule* rule = nullptr;  ///< the first rule that hits, or null
  };

  /// Holds `text` (in the form of BlankFreeLower) against the library: known-good code first, then the kinds in their
  /// order, rules of a kind in library order. `size` is what the size limits are compared with: the length of the file
  /// that the text was made from. One pass over the text.
  Match Find(std::string_view text, std::size_t size) const;

  const std::vector<SignatureRule>& Rules() const { return rules_; }
  const std::vector<std::string>& Removal() const { return removal_; }

 private:
  // A step of an ordered rule waits for one term.
  struct Step {
    std::uint32_t rule;    // index into ordered_
    std::uint32_t number;  // which step of the rule
  };
  // A rule whose terms stand in order.
  struct OrderedRule {
    std::uint32_t rule;        // index into rules_
    std::uint32_t first_step;  // of the near sequences: index of its first queue
    std::uint32_t steps;
    bool near;
  };

  class CSearch;  // signature_library.cpp

  bool IsWholeWord(std::string_view text, std::size_t begin, std::size_t end) const;

  std::vector<SignatureRule> rules_;
  std::vector<std::string> removal_;
  bool whole_word_ = false;
  std::vector<std::uint32_t> order_;  // rules by kind, then library order
  CMultiPattern terms_;
  std::size_t free_code_end_ = 0;                       // patterns before it are free code
  std::vector<std::vector<std::uint32_t>> rule_terms_;  // per rule: required terms, then excluded ones
  std::vector<std::vector<std::uint32_t>> asked_by_;    // per term: places in order_ of the rules it is the longest of
  std::vector<OrderedRule> ordered_;
  std::vector<std::uint32_t> ordered_of_rule_;    // per rule, index into ordered_
  std::vector<std::vector<Step>> steps_of_term_;  // per term
  std::vector<std::uint32_t> queue_size_;         // per queue, a power of two
  std::vector<std::uint32_t> queue_begin_;        // per queue, its place in the room of a search
  std::vector<std::uint32_t> next_length_;        // per queue, bytes of the term that takes from it
  std::size_t queue_room_ = 0;
};

}  // namespace qiv
