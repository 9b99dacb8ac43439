// The clauses and statements that an expression may go on with.
#include "engines/injection/sql_expression_reader.h"

namespace qiv {

bool CSqlExpressionReader::SelectList(bool certain) {
  Next();
  while (Is(Kind::kNot) || Is(Word::kAll)) Next();
  while (Is(Kind::kOpen)) Next();
  switch (tokens_.Current().kind) {
    case Kind::kNumber:
    case Kind::kString:
    case Kind::kOpenString:
    case Kind::kOperator:
      return true;
    case Kind::kCompare: {  // "like('a','b')"
      const bool word = IsLetter(Text().front());
      Next();
      return word && Is(Kind::kOpen);
    }
    case Kind::kWord:
      break;
    case Kind::kEnd:  // "1 union select": what follows stands in another parameter
      return certain;
    default:
      return certain && Text() == "{";  // "{x 1}"
  }
  if (Is(Word::kConstant) || Is(Word::kCase) || Is(Word::kSelect) || Text().starts_with("@@")) return true;
  Next();
  if (Is(Kind::kOpen) || Is(Word::kFrom) || Is(Word::kWhere) || Is(Kind::kNumber)) return true;  // "top 1" as well
  if (Is(Kind::kComma)) {
    Next();
    return Is(Kind::kNumber) || Is(Kind::kString) || Is(Kind::kWord);
  }
  if (!certain) return false;
  const bool at_end = before_ == Before::kQuote ? Is(Kind::kComment) : IsEnd();
  return at_end || Is(Kind::kClose) || Is(Kind::kConnective);
}

CSqlExpressionReader::Finding CSqlExpressionReader::Subquery() {
  if (SelectList(false)) return Found(Result::kSubquery);
  if (!Is(Kind::kClose)) return {};
  Next();
  return Behind(Operand::kName);
}

CSqlExpressionReader::Finding CSqlExpressionReader::Union() {
  const std::size_t begin = tokens_.Current().begin;
  Next();
  // "-1/**/union": the rest stands in another parameter.
  if (IsEnd() && before_ == Before::kNumber) {
    const bool divided = text_.substr(0, begin).ends_with("*/");
    return divided || arithmetic_ > 0 || text_.starts_with('-') ? Found(Result::kUnion) : Finding();
  }
  while (Is(Word::kAll) || Is(Kind::kNot)) Next();  // all, distinct
  while (Is(Kind::kOpen)) Next();
  if (Is(Word::kValues) || Is(Word::kTable)) {
    Next();
    return Is(Kind::kOpen) || Is(Kind::kWord) ? Found(Result::kUnion) : Finding();
  }
  if (!Is(Word::kSelect)) return {};
  return SelectList(before_ == Before::kQuote || before_ == Before::kNumber) ? Found(Result::kUnion) : Finding();
}

CSqlExpressionReader::Finding CSqlExpressionReader::Ordered(bool order) {
  Next();
  if (!Skip(Word::kBy)) return {};
  if (IsEnd()) return Complete(false);
  const bool number = Is(Kind::kNumber);
  if (before_ == Before::kName && !number) return {};
  if (!number && !Is(Kind::kWord)) return Is(Kind::kOpen) || Is(Kind::kNot) ? Operands() : Finding();
  Next();
  if (Is(Kind::kOpen) && !number) return Found(Result::kClause);
  while (Is(Kind::kComma) && read_ < most_) {
    Next();
    const bool function = Is(Word::kFunction);
    Next();
    if (function && Is(Kind::kOpen)) return Found(Result::kClause);
  }
  if (Is(Word::kHaving) || Is(Word::kUnion)) return Operators();
  if (Is(Kind::kComment)) return Found(Result::kClause);
  // Behind nothing but a bracket, not behind a name: ") order by 9". "order by 9" alone is plain text.
  const bool alone = before_ != Before::kName || Trim(text_.substr(0, begin_)).empty();
  return number && order && Is(Kind::kEnd) && alone ? Found(Result::kClause) : Finding();
}

void CSqlExpressionReader::SkipModifiers() {
  constexpr std::string_view kModifiers[] = {"low_priority", "high_priority", "delayed", "quick", "ignore"};
  const auto is_modifier = [this](std::string_view word) { return EqualNoCase(Text(), word); };
  while (Is(Kind::kWord) && std::any_of(std::begin(kModifiers), std::end(kModifiers), is_modifier)) Next();
}

CSqlExpressionReader::Finding CSqlExpressionReader::Updated() {
  SkipModifiers();
  if (!Is(Kind::kWord)) return {};
  Next();
  if (Is(Word::kSet)) return Found(Result::kStacked);
  // "update users u set a=1": with a second name prose looks alike up to here.
  Skip(Word::kAs);
  Next();
  if (!Skip(Word::kSet)) return {};
  Next();
  return Is(Kind::kCompare) ? Found(Result::kStacked) : Finding();
}

namespace {

/// As far as no sentence goes on: "?" is a word or a string, "'" a string, "0" a number, "." the end of the statement.
constexpr std::string_view kLongStatements[] = {
    "attach ' as",
    "attach database '",
    "backup database ? to",
    "backup log ? to",
    "begin transaction .",
    "bulk insert ? from",
    "copy ? from '",
    "copy ? from program",
    "copy ? to '",
    "copy ? to program",
    "create user ? identified",
    "dbcc ? (",
    "do ? (",
    "grant ? on ? to",
    "grant ? privileges on",
    "grant ? to ? .",
    "handler ? open",
    "install plugin ? soname",
    "kill 0 .",
    "lock tables ? read",
    "lock tables ? write",
    "merge into ? using",
    "pragma ? (",
    "pragma ? =",
    "prepare ? from",
    "print ' .",
    "print 0 .",
    "reconfigure .",
    "reconfigure with override",
    "rename table ? to",
    "rename user ? to",
    "replace into ? (",
    "replace into ? select",
    "replace into ? set",
    "replace into ? values",
    "restore database ? from",
    "restore log ? from",
    "revoke ? on ? from",
    "use ? ;",
    "while (",
    "while 0 =",
    "with ? as (",
};

bool Fits(std::string_view part, const SqlToken& token, std::string_view text) {
  const bool is_string = token.kind == SqlTokenKind::kString || token.kind == SqlTokenKind::kOpenString;
  switch (part[0]) {
    case '?':
      return is_string || token.kind == SqlTokenKind::kWord;
    case '\'':
      return is_string;
    case '0':
      return token.kind == SqlTokenKind::kNumber;
    case '.':
      return token.kind == SqlTokenKind::kEnd || token.kind == SqlTokenKind::kComment ||
             token.kind == SqlTokenKind::kSemicolon;
    default:
      return EqualNoCase(text.substr(token.begin, token.end - token.begin), part);
  }
}

}  // namespace

bool CSqlExpressionReader::IsLongStatement() {
  if (!Is(Kind::kWord)) return false;
  const std::string_view first = Text();
  for (std::string_view form : kLongStatements) {
    if (form[0] != LowerByte(first[0])) continue;
    const std::string_view word = form.substr(0, form.find(' '));
    if (!EqualNoCase(first, word)) continue;
    CSqlTokens tokens = tokens_;
    int parts = 0;
    bool fits = true;
    while (fits && !form.empty()) {
      const std::string_view part = form.substr(0, form.find(' '));
      fits = Fits(part, tokens.Current(), text_);
      tokens.Advance();
      ++parts;
      form.remove_prefix(std::min(part.size() + 1, form.size()));
    }
    if (!fits) continue;
    for (; parts > 1; --parts) Next();
    return true;
  }
  return false;
}

bool CSqlExpressionReader::IsStatementWord(SqlWord word) {
  switch (word) {
    case Word::kAlter:
    case Word::kCreate:
    case Word::kDeclare:
    case Word::kDelete:
    case Word::kDrop:
    case Word::kExecute:
    case Word::kInsert:
    case Word::kSelect:
    case Word::kShutdown:
    case Word::kTruncate:
    case Word::kUpdate:
      return true;
    default:
      return false;
  }
}

CSqlExpressionReader::Finding CSqlExpressionReader::FollowingStatement() {
  if (!IsStatementWord(tokens_.Current().word)) return {};
  if (before_ == Before::kQuote && !IsBehindName()) return {};
  if (EndsInComment(text_) || Is(Word::kDeclare)) return Statement();
  return IsLongStatement() ? Found(Result::kStacked) : Finding();
}

CSqlExpressionReader::Finding CSqlExpressionReader::Statement() {
  const Word word = tokens_.Current().kind == Kind::kWord ? tokens_.Current().word : Word::kName;
  if (IsLongStatement()) return Found(Result::kStacked);
  if (word == Word::kSelect) return SelectList(false) ? Found(Result::kStacked) : Finding();
  const std::string_view first = Text();
  const bool alone = before_ == Before::kNumber || IsBehindName();
  Next();
  if (word == Word::kName && alone && HasShortComment("-")) return Found(Result::kStacked);  // ";analyze--"
  const bool name = Is(Kind::kWord);
  const std::string_view second = name ? Text() : std::string_view();
  switch (word) {
    case Word::kInsert:
      SkipModifiers();
      return Is(Word::kInto) ? Found(Result::kStacked) : Finding();
    case Word::kDelete:
      SkipModifiers();
      return Is(Word::kFrom) ? Found(Result::kStacked) : Finding();
    case Word::kCreate:
      if (Is(Kind::kConnective)) return Found(Result::kStacked);  // "or replace"
      [[fallthrough]];
    case Word::kDrop:
    case Word::kAlter:
    case Word::kTruncate:
      return name && IsSchemaWord(second) ? Found(Result::kStacked) : Finding();
    case Word::kUpdate:
      return Updated();
    case Word::kWaitfor:
      return EqualNoCase(second, "delay") || EqualNoCase(second, "time") ? Found(Result::kStacked) : Finding();
    case Word::kDeclare:
      return second.starts_with('@') ? Found(Result::kStacked) : Finding();
    case Word::kShutdown:
      return IsEnd() || Is(Kind::kSemicolon) || EqualNoCase(second, "with") ? Found(Result::kStacked) : Finding();
    case Word::kExecute:
      return Is(Kind::kOpen) || Is(Kind::kString) || second.find('_') != std::string_view::npos ||
                     second.starts_with('@')
                 ? Found(Result::kStacked)
                 : Finding();
    case Word::kCall:
      Next();
      return name && Is(Kind::kOpen) ? Found(Result::kStacked) : Finding();
    case Word::kFunction:  // "; if(1=1) waitfor ..."
      if (Is(Kind::kOpen) && (EqualNoCase(first, "if") || EqualNoCase(first, "iif"))) {
        while (Is(Kind::kOpen) || Is(Kind::kNot)) Next();
        const bool prose = Is(Word::kName) && !Text().starts_with('@');
        return prose || Is(Kind::kClose) ? Finding() : Found(Result::kStacked);
      }
      return Is(Kind::kOpen) && !first.empty() ? Operands() : Finding();
    case Word::kSet:
      return second.starts_with('@') ? Found(Result::kStacked) : Finding();
    default:  // "begin dbms_lock.sleep(5)"
      return EqualNoCase(first, "begin") && second.find('.') != std::string_view::npos ? Found(Result::kStacked)
                                                                                       : Finding();
  }
}

}  // namespace qiv
