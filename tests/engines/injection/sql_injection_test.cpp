#include "engines/injection/sql_injection_detector.h"

#include <gtest/gtest.h>

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
  InjectionRule result;
  const std::string_view text = "1 and select x";
  EXPECT_TRUE(SqlInjectionDetector::Check(text, &settings, library, &result, false));
  EXPECT_FALSE(SqlInjectionDetector::Check(text, nullptr, library, &result, false));
  EXPECT_FALSE(SqlInjectionDetector::Check("", &settings, library, &result, true));
  EXPECT_FALSE(SqlInjectionDetector::Check(text, &settings, Library({}, {"and"}), &result, false));
  EXPECT_FALSE(SqlInjectionDetector::Check(text, &settings, Library({"select"}, {}), &result, false));
}

TEST(SqlInjection, ParametersAreUnitsOfTheirOwn) {
  const InjectionLibrary library({{"shown", "2", "remark", "77", {"select"}}}, slow::OneWordRules({"and", "an"}), {});
  InjectionSettings settings;
  InjectionRule result;
  // Neither a name, nor a value cut by "&", nor a value before it contributes; equal offsets in neighbours do not mix.
  EXPECT_FALSE(SqlInjectionDetector::Check("select x=1&b=select&c=x and", &settings, library, &result, true));
  ASSERT_TRUE(SqlInjectionDetector::Check("a=and 1&b=and select 1", &settings, library, &result, true));
  EXPECT_EQ(result, (InjectionRule{"shown", "2", "Detail:b=and select 1", "77", {"select"}}));
  settings.language = Language::kChinese;
  ASSERT_TRUE(SqlInjectionDetector::Check("a=select 1", &settings, library, &result, true));
  EXPECT_EQ(result.remark,
            "\xCF\xEA\xC7\xE9\xA3\xBA"
            "a=select 1");
  ASSERT_TRUE(SqlInjectionDetector::Check("select 1", &settings, library, &result, false));
  EXPECT_EQ(result.remark, "remark");
}

TEST(SqlInjection, DetailLineOfLongValues) {
  const InjectionLibrary library = Library({"select"}, {"and"});
  const auto detail = [&](std::string_view value) {
    InjectionRule result;
    SqlInjectionDetector::FillResult(0, "n", value, true, InjectionSettings(), library, &result);
    return result.remark;
  };
  const std::string a(849, 'a');
  EXPECT_EQ(detail(std::string(800, 'a')), "Detail:n=" + std::string(800, 'a'));
  EXPECT_EQ(detail(std::string(801, 'a')), "Detail:n=" + std::string(800, 'a') + "...");
  EXPECT_EQ(detail(a + " select " + std::string(42, 'b')), "Detail:n=...select " + std::string(42, 'b'));
  EXPECT_EQ(detail("select" + a), "Detail:n=select" + std::string(794, 'a') + "...");
  EXPECT_EQ(detail(a + "select" + a), "Detail:n=...select" + std::string(794, 'a') + "...");
  std::string han = "b";
  while (han.size() < 900) han += "\xD6\xD0";
  EXPECT_EQ(detail(han), "Detail:n=" + han.substr(0, 799) + "...");  // no half character
}

TEST(SqlInjection, FormatMismatchIsReserved) {
  const InjectionLibrary library = Library({"select"}, {"and"});
  InjectionRule result = {"x", "y", "z", "1", {"w"}};
  SqlInjectionDetector::FillResult(1, "n", "v", true, InjectionSettings(), library, &result);
  EXPECT_EQ(result, (InjectionRule{"", "", "Format does not match", "0", {""}}));
}

}  // namespace
}  // namespace qiv
