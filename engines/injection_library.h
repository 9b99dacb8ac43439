// The process-wide rules of the injection detectors.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "engines/injection_rule.h"

namespace qiv {

/// Three rule lists in library order, with the automata that find them. Immutable once built; replaced whole on reload.
class InjectionLibrary {
 public:
  InjectionLibrary() = default;
  InjectionLibrary(std::vector<InjectionRule> rules, std::vector<InjectionRule> keys,
                   std::vector<InjectionRule> events);

  /// Builds the library from the deciphered text of the built-in library file and of the user-defined one (either may
  /// be empty): tags <sql_rules>, <sql_keys>, <xss_events>, <separator>. User-defined entries follow the built-in ones.
  static InjectionLibrary FromText(std::string_view builtin_text, std::string_view user_text);

  const std::vector<InjectionRule>& Rules() const { return rules_; }    ///< rule words
  const std::vector<InjectionRule>& Keys() const { return keys_; }      ///< cut words
  const std::vector<InjectionRule>& Events() const { return events_; }  ///< HTML event attribute names

  /// Index of the first rule whose first word equals `word`, or -1.
  std::ptrdiff_t FindRule(std::string_view word) const;
  /// Patterns are numbered like Keys() / Events(); an entry without words is an empty pattern.
  const CMultiPattern& KeyPatterns() const { return key_patterns_; }
  const CMultiPattern& EventPatterns() const { return event_patterns_; }

 private:
  std::vector<InjectionRule> rules_;
  std::vector<InjectionRule> keys_;
  std::vector<InjectionRule> events_;
  std::vector<std::pair<std::string_view, std::size_t>> rule_index_;  // sorted by word
  CMultiPattern key_patterns_;
  CMultiPattern event_patterns_;
};

}  // namespace qiv
