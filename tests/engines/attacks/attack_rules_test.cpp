#include "engines/attacks/attack_rules.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qiv {
namespace {

const WordLists kLists = {{"tool", {"cat", "id"}}, {"odd", {"%25x", "a%20b"}}};

/// What the pattern finds in the text; "-" for nothing, "!" and the fault when it is no pattern.
std::string Found(std::string_view where, std::string_view pattern, std::string_view text,
                  AttackPlace place = kInQuery) {
  CAttackRules rules;
  AttackFault fault;
  if (!rules.Set({{"r1", std::string(where), std::string(pattern), "", "", "", 0}}, kLists, &fault)) {
    return "!" + fault.rule + " " + fault.text;
  }
  const AttackHit hit = CAttackScan(rules).Find(text, place, kLocalFiles);
  return hit.rule ? hit.found : "-";
}

TEST(AttackRules, FindWhatTheirPatternsSay) {
  struct Case {
    std::string_view pattern;
    std::string_view text;
    std::string_view found;
  };
  for (const Case& c : std::vector<Case>{
           {"a.b", "xA.B", "a.b"},
           {"a%2Eb", "a.b", "a.b"},
           {"a.b", "axb.", "-"},
           {"~^a.", "a.", "a."},
           {"~^a.", "xa.", "-"},
           {"~^~[0-9]{2,3}a.", "123a.", "123a."},
           {"~^~[0-9]{2,3}a.", "1234a.", "-"},
           {"~^~[0-9]{2,3}a.", "1a.", "-"},
           {"a.~$", "a.", "a."},
           {"a.~$", "a.x", "-"},
           {"a.~s~$", "a. \n", "a. \n"},
           {"a.~s~$", "a. x", "-"},
           {"a.~S~$", "a.", "-"},
           {"~bab.c~b", "x.ab.c", "ab.c"},
           {"~bab.c~b", "xab.c", "-"},
           {"~bab.c~b", "ab.c1", "-"},
           {"ab~.{1,3}cd", "ab...cd", "ab...cd"},
           {"ab~.{1,3}cd", "ab....cd", "-"},
           {"ab~.{1,3}cd", "abcd.", "-"},
           {"ab~.{1,3}cd", "ab.....ab.cd", "ab.cd"},
           {"ab~.{1,9}abc", "ab.abc", "ab.abc"},  // the first word stands in the second one as well
           {"ab~[^.x]{1,3}cd", "ab;;cd", "ab;;cd"},
           {"ab~[^.x]{1,3}cd", "ab;xcd", "-"},
           {"a.~[%5D-_]b.", "a.^b.", "a.^b."},
           {"a.~(tool)!", "a.id!", "a.id!"},
           {"a.~(odd)", "a.%x", "a.%x"},
           {"a.~(odd)", "a.a b", "a.a b"},
           {"~c~(tool)~e", "x; id", "id"},
           {"~c~(tool)~e", "x|/usr/bin/id|", "id"},
           {"~c~(tool)~e", "x;\"id\"", "id"},
           {"~c~(tool)~e", "$(id)", "id"},
           {"~c~(tool)~e", "id;", "-"},
           {"~C~(tool)~e", "id;", "id"},
           {"~c~(tool)~e", "x;idea", "-"},
           {"~c~(tool)~e", "x. id", "-"},
       }) {
    EXPECT_EQ(Found("-", c.pattern, c.text), c.found) << c.pattern << " in " << c.text;
  }
}

TEST(AttackRules, LeaveWritingAlone) {
  const std::string line = "we ran it\n";
  const std::string paragraph = [] {
    std::string words;
    for (int i = 0; i < 60; ++i) words += "so it is, ";
    return words;
  }();
  std::string chinese;
  for (int i = 0; i < 130; ++i) chinese += "\xE4\xBB\xB7";
  const auto finds = [](const std::string& text, AttackPlace place = kInBody) {
    return Found("shell,short", "~C~(tool)~e", text, place) != "-";
  };
  for (const std::string& text : std::vector<std::string>{
           "x; id", "x;id\n" + line + line + line, "; 'id'" + paragraph, line + line + "; id",
           std::string(900, 'x') + ";id " + paragraph, line + "-\n-\n-\n- ; id", "a a a\na a a\na a a\n;id"}) {
    EXPECT_TRUE(finds(text)) << text;
  }
  for (const std::string& text :
       {line + line + line + ";id", line + ";id\n" + line + line, paragraph + ";id", "two words;id " + paragraph,
        "one\n;id\n" + line + line + line, "a b; id " + chinese, chinese + ";id"}) {
    EXPECT_FALSE(finds(text)) << text;
    EXPECT_TRUE(finds(text, kInQuery)) << text << ": nobody posts articles there";
  }
}

TEST(AttackRules, SayWhatIsWrongWithAPattern) {
  for (const std::string_view pattern :
       {"", "a", "~[a-z]{1,3}", "a.~^", "~^~ca.", "a.~$b", "a.~x", "a.~[b", "a.~[b]{3,1}", "a.~[b]{1,999}",
        "a.~.{1,9999}b.", "a.~.{1,9}", "~.{1,9}a.", "a.~(none)", "a.~[b]~e", "a%2", "ab%zz", "a.~.{1,9}~sb."}) {
    EXPECT_TRUE(Found("-", pattern, "x").starts_with("!r1 ")) << pattern;
  }
  EXPECT_TRUE(Found("nowhere", "a.b", "x").starts_with("!r1 "));
}

TEST(AttackRules, SeeTheReadingsOfAText) {
  struct Case {
    std::string_view where;
    std::string_view pattern;
    std::string text;
  };
  for (const Case& c : std::vector<Case>{
           {"-", "../", "%2e%2E%2f"},
           {"-", "../", "%252e%252e%252f"},
           {"-", "../", "\\u002e\\x2e\\057"},
           {"-", "<a>", "&lt;a&#62;"},
           {"path", "../../", "..\\..\\"},
           {"path", "../../", ".././/.././"},
           {"path", "../../", "..%c0%af..%c1%9c"},
           {"path", "../../", "..%u2215..%u2216"},
           {"path", "../../", "..\xE2\x88\x96..\xE2\x88\x96"},
           {"path", "../../", "..0x2f..%5%c"},
           {"path", "../../", "..\xF0\x80\x80\xAF..\xE0\x80\xAF"},
           {"path", "/etc/", std::string("/et\0c/", 6)},
           {"shell", "cat /etc", "c'a't\\ /e\"t\"c"},
           {"shell", "ls -la", "x;ls \\-la"},
           {"shell", "cat /etc", "c^a^t${IFS}/etc"},
           {"shell", "cat /etc", "ca``t$IFS/e$()tc"},
           {"shell", "cat /etc", "c$@at /etc$x/"},
       }) {
    EXPECT_NE(Found(c.where, c.pattern, c.text), "-") << c.pattern << " in " << c.text;
    if (c.where == "-") continue;
    EXPECT_EQ(Found("-", c.pattern, c.text), "-") << "no reading of its own: " << c.text;
  }
  EXPECT_EQ(Found("path", "x://y", "x://y"), "x://y");
}

TEST(AttackRules, CanBeLeftOutAndKeepToTheirPlaces) {
  CAttackRules rules;
  AttackFault fault;
  ASSERT_TRUE(rules.Set({{"1", "-", "a.b", "", "", "", 0}, {"2", "agent", "a.c", "", "", "", 2}}, kLists, &fault));
  const auto found = [](const CAttackRules& of, std::string_view text, AttackPlace place, unsigned groups) {
    const AttackHit hit = CAttackScan(of).Find(text, place, groups);
    return hit.rule ? hit.rule->identifier : "";
  };
  const unsigned all = kLocalFiles | kBadCode;
  EXPECT_EQ(found(rules, "a.c a.b", kInAgent, all), "2");
  EXPECT_EQ(found(rules, "a.c a.b", kInQuery, all), "1");
  EXPECT_EQ(found(rules, "a.c a.b", kInAgent, kLocalFiles), "1");
  EXPECT_EQ(found(rules.Without({"2"}), "a.c a.b", kInAgent, all), "1");
  EXPECT_EQ(found(rules.Without({"1", "2"}), "a.c a.b", kInAgent, all), "");
  EXPECT_FALSE(rules.Set({{"3", "-", "a", "", "", "", 0}}, kLists, &fault));
  EXPECT_EQ(found(rules, "a.b", kInQuery, all), "1") << "what was good stays";
}

// The same text again and again: nothing of the last search counts in the next.
TEST(AttackRules, ForgetTheLastText) {
  CAttackRules rules;
  AttackFault fault;
  ASSERT_TRUE(rules.Set({{"1", "-", "a.~.{0,99}b.", "", "", "", 0}}, kLists, &fault));
  CAttackScan scan(rules);
  EXPECT_EQ(scan.Find("a.", kInQuery, kLocalFiles).rule, nullptr);
  EXPECT_EQ(scan.Find("  b.", kInQuery, kLocalFiles).rule, nullptr);
  EXPECT_NE(scan.Find("a.b.", kInQuery, kLocalFiles).rule, nullptr);
}

}  // namespace
}  // namespace qiv
