#include "engines/injection/injection_library.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <unordered_set>
#include <utility>

#include "common/text.h"
#include "engines/injection/rule_text.h"

namespace qiv {
namespace {

constexpr std::size_t kReservedRules = 1000;  // the usual size of a built-in list

std::string_view FirstWord(const InjectionRule& rule) {
  return rule.words.empty() ? std::string_view{} : std::string_view(rule.words.front());
}

CWordList FirstWords(const std::vector<InjectionRule>& rules) {
  std::vector<std::string> words;
  words.reserve(rules.size());
  std::unordered_set<std::string_view> seen;
  for (const InjectionRule& rule : rules) {
    const std::string_view word = FirstWord(rule);
    words.emplace_back(seen.insert(word).second ? word : std::string_view{});
  }
  return CWordList(words);
}

std::vector<InjectionRule> ReadList(std::string_view builtin_text, std::string_view user_text, std::string_view tag) {
  std::vector<InjectionRule> rules;
  rules.reserve(kReservedRules);
  for (const bool user_defined : {false, true}) {
    const std::string_view text = user_defined ? user_text : builtin_text;
    const char separator = RuleWordSeparator(TaggedPart(text, "separator"));
    std::vector<InjectionRule> part = ParseRules(TaggedPart(text, tag), separator, user_defined);
    std::move(part.begin(), part.end(), std::back_inserter(rules));
  }
  return rules;
}

}  // namespace

InjectionLibrary::InjectionLibrary(std::vector<InjectionRule> rules, std::vector<InjectionRule> keys,
                                   std::vector<InjectionRule> events)
    : rules_(std::move(rules)),
      keys_(std::move(keys)),
      events_(std::move(events)),
      key_words_(FirstWords(keys_)),
      event_words_(FirstWords(events_)) {
  for (std::uint32_t i = 0; i < rules_.size(); ++i) {
    if (!FirstWord(rules_[i]).empty()) rule_index_.push_back(i);
  }
  std::stable_sort(rule_index_.begin(), rule_index_.end(),
                   [this](std::uint32_t a, std::uint32_t b) { return FirstWord(rules_[a]) < FirstWord(rules_[b]); });
}

InjectionLibrary InjectionLibrary::FromText(std::string_view builtin_text, std::string_view user_text) {
  return InjectionLibrary(ReadList(builtin_text, user_text, "sql_rules"), ReadList(builtin_text, user_text, "sql_keys"),
                          ReadList(builtin_text, user_text, "xss_events"));
}

std::ptrdiff_t InjectionLibrary::FindRule(std::string_view word) const {
  if (word.empty()) return -1;  // most segments have none
  const auto found =
      std::lower_bound(rule_index_.begin(), rule_index_.end(), word,
                       [this](std::uint32_t rule, std::string_view w) { return FirstWord(rules_[rule]) < w; });
  if (found == rule_index_.end() || FirstWord(rules_[*found]) != word) return -1;
  return static_cast<std::ptrdiff_t>(*found);
}

}  // namespace qiv
