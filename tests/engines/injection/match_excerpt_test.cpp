#include "engines/injection/match_excerpt.h"

#include <gtest/gtest.h>

#include <random>

#include "common/char_set.h"

namespace qiv {
namespace {

bool IsBoundary(std::string_view text, std::size_t pos) {
  std::size_t at = 0;
  while (at < pos) at += CCharSet::CharacterLength(text, at);
  return at == pos;
}

TEST(MatchExcerpt, AsciiTexts) {
  const std::string text500(500, 'a');
  const auto at = [](std::size_t pos, std::size_t size) {  // a text whose only "key" begins at `pos`
    std::string text(size, 'a');
    return text.replace(pos, 3, "key");
  };
  const struct {
    std::string text, keyword;
    std::size_t begin, end;
  } cases[] = {
      {"", "key", 0, 0},
      {text500, "", 0, 0},
      {text500, "key", 0, 500},
      {at(10, 501), "key", 0, 500},
      {at(497, 600), "key", 0, 500},
      {at(498, 600), "key", 248, 600},
      {at(498, 800), "key", 248, 748},
      {at(700, 703), "key", 450, 703},
      {std::string(600, 'b'), "key", 0, 500},
      {std::string(100, 'a') + std::string(900, 'k'), std::string(600, 'k'), 0, 500},
      {std::string(251, 'a') + std::string(900, 'k'), std::string(600, 'k'), 1, 501},
  };
  for (const auto& c : cases) {
    const std::string expected = (c.begin > 0 ? "..." : "") + c.text.substr(c.begin, c.end - c.begin) +
                                 (c.keyword.empty() || c.end == c.text.size() ? "" : "...");
    EXPECT_EQ(MatchExcerpt(c.text, c.keyword), expected) << c.begin << " " << c.end;
  }
  EXPECT_EQ(MatchExcerpt("abc", std::vector<std::string>{"b", "x"}), "abc");
  EXPECT_EQ(MatchExcerpt("abc", std::vector<std::string>{}), "");
}

// Characters of every kind: pairs of lead bytes, ASCII trail bytes, stray lead bytes before ASCII.
TEST(MatchExcerpt, NeverSplitsACharacter) {
  const std::string_view characters[] = {"\xD6\xD0", "\x81\xFE", "\xC1\\", "\xC1|", "a", "\xFE ", "\x80", "\xFF"};
  std::mt19937 random(11);
  for (int i = 0; i < 3000; ++i) {
    std::string text;
    const std::size_t kinds = 1 + random() % std::size(characters);
    const std::size_t size = 490 + random() % 600;
    while (text.size() < size) text += characters[random() % kinds];
    std::size_t key = random() % text.size();
    while (!IsBoundary(text, key)) --key;
    text.insert(key, "key");
    const std::string excerpt = MatchExcerpt(text, "key");
    ASSERT_LE(excerpt.size(), 508U);
    ASSERT_NE(excerpt.find("key"), std::string::npos);
    const bool cut_before = excerpt.starts_with("...");
    const std::size_t begin = key + (cut_before ? 3 : 0) - excerpt.find("key");
    std::string_view middle = excerpt;
    if (cut_before) middle.remove_prefix(3);
    if (!text.ends_with(middle)) {
      ASSERT_TRUE(middle.ends_with("..."));
      middle.remove_suffix(3);
    }
    ASSERT_EQ(text.compare(begin, middle.size(), middle), 0);
    ASSERT_TRUE(IsBoundary(text, begin)) << testing::PrintToString(text);
    ASSERT_TRUE(IsBoundary(text, begin + middle.size())) << testing::PrintToString(text);
    if (cut_before) {
      ASSERT_LE(key - begin, 251U);
      ASSERT_GE(key - begin, 250U);
    }
  }
}

}  // namespace
}  // namespace qiv
