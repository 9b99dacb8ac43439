// The process-wide rules of the injection detectors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engines/injection/injection_rule.h"
#include "engines/injection/word_list.h"

namespace qiv {

/// Three rule lists in library order, with what finds their words. Immutable once built; replaced whole on reload.
/// The detectors look at the first word of each rule; of rules with the same first word only the first one counts.
class InjectionLibrary {
 public:
  InjectionLibrary() = default;
  InjectionLibrary(std::vector<InjectionRule> rules, std::vector<InjectionRule> keys,
                   std::vector<InjectionRule> events);

  /// Builds the library from the deciphered text of the built-in library file and of the user-defined one (either may
  /// be empty): tags <sql_rules>, <sql_keys>, <xss_events>, each a rule list, and <separator>, which divides the words
  /// of that file's lists. User-defined entries follow the built-in ones.
  static InjectionLibrary FromText(std::string_view builtin_text, std::string_view user_text);

  const std::vector<InjectionRule>& Rules() const { return rules_; }    ///< rule words
  const std::vector<InjectionRule>& Keys() const { return keys_; }      ///< cut words
  const std::vector<InjectionRule>& Events() const { return events_; }  ///< HTML event attribute names

  /// Whether it is the name of an event attribute, in lower case.
  bool IsEvent(std::string_view name) const;
  /// Index of the first rule whose first word equals `word`, or -1.
  std::ptrdiff_t FindRule(std::string_view word) const;
  /// Words are numbered like Keys() / Events(); an entry without a word, and one whose word an earlier entry has, never
  /// occurs.
  const CWordList& KeyWords() const { return key_words_; }
  const CWordList& EventWords() const { return event_words_; }

 private:
  std::vector<InjectionRule> rules_;
  std::vector<InjectionRule> keys_;
  std::vector<InjectionRule> events_;
  std::vector<std::uint32_t> rule_index_;   // the rules that have a word, sorted by it
  std::vector<std::uint32_t> event_index_;  // the same of the events
  CWordList key_words_;
  CWordList event_words_;
};

}  // namespace qiv
