#include "tools/rule_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/char_set.h"
#include "engines/injection/rule_text.h"

namespace qiv {
namespace {

TEST(RuleFile, ReadsRules) {
  CReport report("f");
  const std::vector<RuleLine> rules = ReadRuleFile(
      "# a comment\r\n"
      "\n"
      "1\tunion*select\t-\tUnion\t联合\r\n"
      "2\t/%2A*%20x%20\tcomment %25\tno remark\t\n"
      "3\ta\t%2D\t\t",
      &report);
  EXPECT_EQ(report.Text(), "");
  ASSERT_EQ(rules.size(), 3U);
  EXPECT_EQ(rules[0].line, 3U);
  EXPECT_EQ(rules[0].words, (std::vector<std::string>{"union", "select"}));
  EXPECT_EQ(rules[0].shown, "");
  EXPECT_EQ(rules[0].chinese, "联合");
  EXPECT_EQ(rules[1].words, (std::vector<std::string>{"/*", " x "}));
  EXPECT_EQ(rules[1].shown, "comment %");
  EXPECT_EQ(rules[2].shown, "-");

  CReport again("g");
  const std::vector<RuleLine> same = ReadRuleFile(WriteRuleFile(rules), &again);
  ASSERT_EQ(same.size(), rules.size());
  for (std::size_t i = 0; i < rules.size(); ++i) {
    EXPECT_EQ(same[i].words, rules[i].words);
    EXPECT_EQ(same[i].shown, rules[i].shown);
    EXPECT_EQ(same[i].english, rules[i].english);
    EXPECT_EQ(same[i].chinese, rules[i].chinese);
  }
}

TEST(RuleFile, RefusesMalformedLines) {
  const char* const malformed[] = {
      "1\ta\t-\tx",       "1\ta\t-\tx\ty\tz", "\ta\t-\tx\ty",   "1\t\t-\tx\ty",
      "1\ta**b\t-\tx\ty", "1\ta*\t-\tx\ty",   "1\ta\t\tx\ty",   "1\ta%\t-\tx\ty",
      "1\ta%2\t-\tx\ty",  "1\ta%zz\t-\tx\ty", "1\ta\t-\t%x\ty", "1\t\xC4\xE3\t-\tx\ty",
  };
  for (const char* const line : malformed) {
    CReport report("f");
    EXPECT_TRUE(ReadRuleFile(std::string("\n") + line, &report).empty()) << line;
    EXPECT_EQ(report.Text().substr(0, 13), "qivctl: f:2: ") << line;
    EXPECT_TRUE(report.HasError()) << line;
  }
}

TEST(RuleFile, RecordsComeBackAsTheyWereMeant) {
  struct Case {
    std::vector<std::string> words;
    const char* shown;
    char separator;
    bool user_defined;
    bool carried;
  };
  const Case cases[] = {
      {{"union", "select"}, "", '*', false, true},
      {{"union", "select"}, "Union", '*', false, true},
      {{"你|", "好"}, "你好", '*', false, true},
      {{"="}, "", '*', false, true},
      {{"a==b"}, "shown", '*', false, true},
      {{"/*"}, "", ',', false, true},
      {{"/*"}, "comment", '*', false, false},
      {{"a==b"}, "", '*', false, false},
      {{"=b"}, "a=", '*', false, false},
      {{"a"}, "x==y", '*', false, false},
      {{"a{*}b"}, "x", ',', false, false},
      {{"a{#}b"}, "x", ',', false, false},
      {{"100%41"}, "", '*', false, true},
      {{"100%41"}, "", '*', true, true},
      {{"%"}, "%%", '*', true, true},
      {{"or/**/1=1", "*"}, "", '*', true, true},
      {{"a==b", "===", "=", "c="}, "", '*', true, true},
      {{"=b"}, "a=", '*', true, true},
      {{"a"}, "x===y=", '*', true, true},
      {{"a{*}b{#}", "{", "#}"}, "{#}", ',', true, true},
      {{"\r\na", "\tb"}, "", '*', true, true},
      {{"\na"}, "", '*', false, false},
      {{"你*", "%好"}, "*", '*', true, true},
  };
  for (const Case& c : cases) {
    RuleLine rule;
    rule.line = 7;
    rule.identifier = "id";
    rule.words = c.words;
    rule.shown = c.shown;
    rule.english = "remark";
    CReport report("f");
    const std::string record = LibraryRecord(rule, {Language::kEnglish, c.separator, c.user_defined}, &report);
    EXPECT_EQ(report.HasError(), !c.carried) << c.words[0] << " " << c.shown;
    if (!c.carried) continue;
    const std::vector<InjectionRule> loaded =
        ParseRules(CCharSet::Utf8ToLocal(record + "{#}"), c.separator, c.user_defined);
    ASSERT_EQ(loaded.size(), 1U) << record;
    ASSERT_EQ(loaded[0].words.size(), c.words.size()) << record;
    for (std::size_t i = 0; i < c.words.size(); ++i) {
      EXPECT_EQ(CCharSet::LocalToUtf8(loaded[0].words[i]), c.words[i]) << record;
    }
    EXPECT_EQ(loaded[0].identifier, "id");
    EXPECT_EQ(loaded[0].remark, "remark");
  }
}

}  // namespace
}  // namespace qiv
