// The keyword-rule test: which rule of a list has all its words in a text, in order, as whole words.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "engines/injection_rule.h"

namespace qiv {

/// A rule list prepared for searching. Immutable after construction; one object serves all threads.
class CKeywordRules {
 public:
  CKeywordRules() = default;
  explicit CKeywordRules(std::vector<InjectionRule> rules);

  const std::vector<InjectionRule>& Rules() const { return rules_; }
  bool Empty() const { return rules_.empty(); }

  /// The first rule in list order whose every word occurs in the text in the list's order, each at or after the end of
  /// the one before, as a whole word where its first or last byte is a word byte; a search for a word goes on from the
  /// END of an occurrence that failed the whole-word test. Null when none. One pass over the text whatever the list.
  const InjectionRule* FindFirst(std::string_view text) const;

 private:
  std::vector<InjectionRule> rules_;
  CMultiPattern words_;
  // How the rules share their beginnings is the implementation's business; see keyword_rules.cpp.
  struct Step {
    std::uint32_t word;               // pattern number in words_
    std::int32_t rule;                // smallest rule that ends here, or -1
    std::vector<std::uint32_t> next;  // steps that follow
  };
  std::vector<Step> steps_;
  std::vector<std::uint32_t> first_steps_;
};

}  // namespace qiv
