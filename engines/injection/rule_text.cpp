#include "engines/injection/rule_text.h"

#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kFields = 4;

// "shown==word*word" into the rule; empty words (a doubled or trailing separator) are left out.
void ParseKeyword(std::string_view field, char word_separator, bool decode, InjectionRule* rule) {
  const auto plain = [decode](std::string_view text) { return decode ? PercentDecode(text) : std::string(text); };
  const std::size_t equals = field.find("==");
  rule->shown = CCharSet::LowerAscii(plain(field.substr(0, equals)));
  const std::string_view words = equals == std::string_view::npos ? field : field.substr(equals + 2);
  for (const std::string_view word : Split(words, word_separator)) {
    if (!word.empty()) rule->words.push_back(CCharSet::LowerAscii(plain(word)));
  }
}

}  // namespace

char RuleWordSeparator(std::string_view setting) {
  if (setting.size() == 1) return setting.front();
  return setting == "space" ? ' ' : '*';
}

std::vector<InjectionRule> ParseRules(std::string_view text, char word_separator, bool user_defined) {
  std::vector<InjectionRule> rules;
  for (std::string_view record : Split(text, "{#}")) {
    while (!record.empty() && (record.front() == '\r' || record.front() == '\n')) record.remove_prefix(1);
    const std::vector<std::string_view> fields = Split(record, "{*}");
    if (fields.size() < kFields) continue;
    InjectionRule rule;
    ParseKeyword(fields[0], word_separator, user_defined, &rule);
    rule.second = CCharSet::LowerAscii(fields[1]);
    rule.remark = fields[2];
    rule.identifier = fields[3];
    rules.push_back(std::move(rule));
  }
  return rules;
}

}  // namespace qiv
