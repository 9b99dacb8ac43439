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

/// Behind "select": a call that makes the database wait.
Finding Delay(std::string_view text, CSqlTokens tokens) {
  while (tokens.Current().kind == Kind::kOpen) tokens.Advance();
  const SqlToken name = tokens.Current();
  const std::string_view word = text.substr(name.begin, name.end - name.begin);
  if (!EqualNoCase(word, "sleep") && !EqualNoCase(word, "benchmark") && !EqualNoCase(word, "pg_sleep")) return {};
  tokens.Advance();
  if (tokens.Current().kind != Kind::kOpen) return {};
  tokens.Advance();
  if (tokens.Current().kind != Kind::kNumber && tokens.Current().kind != Kind::kString) return {};
  return SqlExpressionFinding{SqlExpressionKind::kSubquery, 0, tokens.Current().end};
}

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
  if (is(Kind::kWord) && text.ends_with(";--") && CSqlExpressionReader::IsStatementWord(tokens.Current().word)) {
    return SqlExpressionFinding{SqlExpressionKind::kStacked, 0, text.size()};
  }
  if (is(Kind::kWord) && tokens.Current().word == Word::kSelect) {
    tokens.Advance();
    if (Finding found = Delay(text, tokens)) return found;
    Finding found = at(Before::kNothing);
    return found && found->kind == SqlExpressionKind::kUnion ? found : Finding();
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

/// Two of them where a text was edited as prose: not a word.
bool IsDash(std::string_view text) {
  constexpr std::size_t kLongest = 3;
  return text.size() <= kLongest && static_cast<unsigned char>(text[0]) >= 0x80;
}

/// "or 1=1" at the end of a text that is no SQL before it, as behind parts that other parameters make whole.
Finding EqualNumbers(std::string_view text) {
  constexpr std::size_t kLongest = 128;  // documents speak of it
  if (text.size() > kLongest) return {};
  constexpr int kTries = 4;
  std::size_t sign = text.rfind('=');
  for (int i = 0; i < kTries && sign != std::string_view::npos && sign > 0; ++i, sign = text.rfind('=', sign - 1)) {
    std::size_t begin = sign;
    while (begin > 0 && IsDigit(text[begin - 1])) --begin;
    const std::string_view number = text.substr(begin, sign - begin);
    const std::size_t behind = sign + 1 + number.size();
    if (number.empty() || text.compare(sign + 1, number.size(), number) != 0) continue;
    if (behind < text.size() && (IsWordByte(text[behind]) || text[behind] == '.')) continue;
    CSqlText rest(text);
    const CSqlTokens next(&rest, behind);
    const Kind kind = next.Current().kind;
    if (kind != Kind::kEnd && kind != Kind::kComment && kind != Kind::kOpenString && kind != Kind::kSemicolon &&
        !(kind == Kind::kWord && (next.Current().word == Word::kOrder || IsDash(text.substr(behind))))) {
      continue;
    }
    std::string_view before = text.substr(0, begin);
    while (!before.empty() && (IsSpace(before.back()) || before.back() == '(')) before.remove_suffix(1);
    std::size_t word = before.size();
    while (word > 0 && IsLetter(before[word - 1])) --word;
    if (!EqualNoCase(before.substr(word), "or") && !EqualNoCase(before.substr(word), "and")) continue;
    if (word > 0 && IsWordByte(before[word - 1])) continue;
    return SqlExpressionFinding{SqlExpressionKind::kCondition, word, behind};
  }
  return {};
}

/// What is told without reading on from a break-out.
Finding Last(std::string_view text) {
  const Finding found = Probe(text);
  return found ? found : EqualNumbers(text);
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
    if (*first == std::string_view::npos) return Last(text);
    const std::size_t behind = *first + 1;
    if (!CSqlExpressionReader::IsVain(&value, behind)) {
      if (Finding found = CSqlExpressionReader(&value, behind, Before::kQuote).Run()) return found;
    }
    *first = text.find(kQuotes[static_cast<std::size_t>(first - next.begin())], behind);
  }
}

}  // namespace qiv
