// The words of SQL that sql_tokens tells from names.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "engines/injection/sql_tokens.h"

namespace qiv {

struct SqlWordRow {
  std::string_view text;
  SqlTokenKind kind;
  SqlWord word;
};

// Sorted by text. The functions are those of sqlmap's payloads and of public lists of injections, for MySQL, MariaDB,
// PostgreSQL, SQL Server, Oracle, SQLite and Access.
inline constexpr SqlWordRow kSqlWords[] = {
    {"all", SqlTokenKind::kWord, SqlWord::kAll},
    {"alter", SqlTokenKind::kWord, SqlWord::kAlter},
    {"and", SqlTokenKind::kConnective, SqlWord::kName},
    {"any", SqlTokenKind::kNot, SqlWord::kName},
    {"as", SqlTokenKind::kWord, SqlWord::kAs},
    {"ascii", SqlTokenKind::kWord, SqlWord::kFunction},
    {"benchmark", SqlTokenKind::kWord, SqlWord::kFunction},
    {"between", SqlTokenKind::kWord, SqlWord::kBetween},
    {"bin", SqlTokenKind::kWord, SqlWord::kFunction},
    {"binary", SqlTokenKind::kNot, SqlWord::kName},
    {"by", SqlTokenKind::kWord, SqlWord::kBy},
    {"call", SqlTokenKind::kWord, SqlWord::kCall},
    {"case", SqlTokenKind::kWord, SqlWord::kCase},
    {"cast", SqlTokenKind::kWord, SqlWord::kFunction},
    {"char", SqlTokenKind::kWord, SqlWord::kFunction},
    {"char_length", SqlTokenKind::kWord, SqlWord::kFunction},
    {"chr", SqlTokenKind::kWord, SqlWord::kFunction},
    {"coalesce", SqlTokenKind::kWord, SqlWord::kFunction},
    {"collate", SqlTokenKind::kWord, SqlWord::kCollate},
    {"concat", SqlTokenKind::kWord, SqlWord::kFunction},
    {"concat_ws", SqlTokenKind::kWord, SqlWord::kFunction},
    {"conv", SqlTokenKind::kWord, SqlWord::kFunction},
    {"convert", SqlTokenKind::kWord, SqlWord::kFunction},
    {"count", SqlTokenKind::kWord, SqlWord::kFunction},
    {"crc32", SqlTokenKind::kWord, SqlWord::kFunction},
    {"create", SqlTokenKind::kWord, SqlWord::kCreate},
    {"current_database", SqlTokenKind::kWord, SqlWord::kFunction},
    {"current_user", SqlTokenKind::kWord, SqlWord::kFunction},
    {"database", SqlTokenKind::kWord, SqlWord::kFunction},
    {"dbms_pipe.receive_message", SqlTokenKind::kWord, SqlWord::kFunction},
    {"dbms_utility.sqlid_to_sqlhash", SqlTokenKind::kWord, SqlWord::kFunction},
    {"declare", SqlTokenKind::kWord, SqlWord::kDeclare},
    {"delete", SqlTokenKind::kWord, SqlWord::kDelete},
    {"distinct", SqlTokenKind::kNot, SqlWord::kName},
    {"div", SqlTokenKind::kOperator, SqlWord::kName},
    {"drop", SqlTokenKind::kWord, SqlWord::kDrop},
    {"else", SqlTokenKind::kWord, SqlWord::kElse},
    {"elt", SqlTokenKind::kWord, SqlWord::kFunction},
    {"end", SqlTokenKind::kWord, SqlWord::kEnd},
    {"exec", SqlTokenKind::kWord, SqlWord::kExecute},
    {"execute", SqlTokenKind::kWord, SqlWord::kExecute},
    {"exists", SqlTokenKind::kNot, SqlWord::kName},
    {"exp", SqlTokenKind::kWord, SqlWord::kFunction},
    {"extractvalue", SqlTokenKind::kWord, SqlWord::kFunction},
    {"false", SqlTokenKind::kWord, SqlWord::kConstant},
    {"field", SqlTokenKind::kWord, SqlWord::kFunction},
    {"find_in_set", SqlTokenKind::kWord, SqlWord::kFunction},
    {"floor", SqlTokenKind::kWord, SqlWord::kFunction},
    {"from", SqlTokenKind::kWord, SqlWord::kFrom},
    {"generate_series", SqlTokenKind::kWord, SqlWord::kFunction},
    {"get_lock", SqlTokenKind::kWord, SqlWord::kFunction},
    {"glob", SqlTokenKind::kCompare, SqlWord::kName},
    {"grant", SqlTokenKind::kWord, SqlWord::kGrant},
    {"greatest", SqlTokenKind::kWord, SqlWord::kFunction},
    {"group", SqlTokenKind::kWord, SqlWord::kGroup},
    {"group_concat", SqlTokenKind::kWord, SqlWord::kFunction},
    {"gtid_subset", SqlTokenKind::kWord, SqlWord::kFunction},
    {"gtid_subtract", SqlTokenKind::kWord, SqlWord::kFunction},
    {"having", SqlTokenKind::kWord, SqlWord::kHaving},
    {"hex", SqlTokenKind::kWord, SqlWord::kFunction},
    {"if", SqlTokenKind::kWord, SqlWord::kFunction},
    {"ifnull", SqlTokenKind::kWord, SqlWord::kFunction},
    {"iif", SqlTokenKind::kWord, SqlWord::kFunction},
    {"ilike", SqlTokenKind::kCompare, SqlWord::kName},
    {"in", SqlTokenKind::kWord, SqlWord::kIn},
    {"insert", SqlTokenKind::kWord, SqlWord::kInsert},
    {"instr", SqlTokenKind::kWord, SqlWord::kFunction},
    {"into", SqlTokenKind::kWord, SqlWord::kInto},
    {"is", SqlTokenKind::kWord, SqlWord::kIs},
    {"isnull", SqlTokenKind::kWord, SqlWord::kFunction},
    {"json_keys", SqlTokenKind::kWord, SqlWord::kFunction},
    {"least", SqlTokenKind::kWord, SqlWord::kFunction},
    {"left", SqlTokenKind::kWord, SqlWord::kFunction},
    {"len", SqlTokenKind::kWord, SqlWord::kFunction},
    {"length", SqlTokenKind::kWord, SqlWord::kFunction},
    {"like", SqlTokenKind::kCompare, SqlWord::kName},
    {"limit", SqlTokenKind::kWord, SqlWord::kLimit},
    {"load_file", SqlTokenKind::kWord, SqlWord::kFunction},
    {"locate", SqlTokenKind::kWord, SqlWord::kFunction},
    {"lower", SqlTokenKind::kWord, SqlWord::kFunction},
    {"lpad", SqlTokenKind::kWord, SqlWord::kFunction},
    {"make_set", SqlTokenKind::kWord, SqlWord::kFunction},
    {"md5", SqlTokenKind::kWord, SqlWord::kFunction},
    {"mid", SqlTokenKind::kWord, SqlWord::kFunction},
    {"mod", SqlTokenKind::kOperator, SqlWord::kName},
    {"not", SqlTokenKind::kNot, SqlWord::kName},
    {"null", SqlTokenKind::kWord, SqlWord::kConstant},
    {"nullif", SqlTokenKind::kWord, SqlWord::kFunction},
    {"nvl", SqlTokenKind::kWord, SqlWord::kFunction},
    {"or", SqlTokenKind::kConnective, SqlWord::kName},
    {"ord", SqlTokenKind::kWord, SqlWord::kFunction},
    {"order", SqlTokenKind::kWord, SqlWord::kOrder},
    {"pg_sleep", SqlTokenKind::kWord, SqlWord::kFunction},
    {"position", SqlTokenKind::kWord, SqlWord::kFunction},
    {"procedure", SqlTokenKind::kWord, SqlWord::kProcedure},
    {"rand", SqlTokenKind::kWord, SqlWord::kFunction},
    {"randomblob", SqlTokenKind::kWord, SqlWord::kFunction},
    {"regexp", SqlTokenKind::kCompare, SqlWord::kName},
    {"repeat", SqlTokenKind::kWord, SqlWord::kFunction},
    {"replace", SqlTokenKind::kWord, SqlWord::kFunction},
    {"right", SqlTokenKind::kWord, SqlWord::kFunction},
    {"rlike", SqlTokenKind::kCompare, SqlWord::kName},
    {"row", SqlTokenKind::kWord, SqlWord::kFunction},
    {"schema", SqlTokenKind::kWord, SqlWord::kFunction},
    {"select", SqlTokenKind::kWord, SqlWord::kSelect},
    {"set", SqlTokenKind::kWord, SqlWord::kSet},
    {"sha1", SqlTokenKind::kWord, SqlWord::kFunction},
    {"shutdown", SqlTokenKind::kWord, SqlWord::kShutdown},
    {"sleep", SqlTokenKind::kWord, SqlWord::kFunction},
    {"some", SqlTokenKind::kNot, SqlWord::kName},
    {"sqlite_version", SqlTokenKind::kWord, SqlWord::kFunction},
    {"strcmp", SqlTokenKind::kWord, SqlWord::kFunction},
    {"substr", SqlTokenKind::kWord, SqlWord::kFunction},
    {"substring", SqlTokenKind::kWord, SqlWord::kFunction},
    {"sys_eval", SqlTokenKind::kWord, SqlWord::kFunction},
    {"table", SqlTokenKind::kWord, SqlWord::kTable},
    {"then", SqlTokenKind::kWord, SqlWord::kThen},
    {"true", SqlTokenKind::kWord, SqlWord::kConstant},
    {"truncate", SqlTokenKind::kWord, SqlWord::kTruncate},
    {"typeof", SqlTokenKind::kWord, SqlWord::kFunction},
    {"unhex", SqlTokenKind::kWord, SqlWord::kFunction},
    {"unicode", SqlTokenKind::kWord, SqlWord::kFunction},
    {"union", SqlTokenKind::kWord, SqlWord::kUnion},
    {"update", SqlTokenKind::kWord, SqlWord::kUpdate},
    {"updatexml", SqlTokenKind::kWord, SqlWord::kFunction},
    {"upper", SqlTokenKind::kWord, SqlWord::kFunction},
    {"user", SqlTokenKind::kWord, SqlWord::kFunction},
    {"user_name", SqlTokenKind::kWord, SqlWord::kFunction},
    {"utl_inaddr.get_host_address", SqlTokenKind::kWord, SqlWord::kFunction},
    {"values", SqlTokenKind::kWord, SqlWord::kValues},
    {"version", SqlTokenKind::kWord, SqlWord::kFunction},
    {"waitfor", SqlTokenKind::kWord, SqlWord::kWaitfor},
    {"when", SqlTokenKind::kWord, SqlWord::kWhen},
    {"where", SqlTokenKind::kWord, SqlWord::kWhere},
    {"xmltype", SqlTokenKind::kWord, SqlWord::kFunction},
    {"xor", SqlTokenKind::kConnective, SqlWord::kName},
};
inline constexpr std::size_t kLongestSqlWord = 29;
static_assert(std::is_sorted(std::begin(kSqlWords), std::end(kSqlWords),
                             [](const SqlWordRow& a, const SqlWordRow& b) { return a.text < b.text; }));

/// Per first letter, the lengths of its words as bits: most names are told from words by it.
inline constexpr std::array<std::uint32_t, 26> kSqlWordLengths = [] {
  std::array<std::uint32_t, 26> lengths{};
  for (const SqlWordRow& row : kSqlWords) lengths[static_cast<std::size_t>(row.text[0] - 'a')] |= 1U << row.text.size();
  return lengths;
}();

/// Per first letter, where its words begin; behind the last one, where they end.
inline constexpr std::array<std::uint8_t, 27> kSqlWordBegins = [] {
  static_assert(std::size(kSqlWords) < 256);
  std::array<std::uint8_t, 27> begins{};
  for (const SqlWordRow& row : kSqlWords) ++begins[static_cast<std::size_t>(row.text[0] - 'a') + 1];
  for (std::size_t i = 1; i < begins.size(); ++i) begins[i] = static_cast<std::uint8_t>(begins[i] + begins[i - 1]);
  return begins;
}();

}  // namespace qiv
