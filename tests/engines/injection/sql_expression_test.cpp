#include "engines/injection/sql_expression_detector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "engines/injection/sql_tokens.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

struct Hit {
  SqlExpressionKind kind;
  std::string_view value;
};

using enum SqlExpressionKind;
constexpr Hit kHits[] = {
    {kCondition, "1 and 6212=6212"},
    {kCondition, "1) and 6212=6212 and (8=8"},
    {kCondition, "a1' and 6212=6212-- x"},
    {kCondition, "' or 17=17-- "},
    {kCondition, "1 or true"},
    {kCondition, "1 or id>0"},
    {kCondition, "1 || 1=1"},
    {kCondition, "-1 or not 3=3"},
    {kCondition, "x' or name like '%b%"},
    {kCondition, "'='"},
    {kCondition, "'-'"},
    {kCondition, "'||1#"},
    {kCondition, "'or'a'='a"},
    {kCondition, "x\" or \"a\"=\"a"},
    {kCondition, "x`) or 1=1#"},
    {kCondition, "1 and elt(7=7,1)"},
    {kCondition, "1 having 1=1"},
    {kCondition, "1-if(2=2,0,1)"},
    {kCondition, " or 1=1"},
    {kCondition, "x' in boolean mode) and 4=4#"},
    {kCondition, "1 and 2 between 1 and 3"},
    {kCondition, "x' and 1 is not null-- "},
    {kCondition, "x'-email-- "},
    {kCondition, "1' % id ^ '0"},
    {kCondition, "aa' % current_date regexp '0"},
    {kCondition, "aa' *@var or 1 sounds like (1)|'1"},
    {kCondition, "' and email not similar to id-- "},
    {kCondition, "' notnull -- "},
    {kCondition, "1'and json_search (json_array(p),0b11,'t__')#"},
    {kCondition, ")) or sleep(__t__)=\"\"\""},
    {kCondition, "x' or email~all(array[email])-- "},
    {kCondition, "x' and n'a'=n'a"},
    {kCondition, "1 or@a:=1"},
    {kCondition, "id having (1 or 1)"},
    {kCondition, ") or (a=a"},
    {kCondition, "b,2=2"},
    {kCondition, "1 or not 0"},
    {kCondition, "1*1-- "},
    {kCondition, "case when 2=2 then id else name end"},
    {kCondition, "1 and ascii(lower(substring((selectversion()"},
    {kCondition, "' or name<"},
    {kUnion, "1 union all select null,null"},
    {kUnion, "1funion select 2"},
    {kUnion, "1 union select`a`from`b`"},
    {kUnion, "-1/**/union"},
    {kUnion, "1e0union select 1"},
    {kUnion, "x') union select name from users-- "},
    {kUnion, "1) as t where 5=5 union select 1"},
    {kSubquery, "1 rlike (select (case when (1=1) then 1 else 0x28 end))"},
    {kSubquery, "(select (case when (1=1) then 1 else 2 end))"},
    {kSubquery, "'+(select pass from users)+'"},
    {kSubquery, "1,(select * from(select(sleep(5)))a)"},
    {kStacked, "1; drop table t"},
    {kStacked, "x';waitfor delay '0:0:5'-- "},
    {kStacked, "1;declare @x varchar(9)"},
    {kStacked, "1;exec master..xp_cmdshell 'dir'"},
    {kStacked, "1;update users set admin=1"},
    {kStacked, "1;copy t from program 'id'"},
    {kStacked, "1;backup database master to disk='//a/b'"},
    {kStacked, "x' drop table t-- "},
    {kStacked, "1 update users set a=1-- "},
    {kStacked, "me@site.example\";"},
    {kClause, "1 order by 9-- "},
    {kClause, "1 procedure analyse(extractvalue(1,2),1)"},
    {kClause, "1 into outfile '/tmp/x'"},
    {kComment, "admin'-- "},
    {kComment, "admin')#"},
    {kComment, "1'--sp_password"},
    {kComment, "1)-- "},
    {kProbe, "apple\xBF'\"("},
};

TEST(SqlExpression, FindsEveryForm) {
  for (const auto& [kind, value] : kHits) {
    const auto found = FindSqlExpression(value);
    ASSERT_TRUE(found) << value;
    EXPECT_EQ(static_cast<int>(found->kind), static_cast<int>(kind)) << value;
    EXPECT_LE(found->begin, found->end) << value;
    EXPECT_LE(found->end, value.size()) << value;
  }
  EXPECT_TRUE(FindSqlExpression("x' like --1 or '1"));       // no comment to MySQL
  EXPECT_TRUE(FindSqlExpression("1 or \\.<$ or 7=7 -- 1"));  // whatever stands before it
}

// However blanks are written, and whatever the case of letters.
TEST(SqlExpression, SeesThroughBlanksAndCase) {
  for (const std::string_view blank :
       {"   ", "\t", "\r\n", "\v\f", "\x01", "\xA0", "/**/", "/*x*/ /*y*/", "--x\n", "#x\n", "/*!50000*/", "/*! */"}) {
    for (const auto& [kind, value] : kHits) {
      std::string spelled;
      for (const char c : value) {
        if (c == ' ') {
          spelled += blank;
        } else {
          spelled += spelled.size() % 2 && c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        }
      }
      // What ends with a comment ends with it: those forms of a blank would begin another.
      if (value.ends_with(' ') || value.ends_with('x')) continue;
      EXPECT_TRUE(FindSqlExpression(spelled)) << spelled;
    }
  }
  EXPECT_TRUE(FindSqlExpression("1" + std::string(100000, ' ') + "or" + std::string(100000, '\t') + "2=2"));
  EXPECT_TRUE(FindSqlExpression("1/*" + std::string(100000, 'x') + "*/or 2=2"));
  EXPECT_TRUE(FindSqlExpression("1/*!30774union all select*/ 1,2"));
}

TEST(SqlExpression, LeavesProseAlone) {
  for (const std::string_view value : {
           "",
           "'",
           "\"",
           "1",
           "-1",
           "1 ",
           "it's",
           "rock 'n' roll",
           "print('\"(')",
           "5 or 6 people",
           "the teachers' union select board",
           "customers' order by date",
           "teachers union select board",
           "1 and only",
           "2 or more",
           "3 and 4 = seven",
           "admin and user(s)",
           "5 > 3 and 2 < 4",
           R"({"op":"=","value":" and "})",
           "the boys' or 'girls' team",
           "5' and 6' tall",
           "'90s and '80s",
           "'a' + 'b', 'c'",
           "x = 'a' + 'b'",
           "Is \"!=\" not the opposite of \"=\"?",
           "MySQL query using 'in' operator: why?",
           "variable \"Where\"",
           "Select data from multiple tables",
           "select the item from the list",
           "(select one)",
           "#2 MOM",
           "kids' #1",
           "kids' -- well, most of them",
           "BROWNING , BILLEEVERSBOUTIQUE \"LIKE\"",
           "first; drop the ball",
           "1; update me",
           "update: order by phone, then delete my old address",
           "order by name",
           "1.5e3",
           "0x1F",
           "a-b-c",
           "C:\\a'b",
           "\xD6\xEC'\xE9"
           "F\xBB\xF9 or \xD6\xEC",
           "\"Server\" - \"Roles\" and select \"Web\" there",
           "Keep order from 'IN' clause",
           "a 'b' like 'c'",
           "{\"a\":\"b\",\"c\":\"d\"}",
           "call sleep() in the loop",
           // as above, but for what would make it SQL
           "5'-6'",
           "'-\"8 track",
           "python '+' operator",
           "'a' -> 'b'",
           "'yes'? 'no'",
           "2019-01-01--2019-02-01",
           "3-5#",
           "F-150 --",
           "1 or 2",
           "1 and 1",
           "5 like mine",
           "5 in (1,2)",
           "234 union",
           "x'; see the note",
           "stop 'x'; backup database now",
           "grant access to all; use it",
           "3 delete from list",
           "1 Create user account",
           "'create user' fails",
           "project = 'A' and status = 'B'",
           "the kids' and don't know",
           "rock'n'roll",
           "dogs having 4 or 5",
           "left@shop.example or all@shop.example",
           "case when x then y",
           "if (x == \"\" or len(trim(y)) > 0) then",
           "or what =",
           "foo <!-- bar -->",
           "he said 'no'--and left",
           "'how' is 1=1 true",
           "\xB5\xDA"
           "3-5#\xC2\xA5",
       }) {
    EXPECT_FALSE(FindSqlExpression(value)) << value;
  }
}

// A chain that is too long to follow counts by what it holds; a quote and a half do not reach behind the text.
TEST(SqlExpression, BoundsWhatItReads) {
  std::string chain = "1 or 1=1";
  for (int i = 0; i < 100; ++i) chain += " and a+b";
  EXPECT_TRUE(FindSqlExpression(chain));
  for (const std::string_view piece :
       {"'or a/", "'or a/*", "'or 1/*", "'/*", "'or\"", "'#", "`(", "'or(select(", "1,", "'\\", "*/", "'in("}) {
    std::string text;
    while (text.size() < 100000) text += piece;
    FindSqlExpression(text);                                         // ends, and reads no byte behind it
    FindSqlExpression(text + std::string(text.size(), 'b') + "\n");  // nor what follows once for each piece
  }
  EXPECT_TRUE(FindSqlExpression("1' and " + std::string(45, '(') + "name in ('a','b','c','d','e','f')" +
                                std::string(45, ')') + ";drop table users-- "));
  // However many places to begin at stand before it, and however they are chained.
  for (const std::string_view piece : {"','", "'-'", "','a", "\"='x", "'-'`,", "'=a /**/"}) {
    std::string text;
    while (text.size() < 20000) text += piece;
    EXPECT_TRUE(FindSqlExpression(text + "x' or 1=1-- ")) << piece;
    EXPECT_TRUE(FindSqlExpression(text + "x' + 'a' + 'b' + 'c' || 1=1 || " + chain)) << piece;
    EXPECT_FALSE(FindSqlExpression(text + "x y z")) << piece;
  }
}

// Readers that share what they found out about a text read what one alone reads, wherever they begin.
TEST(SqlTokens, AreTheSameWhoeverReadsThem) {
  const auto compare = [](std::string_view text) {
    CSqlText shared(text);
    const std::size_t size = std::max<std::size_t>(text.size(), 1);
    for (std::size_t i = 0; i < 2 * size; ++i) {
      const std::size_t begin = i < size ? i : i * 7919 % size;  // from place to place, then anywhere
      CSqlText own(text);
      CSqlTokens fast(&shared, begin);
      CSqlTokens slow(&own, begin);
      for (int n = 0; n < 12; ++n, fast.Advance(), slow.Advance()) {
        const SqlToken& a = fast.Current();
        const SqlToken& b = slow.Current();
        ASSERT_TRUE(a.kind == b.kind && a.word == b.word && a.begin == b.begin && a.end == b.end)
            << begin << " " << a.begin << " " << b.begin << " " << testing::PrintToString(std::string(text));
      }
    }
  };
  const Tokens marks = {"'",  "\"",    "`",  "\\", "\\'", "--", "#", "\n", "/*",
                        "*/", "/*!50", "a.", "b",  " ",   "1",  "=", "or"};
  ForRandomSequences(marks, 120, 60, compare);
  // Runs that are longer than a window.
  ForRandomSequences({std::string(300, 'x'), "`", "--" + std::string(200, '-') + "\n", "\\'", "*/", "'"}, 30, 8,
                     compare);
}

}  // namespace
}  // namespace qiv
