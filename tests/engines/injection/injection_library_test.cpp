#include "engines/injection/injection_library.h"

#include <gtest/gtest.h>

#include <optional>

#include "engines/injection/rule_text.h"

namespace qiv {
namespace {

TEST(RuleText, Records) {
  const auto rule = [](std::string shown, std::vector<std::string> words) {
    return InjectionRule{std::move(shown), "f2", "Remark", "Id7", std::move(words)};
  };
  const struct {
    std::string_view field;
    char separator;
    bool user_defined;
    InjectionRule rule;
  } cases[] = {
      {"Union*SELECT", '*', false, rule("union*select", {"union", "select"})},
      {"Union select==UNION*select", '*', false, rule("union select", {"union", "select"})},
      {"a==b==c", '*', false, rule("a", {"b==c"})},
      {"order by==order by", ' ', false, rule("order by", {"order", "by"})},
      {"*a**b*", '*', false, rule("*a**b*", {"a", "b"})},
      {"x==", '*', false, rule("x", {})},
      {"%41*b", '*', false, rule("%41*b", {"%41", "b"})},
      {"%41*b%3D%3Dc%2Ad", '*', true, rule("a*b==c*d", {"a", "b==c*d"})},
      {"O%72 1==oR/%2a%2A/1=1*%7B#}%250%4C", '*', true, rule("or 1", {"or/**/1=1", "{#}%0l"})},
      {"100%*%zz*%0Ab", '*', true, rule("100%*%zz*\nb", {"100%", "%zz", "\nb"})},
      {"\xC1|\xC1\x41|b", '|', false, rule("\xC1|\xC1\x41|b", {"\xC1|\xC1\x41", "b"})},  // trail bytes "|" and "A"
  };
  for (const auto& c : cases) {
    const std::string text = std::string(c.field) + "{*}F2{*}Remark{*}Id7{#}";
    EXPECT_EQ(ParseRules(text, c.separator, c.user_defined), std::vector{c.rule}) << c.field;
  }
}

TEST(RuleText, ShortRecordsAreSkippedAndFurtherFieldsIgnored) {
  const std::vector<InjectionRule> rules =
      ParseRules("a{*}{*}{*}1{#}b{*}{*}3{#}{#}\r\nc{*}*{*}r\n{*}{*}more{#}  d{*}{*}{*}4", '*');
  ASSERT_EQ(rules.size(), 3U);
  EXPECT_EQ(rules[0], (InjectionRule{"a", "", "", "1", {"a"}}));
  EXPECT_EQ(rules[1], (InjectionRule{"c", "*", "r\n", "", {"c"}}));
  EXPECT_EQ(rules[2], (InjectionRule{"  d", "", "", "4", {"  d"}}));
  EXPECT_TRUE(ParseRules("", '*').empty());
}

TEST(RuleText, Separator) {
  EXPECT_EQ(RuleWordSeparator("|"), '|');
  EXPECT_EQ(RuleWordSeparator("space"), ' ');
  for (const std::string_view other : {"", "Space", "||", "\xA1\xA2"}) EXPECT_EQ(RuleWordSeparator(other), '*');
}

TEST(InjectionLibrary, ReadsBothFilesAndSurvivesTheOriginal) {
  std::optional<InjectionLibrary> original = InjectionLibrary::FromText(
      "<separator>|</separator><sql_rules>one|x{*}{*}{*}1{#}two{*}{*}{*}2{#}</sql_rules>"
      "<sql_keys>And{*}{*}{*}3{#}or{*}{*}{*}4{#}</sql_keys><xss_events>onload{*}{*}{*}5{#}</xss_events>",
      "<sql_rules>two{*}{*}{*}6{#}%74hree*y{*}{*}{*}7{#}==z{*}{*}{*}8{#}</sql_rules><sql_keys>or{*}{*}{*}9{#}");
  InjectionLibrary copy = *original;
  const InjectionLibrary library = std::move(copy);
  original.reset();
  ASSERT_EQ(library.Rules().size(), 5U);
  EXPECT_EQ(library.Keys().size(), 2U);  // the user's list is not closed
  EXPECT_EQ(library.Events().size(), 1U);
  const std::pair<std::string_view, std::ptrdiff_t> words[] = {
      {"one", 0}, {"two", 1}, {"three", 3}, {"z", 4}, {"thre", -1}, {"threey", -1}, {"x", -1}, {"", -1}, {"zz", -1}};
  for (const auto& [word, rule] : words) EXPECT_EQ(library.FindRule(word), rule) << word;
  EXPECT_EQ(library.Rules()[3].identifier, "7");
  std::vector<std::uint32_t> found;
  library.KeyWords().Patterns().Find("or and or", [&](std::uint32_t key, std::size_t) {
    found.push_back(key);
    return true;
  });
  EXPECT_EQ(found, (std::vector<std::uint32_t>{1, 0, 1}));
  EXPECT_EQ(InjectionLibrary().FindRule("a"), -1);
}

}  // namespace
}  // namespace qiv
