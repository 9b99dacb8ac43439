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

// Indices of the rules that have a word, sorted by it.
std::vector<std::uint32_t> SortedByWord(const std::vector<InjectionRule>& rules) {
  std::vector<std::uint32_t> index;
  for (std::uint32_t i = 0; i < rules.size(); ++i) {
    if (!FirstWord(rules[i]).empty()) index.push_back(i);
  }
  std::stable_sort(index.begin(), index.end(),
                   [&](std::uint32_t a, std::uint32_t b) { return FirstWord(rules[a]) < FirstWord(rules[b]); });
  return index;
}

std::ptrdiff_t FindWord(const std::vector<InjectionRule>& rules, const std::vector<std::uint32_t>& index,
                        std::string_view word) {
  if (word.empty()) return -1;  // most segments have none
  const auto found = std::lower_bound(index.begin(), index.end(), word, [&](std::uint32_t rule, std::string_view w) {
    return FirstWord(rules[rule]) < w;
  });
  if (found == index.end() || FirstWord(rules[*found]) != word) return -1;
  return static_cast<std::ptrdiff_t>(*found);
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
  rule_index_ = SortedByWord(rules_);
  event_index_ = SortedByWord(events_);
}

InjectionLibrary InjectionLibrary::FromText(std::string_view builtin_text, std::string_view user_text) {
  return InjectionLibrary(ReadList(builtin_text, user_text, "sql_rules"), ReadList(builtin_text, user_text, "sql_keys"),
                          ReadList(builtin_text, user_text, "xss_events"));
}

std::ptrdiff_t InjectionLibrary::FindRule(std::string_view word) const { return FindWord(rules_, rule_index_, word); }

bool InjectionLibrary::IsEvent(std::string_view name) const { return FindWord(events_, event_index_, name) >= 0; }

}  // namespace qiv
