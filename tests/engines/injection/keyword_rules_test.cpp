#include "engines/injection/keyword_rules.h"

#include <gtest/gtest.h>

#include "common/char_set.h"
#include "tests/engines/injection/slow_detectors.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

using WordLists = std::vector<std::vector<std::string>>;

CKeywordRules Rules(const WordLists& lists) {
  std::vector<InjectionRule> rules;
  for (const std::vector<std::string>& words : lists) rules.push_back({"", "", "", "", words});
  return CKeywordRules(std::move(rules));
}

void Compare(std::string_view text, const CKeywordRules& rules) {
  const std::string lowered = CCharSet::LowerBytes(text);
  const InjectionRule* const found = rules.FindFirst({lowered, text});
  ASSERT_EQ(found == nullptr ? -1 : found - rules.Rules().data(), slow::FirstKeywordRule(text, rules.Rules()))
      << "text: " << testing::PrintToString(std::string(text));
}

TEST(KeywordRules, AgreeWithTheSearchWordAfterWord) {
  const CKeywordRules lists[] = {
      Rules({{"a", "a"}, {"a"}}),                                     // doubled word
      Rules({{"aa", "a"}, {"a", "aa"}, {"aa"}}),                      // substrings of each other
      Rules({{"a a", "a"}, {".", "a a"}, {"a a"}}),                   // overlaps itself across a failed test
      Rules({{"a.", ".a"}, {".a", "a."}, {".."}, {"."}}),             // touching occurrences
      Rules({{"_", "b", "a"}, {"_", "b"}, {"b", "_", "b"}, {"b."}}),  // shared beginnings, the later rule first
      Rules({{}, {""}, {"a", ""}, {"b"}, {"b"}}),                     // nothing to match; a rule twice
      Rules({{"b", "a a"}, {"a", "a a"}, {"a a", "a a"}}),
  };
  const Tokens tokens = {"a", "b", "_", ".", " "};
  for (const CKeywordRules& rules : lists) {
    ForEachSequence(tokens, 6, [&](std::string_view text) { Compare(text, rules); });
    ForRandomSequences(tokens, 40, 4000, [&](std::string_view text) { Compare(text, rules); });
  }
}

TEST(KeywordRules, AgreeOnCharactersOfTwoBytes) {
  const CKeywordRules lists[] = {
      Rules({{"\xE9\x46"}, {"\xE9\x66", "u"}, {"\xE9\x66"}}),        // a capital and a small letter as second bytes
      Rules({{"\xD6\xD0"}, {"\xD0\xD6"}, {"u\xD6\xD0"}, {"\xD6"}}),  // each found across two of the other
      Rules({{"\xD6\xD0\xE9"}, {"\xD0u", "\xD6\xD0"}, {"\xD0U"}, {"u"}}),  // an open end; "u" behind a stray byte
  };
  const Tokens tokens = {"\xE9", "\xD6", "\xD0", "F", "f", "U", "u", " "};
  for (const CKeywordRules& rules : lists) {
    ForEachSequence(tokens, 5, [&](std::string_view text) { Compare(text, rules); });
    ForRandomSequences(tokens, 60, 8000, [&](std::string_view text) { Compare(text, rules); });
  }
}

TEST(KeywordRules, AgreeOnRandomLists) {
  std::mt19937 random(7);
  const Tokens parts = {"a", "b", ".", " ", "_"};
  const auto word = [&] {
    std::string text;
    for (std::size_t n = 1 + random() % 4; n > 0; --n) text += parts[random() % parts.size()];
    return text;
  };
  for (int i = 0; i < 400; ++i) {
    Tokens words;
    for (int w = 0; w < 5; ++w) words.push_back(word());
    WordLists lists(1 + random() % 10);
    for (auto& list : lists) {
      for (std::size_t n = 1 + random() % 4; n > 0; --n) list.push_back(words[random() % words.size()]);
    }
    const CKeywordRules rules = Rules(lists);
    words.insert(words.end(), parts.begin(), parts.end());
    ForRandomSequences(words, 24, 100, [&](std::string_view text) { Compare(text, rules); });
  }
}

TEST(KeywordRules, Cases) {
  const CKeywordRules rules = Rules({{"union", "select"}, {"select", "from"}, {"'", "or"}});
  const std::pair<std::string_view, std::ptrdiff_t> cases[] = {
      {"union select", 0},
      {"select union", -1},
      {"select x from y union select", 0},
      {"unions select", -1},
      {"un_union select from x", 1},
      {"union(select)", 0},
      {"x'or 1", 2},
      {"x'order", -1},
      {"unionselect", -1},
      {"", -1},
      {"\xD6\xD0union\xD6\xD0select", 0},
  };
  for (const auto& [text, rule] : cases) {
    const InjectionRule* const found = rules.FindFirst(text);
    EXPECT_EQ(found == nullptr ? -1 : found - rules.Rules().data(), rule) << text;
  }
  EXPECT_EQ(CKeywordRules().FindFirst("union select"), nullptr);
}

}  // namespace
}  // namespace qiv
