// Finds values that break out of an SQL literal and go on as SQL, by their form.
//
// A value is injected when the statement around it still parses: it ends the literal that it was put into (a quote, a
// bracket, or nothing after a number), goes on with an operator, a UNION, a second statement, and ends so that the rest
// of the statement does no harm (a comment, an open string, the end). That form is what is judged: which numbers are
// compared, how blanks are spelled and which quote it is do not matter.
//
// From the start of the value, and from behind each quote in it, tokens are read while they alternate as operands and
// operators do. Prose fails at the second or third token ("rock 'n' roll", "5 or 6 people", "the teachers' union"),
// which is what makes this both cheap and quiet. An attempt reads at most kMaxTokens tokens in a window (sql_tokens.h),
// so the cost is linear; a chain that is longer counts as complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace qiv {

enum class SqlExpressionKind : std::uint8_t {
  kCondition,  ///< "1 or 1=1", "' or name like '%", "1 and sleep(5)"
  kUnion,      ///< "1 union select ..."
  kSubquery,   ///< "(select case when ...)", "1-(select ...)"
  kStacked,    ///< "1; drop table ..."
  kClause,     ///< "1 order by 9-- ", "1 procedure analyse(...)", "1 into outfile '...'"
  kComment,    ///< "admin'-- "
  kProbe = 7,  ///< "x'\"(", marks that only make a statement fail; the number before names a charset that hides
};

struct SqlExpressionFinding {
  SqlExpressionKind kind = SqlExpressionKind::kCondition;
  std::size_t begin = 0;  ///< of the text from the break out to where it was certain, in bytes
  std::size_t end = 0;
};

/// One value, decoded, in any case. Any number of threads.
std::optional<SqlExpressionFinding> FindSqlExpression(std::string_view value);

}  // namespace qiv
