#include "engines/injection/sql_injection_detector.h"

#include <gtest/gtest.h>

#include "common/char_set.h"
#include "tests/engines/injection/slow_detectors.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

InjectionLibrary Library(const std::vector<std::string>& rules, const std::vector<std::string>& keys) {
  return InjectionLibrary(slow::OneWordRules(rules), slow::OneWordRules(keys), {});
}

void Compare(std::string_view text, const InjectionLibrary& library) {
  ASSERT_EQ(SqlInjectionDetector::MatchUnit(text, library), slow::MatchUnit(text, library.Rules(), library.Keys()))
      << "text: " << testing::PrintToString(std::string(text));
}

TEST(SqlCommentStripper, DoesWhatTheWalkByteByByteDoes) {
  const auto compare = [](std::string_view text) {
    ASSERT_EQ(SqlCommentStripper(text), slow::SqlCommentStripper(text)) << testing::PrintToString(std::string(text));
  };
  const Tokens tokens = {"'", "\"", "\\", "-", "/", "*", "\n", "+", "\xC1"};
  ForEachSequence(tokens, 5, compare);
  ForRandomSequences(tokens, 40, 40000, compare);
}

TEST(SqlCommentStripper, Cases) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"un/**/ion", "union"},
      {"a/*x\ny\n", "a\n\n"},  // unterminated, line feeds kept
      {"a/*/b*/c", "ac"},      // the opening's "*" does not close it
      {"a--b\r\nc", "a\nc"},
      {"'--' --x", "'--' "},
      {"'\\'--'--", "'\\'--'"},                        // the backslash keeps the run open
      {"'\xC1\\'--x", "'\xC1\\'--x"},                  // so does the byte 0x5C behind any byte, in GBK
      {"'\xE4\xB8\xAD\\'--x", "'\xE4\xB8\xAD\\'--x"},  // and in UTF-8
      {"a+'+'", "a ' '"},
  };
  for (const auto& [text, stripped] : cases) EXPECT_EQ(SqlCommentStripper(text), stripped) << text;
}

TEST(SqlInjection, AgreesWithRestarts) {
  // Cut words that are prefixes, suffixes and doubles of each other, overlap themselves, or begin with a symbol.
  const InjectionLibrary libraries[] = {
      Library({"a", "b", "ab", "a"}, {"b", "a", "ab", "b"}),
      Library({"b", "bb"}, {"aa", "a", " a", "a "}),
      Library({"a", "_"}, {",b", ",", "b,b", "_"}),
      Library({"b", "a-"}, {" ", "ba"}),
      Library({"a"}, {"bab", "ab,ab"}),
  };
  const Tokens tokens = {"a", "b", " ", ",", "_"};
  for (const InjectionLibrary& library : libraries) {
    ForEachSequence(tokens, 6, [&](std::string_view text) { Compare(text, library); });
    ForRandomSequences(tokens, 60, 4000, [&](std::string_view text) { Compare(text, library); });
  }
  const InjectionLibrary real = Library({"select", "sleep", "from", "table", "all"},
                                        {"and", "or", "union", "order by", "(", ")", "||", "select", "=", "an", "uni"});
  const Tokens words = {"and", "or", "union", "order by", "(", ")",  "||", "select",   "sleep", "from", "table",
                        "all", " ",  " ",     " ",        "+", "\n", "=",  ",",        "'",     "\"",   "\\",
                        "--",  "/*", "*/",    "1",        "x", "_",  "-",  "\xD6\xD0", "\xC1\\"};
  ForRandomSequences(words, 30, 60000, [&](std::string_view text) { Compare(text, real); });
}

TEST(SqlInjection, Cases) {
  const InjectionLibrary library = Library({"select", "union"}, {"and", ";", "union"});
  const std::pair<std::string_view, bool> cases[] = {
      {"1 and select x from t", true},
      {"select x", true},
      {"select,x", false},
      {"select ,x", false},
      {"selectx y", false},
      {"1 and select ", false},
      {"1 band select x", false},
      {"1 _and select x", true},
      {"1;select x", true},
      {"1;SELECT x", false},
      {"un/**/ion+select+1", true},
      {"(select x)", false},
      {"1 and select\tx", true},
      {"\xD6\xD0 and select 1", true},
      {"", false},
  };
  for (const auto& [text, hit] : cases) {
    EXPECT_EQ(SqlInjectionDetector::MatchUnit(text, library) != SqlInjectionDetector::kNoMatch, hit) << text;
  }
}

TEST(SqlInjection, PreconditionsGiveNoHit) {
  const InjectionLibrary library = Library({"select"}, {"and"});
  const InjectionSettings settings;
  SqlFinding finding;
  const std::string_view text = "1 and select x";
  EXPECT_TRUE(SqlInjectionDetector::Check(text, &settings, library, &finding, false));
  EXPECT_FALSE(SqlInjectionDetector::Check(text, nullptr, library, &finding, false));
  EXPECT_FALSE(SqlInjectionDetector::Check({}, &settings, library, &finding, true));
  EXPECT_FALSE(SqlInjectionDetector::Check(text, &settings, Library({}, {"and"}), &finding, false));
  EXPECT_FALSE(SqlInjectionDetector::Check(text, &settings, Library({"select"}, {}), &finding, false));
}

TEST(SqlInjection, TellsWhereItStands) {
  const InjectionLibrary library = Library({"select"}, {"and", "an", "\xE9\x46"});
  const InjectionSettings settings;
  const struct {
    std::string_view text;
    bool per_parameter;
    const char* name;  // null: no hit
    std::string_view value, word;
  } cases[] = {
      // Neither a name, nor a value cut by "&", nor a value before it contributes; equal offsets do not mix.
      {"select x=1&b=select&c=x and", true, nullptr, "", ""},
      {"a=and 1&b=and select 1", true, "b", "and select 1", "select"},
      {"a=1&=select 1", true, "", "select 1", "select"},
      {"a=select 1", false, nullptr, "", ""},
      {"select 1", false, "", "select 1", "select"},
      {"a=/*\n*/an--d\nd\n'--'&b=se/*x\ny*/lect 1", true, nullptr, "", ""},  // the line feed stays
      {"a=1&b='--'+an/**/d+/* */se/*x*/le/**/ct--\n1", true, "b", "'--'+an/**/d+/* */se/*x*/le/**/ct--\n1",
       "se/*x*/le/**/ct"},
      {"a=1\xE9\x46 select 1", true, "a", "1\xE9\x46 select 1", "select"},
      {"a=1\xE9\x66 select 1", true, nullptr, "", ""},      // another character
      {"a=1\xD6\xE9\x46 select 1", true, nullptr, "", ""},  // across two
      {"a=1/**/\xE9\x46/**/ select 1", true, "a", "1/**/\xE9\x46/**/ select 1", "select"},
  };
  for (const auto& c : cases) {
    const std::string lowered = CCharSet::LowerBytes(c.text);
    SqlFinding finding;
    ASSERT_EQ(SqlInjectionDetector::Check({lowered, c.text}, &settings, library, &finding, c.per_parameter),
              c.name != nullptr)
        << c.text;
    if (c.name == nullptr) continue;
    EXPECT_EQ(finding.rule, library.Rules().data());
    EXPECT_EQ(finding.is_parameter, c.per_parameter);
    EXPECT_EQ(finding.name.In(c.text), c.name);
    EXPECT_EQ(finding.value.In(c.text), c.value);
    EXPECT_EQ(finding.word.In(c.text), c.word);
  }
  EXPECT_EQ(SqlInjectionDetector::FindingOf(1, library).id, SqlFindingId::kFormatMismatch);
}

}  // namespace
}  // namespace qiv
