#include "engines/injection/sql_expression_detector.h"

#include <algorithm>
#include <array>

#include "engines/injection/sql_expression_reader.h"

namespace qiv {
namespace {

using Finding = std::optional<SqlExpressionFinding>;
using Before = SqlBefore;
using Kind = SqlTokenKind;
using Word = SqlWord;

/// Attempts from the start of the value.
Finding AtStart(SqlValue* value) {
  if (Finding found = CSqlExpressionReader(value, 0, Before::kNothing).Run()) return found;
  const std::string_view text = value->text.Text();
  CSqlTokens tokens(&value->text, 0);
  const auto is = [&](Kind kind) { return tokens.Current().kind == kind; };
  const auto at = [&](Before before) { return CSqlExpressionReader(value, tokens.Current().begin, before).Run(); };
  // The value is appended to what stands in the statement.
  const auto is_clause = [&] {
    if (!is(Kind::kWord)) return false;
    const Word word = tokens.Current().word;
    return word == Word::kUnion || word == Word::kOrder || word == Word::kGroup || word == Word::kHaving ||
           word == Word::kWhere;
  };
  if (is(Kind::kConnective) || is(Kind::kSemicolon) || is(Kind::kClose) || is(Kind::kOperator) || is(Kind::kComma) ||
      is_clause()) {
    if (Finding found = at(Before::kName)) return found;
  }
  while (is(Kind::kOpen) || is(Kind::kClose) || is(Kind::kNot) ||
         (is(Kind::kOperator) && text[tokens.Current().begin] != '*'))
    tokens.Advance();
  const bool constant = is(Kind::kWord) && tokens.Current().word == Word::kConstant;
  const bool variable = is(Kind::kWord) && text[tokens.Current().begin] == '@';
  if (is(Kind::kNumber) || is(Kind::kString) || constant || variable) {
    tokens.Advance();
    return at(Before::kNumber);
  }
  if (!is(Kind::kWord) || (tokens.Current().word != Word::kName && tokens.Current().word != Word::kEnd)) return {};
  tokens.Advance();
  return at(Before::kName);
}

/// Marks that end a literal of either kind and leave a bracket open, at the end of the value: they do nothing but make
/// the database complain, by which tools tell that it read them. No text ends so.
Finding Probe(std::string_view text) {
  constexpr std::size_t kMarks = 3;
  if (!text.ends_with("'\"(") && !text.ends_with("\"'(")) return {};
  return SqlExpressionFinding{SqlExpressionKind::kProbe, text.size() - kMarks, text.size()};
}

}  // namespace

Finding FindSqlExpression(std::string_view text) {
  SqlValue value(text);
  if (Finding found = AtStart(&value)) return found;
  // The next of each kind of quote.
  constexpr std::array<char, 3> kQuotes = {'\'', '"', '`'};
  std::array<std::size_t, 3> next{};
  for (std::size_t i = 0; i < kQuotes.size(); ++i) next[i] = text.find(kQuotes[i]);
  for (;;) {
    auto* const first = std::min_element(next.begin(), next.end());
    if (*first == std::string_view::npos) return Probe(text);
    const std::size_t behind = *first + 1;
    if (!CSqlExpressionReader::IsVain(&value, behind)) {
      if (Finding found = CSqlExpressionReader(&value, behind, Before::kQuote).Run()) return found;
    }
    *first = text.find(kQuotes[static_cast<std::size_t>(first - next.begin())], behind);
  }
}

}  // namespace qiv
