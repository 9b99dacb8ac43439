#include "common/text.h"

#include <gtest/gtest.h>

#include <random>

#include "common/char_set.h"

namespace qiv {
namespace {

using Cases = std::vector<std::pair<std::string_view, std::string_view>>;
using Parts = std::vector<std::string_view>;

TEST(Text, Trim) {
  const Cases cases = {{"", ""}, {" \t\n\v\f\r", ""}, {" a b\r\n", "a b"}, {"\xA0 a", "\xA0 a"}};
  for (const auto& [text, trimmed] : cases) EXPECT_EQ(Trim(text), trimmed);
  EXPECT_EQ(TrimBytes(",, a,b ,", ", "), "a,b");
  EXPECT_EQ(TrimBytes(", ,", ", "), "");
}

TEST(Text, SplitKeepsCharactersWhole) {
  EXPECT_EQ(Split("", '|'), Parts());
  EXPECT_EQ(Split("|a||", '|'), (Parts{"", "a", "", ""}));
  EXPECT_EQ(Split("\xC1|\xD6\xD0|\xC1\xC1|", '|'), (Parts{"\xC1|\xD6\xD0", "\xC1\xC1", ""}));
  EXPECT_EQ(Split("", "{#}"), Parts());
  EXPECT_EQ(Split("a{#}{#}b{#", "{#}"), (Parts{"a", "", "b{#"}));
  EXPECT_EQ(Split("\xC1{#}b{#}", "{#}"), (Parts{"\xC1{#}b", ""}));
  EXPECT_EQ(Split("\xC1\xC1{#}\xC1{{#}c", "{#}"), (Parts{"\xC1\xC1", "\xC1{", "c"}));
}

TEST(Text, ReplaceAll) {
  EXPECT_EQ(ReplaceAll("aaa", "aa", "b"), "ba");
  EXPECT_EQ(ReplaceAll("a{{x}}{{x}}", "{{x}}", "{{x}}!"), "a{{x}}!{{x}}!");
  EXPECT_EQ(ReplaceAll("abc", "", "x"), "abc");
}

TEST(Text, PercentDecode) {
  const Cases cases = {
      {"", ""},
      {"a+b%20c", "a+b c"},
      {"%3c%3C%3Cx", "<<<x"},
      {"%2541", "%41"},
      {"%", "%"},
      {"%4", "%4"},
      {"%4g%g4%%41", "%4g%g4%A"},
      {"%u003c%U003E", "<>"},
      {"%u4e2d\xD6\xD0", "\xD6\xD0\xD6\xD0"},
      {"%u003", "%u003"},
      {"%u00zz%u", "%u00zz%u"},
      {"%00x", std::string_view("\0x", 2)},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(PercentDecode(text), decoded) << text;
}

TEST(Text, DecodeHtmlEntities) {
  const Cases cases = {
      {"&lt;&LT;&Lt;&gt;&quot;&apos;&amp;lt;", "<<<>\"'&lt;"},
      {"java&Tab;script&colon;alert&lpar;1&rpar;&NewLine;", "java\tscript:alert(1)\n"},
      {"&lt x&lt", "< x<"},
      {"a=1&lt=2&ltx=3&lt4", "a=1&lt=2&ltx=3&lt4"},  // parameters of a query, no references
      {"&colon &colon", "&colon &colon"},
      {"&nbsp;&#160;&NonBreakingSpace;", "   "},
      {"&#60;&#x3c;&#X3C;&#60x&#0000000000000000000060;&#x3cg", "<<<<x<<g"},
      {"&#20013;&#x4e2d;", "\xD6\xD0\xD6\xD0"},
      {"&#0;&#xd800;&#x110000;&#99999999999999999999;", "&#0;&#xd800;&#x110000;&#99999999999999999999;"},
      {"&#128512;", "?"},
      {"&#;&#x;&#&&;&", "&#;&#x;&#&&;&"},
      {"&unknown;&averyveryverylongname;", "&unknown;&averyveryverylongname;"},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(DecodeHtmlEntities(text), decoded) << text;
}

TEST(Text, HtmlEscape) {
  const Cases cases = {
      {"<a b=\"c\" d='e'>&", "&lt;a b=&quot;c&quot; d=&#39;e&#39;&gt;&amp;"},
      {"\xD6\xD0|", "\xD6\xD0|"},
      {"\xC1\"x", "?&quot;x"},  // a lead byte must not swallow the quote
      {"x\xC1", "x?"},
      {"\xC1\x35\x30", "?50"},  // nor begin a four-byte character
      {"\xE4\xB8\xAD\xE4\xB8\xAD", "\xE4\xB8\xAD\xE4\xB8\xAD"},
      {std::string_view("a\0\r\n\t\x7F\x1B", 7), "a??\n\t??"},
  };
  for (const auto& [text, escaped] : cases) EXPECT_EQ(HtmlEscape(text), escaped) << text;
}

// Whether no byte is the first half of a character that the next byte does not complete.
bool IsWhole(std::string_view text) {
  if (CCharSet::IsValidUtf8(text)) return true;
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t length = CCharSet::CharacterLength(text, pos);
    if (length == 1 && CCharSet::IsLeadByte(static_cast<unsigned char>(text[pos]))) return false;
    pos += length;
  }
  return true;
}

// Whatever the text, what comes out cannot end a quoted attribute or begin a tag, nor swallow what the page puts after.
TEST(Text, HtmlEscapeOfRandomBytes) {
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (std::size_t n = random() % 12; n > 0; --n) text += static_cast<char>(random() % 3 == 0 ? '"' : random());
    const std::string escaped = HtmlEscape(text);
    ASSERT_EQ(escaped.find_first_of("\"'<>"), std::string::npos);
    ASSERT_TRUE(IsWhole(escaped)) << testing::PrintToString(text);
  }
}

TEST(Text, NormalizeText) {
  const Cases cases = {
      {"a+b%2Bc", "a b c"},
      {"%253Cscript", "<script"},
      {"%25253C", "%3C"},  // two rounds, not three
      {"%E4%B8%AD", "\xD6\xD0"},
      {"\xE4\xB8\xAD%3C", "\xD6\xD0<"},
      {"%C3%A9", "\xC3\xA9"},  // two bytes are too short to be taken for UTF-8
      {"ABC", "ABC"},
      {"A&LT;B", "a<b"},
      {"A%26lt%3BB", "a<b"},
      {"&#x2b;", " "},
      {"%26%2337;41", "%41"},  // what a reference yields is not decoded again
      {"a&b=C", "a&b=c"},
  };
  for (const auto& [text, normal] : cases) EXPECT_EQ(NormalizeText(std::string(text)), normal) << text;
}

TEST(Text, Numbers) {
  const auto numbers = [](std::string_view texts) {
    std::string all;
    for (const std::string_view text : Split(texts, '|')) all += std::to_string(ToNumber(text)) + " ";
    return all;
  };
  EXPECT_EQ(numbers("|12x| \t-7|+5|x5|- 5|+-5|007"), "0 12 -7 5 0 0 0 7 ");
  EXPECT_EQ(numbers("2147483647|2147483648|-2147483648|-99999999999999999999"),
            "2147483647 2147483647 -2147483648 -2147483648 ");
  EXPECT_EQ(DigitsToNumber("42"), 42U);
  EXPECT_EQ(DigitsToNumber("4294967295"), 4294967295U);
  for (const char* const none : {"", "+1", "1 ", "4294967296", "99999999999999999999999999"}) {
    EXPECT_EQ(DigitsToNumber(none), 0U) << none;
  }
}

TEST(Text, TaggedPart) {
  const std::string_view text = "</a><a>1</b><a>2</a><b></b><c>3";
  EXPECT_EQ(TaggedPart(text, "a"), "1</b><a>2");
  EXPECT_EQ(TaggedPart(text, "b"), "");
  EXPECT_EQ(TaggedPart(text, "c"), "");
  EXPECT_TRUE(HasTag(text, "c"));
  EXPECT_FALSE(HasTag(text, "/c"));
}

}  // namespace
}  // namespace qiv
