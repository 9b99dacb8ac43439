#include "common/multi_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <tuple>

namespace qiv {
namespace {

struct Occurrence {
  std::uint32_t pattern;
  std::size_t start;
  bool operator==(const Occurrence&) const = default;
};
using Occurrences = std::vector<Occurrence>;

// Every occurrence by plain comparison, as a search by ends and as one by starts must order them.
std::pair<Occurrences, Occurrences> SlowFind(std::string_view text, const std::vector<std::string>& patterns) {
  Occurrences all;
  for (std::uint32_t p = 0; p < patterns.size(); ++p) {
    for (std::size_t s = 0; !patterns[p].empty() && s < text.size(); ++s) {
      if (text.substr(s).starts_with(patterns[p])) all.push_back({p, s});
    }
  }
  const auto length = [&](const Occurrence& o) { return patterns[o.pattern].size(); };
  Occurrences by_start = all;
  std::sort(all.begin(), all.end(), [&](const Occurrence& a, const Occurrence& b) {
    return std::tuple(a.start + length(a), a.start, a.pattern) < std::tuple(b.start + length(b), b.start, b.pattern);
  });
  std::sort(by_start.begin(), by_start.end(), [&](const Occurrence& a, const Occurrence& b) {
    return std::tuple(a.start, length(a), a.pattern) < std::tuple(b.start, length(b), b.pattern);
  });
  return {all, by_start};
}

void Compare(std::string_view content, const std::vector<std::string>& patterns, const CMultiPattern& automaton) {
  const auto block = std::make_unique<char[]>(content.size());  // no byte behind the end
  std::copy(content.begin(), content.end(), block.get());
  const std::string_view text(block.get(), content.size());
  Occurrences by_end;
  automaton.Find(text, [&](std::uint32_t pattern, std::size_t start) {
    by_end.push_back({pattern, start});
    return true;
  });
  Occurrences by_start;
  automaton.FindByStart(text, [&](std::size_t start, const std::uint32_t* found, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) by_start.push_back({found[i], start});
    return true;
  });
  const auto [expected_by_end, expected_by_start] = SlowFind(text, patterns);
  ASSERT_EQ(by_end, expected_by_end) << content;
  ASSERT_EQ(by_start, expected_by_start) << content;
}

// With the whole automaton as a table, with a table of the first few states, and with the initial state's row alone.
constexpr std::size_t kDenseSizes[] = {CMultiPattern::kDenseEntries, 12, 0};

TEST(MultiPattern, AllPatternSetsOverAllTexts) {
  std::vector<std::string> words;  // all words of at most 3 letters over "ab"
  for (std::size_t length = 0; length <= 3; ++length) {
    for (unsigned bits = 0; bits < 1U << length; ++bits) {
      std::string word;
      for (std::size_t i = 0; i < length; ++i) word += (bits >> i & 1) != 0 ? 'b' : 'a';
      words.push_back(word);
    }
  }
  std::vector<std::string> texts;
  for (unsigned code = 0; code < 729; ++code) {  // all texts of 6 letters over "abc"
    std::string text;
    for (unsigned rest = code, i = 0; i < 6; ++i, rest /= 3) text += static_cast<char>('a' + rest % 3);
    texts.push_back(text);
  }
  for (std::size_t i = 0; i < words.size(); ++i) {
    for (std::size_t j = 0; j < words.size(); ++j) {
      const std::vector<std::string> patterns = {words[i], words[j], "aba"};
      const CMultiPattern automaton(patterns, kDenseSizes[(i + j) % std::size(kDenseSizes)]);
      for (const std::string& text : texts) Compare(text, patterns, automaton);
    }
  }
}

TEST(MultiPattern, RandomSets) {
  std::mt19937 random(3);
  for (int i = 0; i < 6000; ++i) {
    const std::size_t letters = 1 + random() % 4;
    const char first = i % 2 == 0 ? 'a' : '\xFD';  // so that bytes wrap past 0xFF
    const auto word = [&](std::size_t longest) {
      std::string text;
      for (std::size_t n = random() % (longest + 1); n > 0; --n) {
        text += static_cast<char>(first + static_cast<char>(random() % letters));
      }
      return text;
    };
    std::vector<std::string> patterns(random() % 12);
    for (std::string& pattern : patterns) pattern = word(random() % 8 == 0 ? 60 : 6);
    const CMultiPattern automaton(patterns, kDenseSizes[random() % std::size(kDenseSizes)]);
    for (int t = 0; t < 5; ++t) Compare(word(80), patterns, automaton);
  }
}

TEST(MultiPattern, EveryByteValueAndLargeSets) {
  std::vector<std::string> patterns;
  std::string text;
  for (int byte = 0; byte < 256; ++byte) {
    patterns.push_back(std::string(1 + static_cast<std::size_t>(byte) % 3, static_cast<char>(byte)));
    text += patterns.back();
  }
  Compare(text, patterns, CMultiPattern(patterns));
  patterns.clear();
  text.clear();
  for (int i = 0; i < 3000; ++i) {  // more states than the table takes
    patterns.push_back("pattern number " + std::to_string(i * 7919) +
                       std::string(static_cast<std::size_t>(i % 40), 'z'));
    if (i % 100 == 0) text += patterns.back() + patterns.back().substr(3);
  }
  Compare(text, patterns, CMultiPattern(patterns, 1 << 16));
}

TEST(MultiPattern, StopsWhenTold) {
  const CMultiPattern automaton({"a", "aa"});
  int calls = 0;
  automaton.Find("aaaa", [&](std::uint32_t, std::size_t) { return ++calls < 3; });
  EXPECT_EQ(calls, 3);
  calls = 0;
  automaton.FindByStart("aaaa", [&](std::size_t, const std::uint32_t*, std::uint32_t) { return ++calls < 2; });
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(CMultiPattern({"", ""}).Empty());
}

}  // namespace
}  // namespace qiv
