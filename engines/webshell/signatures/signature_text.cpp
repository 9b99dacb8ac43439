#include "engines/webshell/signatures/signature_text.h"

#include <algorithm>
#include <array>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kFields = 7;
constexpr std::uint32_t kDefaultKind = 4;

void AddRecord(std::string* text, std::string_view pattern, std::string_view name, std::uint32_t number,
               std::uint32_t kind) {
  text->append(pattern).append("{*}0{*}").append(name).append("{*}0{*}0{*}");
  text->append(std::to_string(kind)).append("{*}").append(std::to_string(number)).append("{#}");
}

std::vector<std::string_view> Records(std::string_view text) {
  std::vector<std::string_view> records = Split(text, "{#}");
  for (std::string_view& record : records) record = TrimBytes(record, "\r\n");
  return records;
}

}  // namespace

void AddSignatureRule(std::string* text, std::string_view pattern, std::string_view joined_by, std::string_view name,
                      std::span<const std::string_view> extra_terms, std::uint32_t number, std::uint32_t kind) {
  std::string first = CCharSet::LowerAscii(pattern);
  std::string excluded;
  const std::size_t dashes = FindExclusion(first);
  if (dashes != std::string::npos) {
    excluded = first.substr(dashes);
    first.resize(dashes);
  }
  bool has_others = false;
  for (const std::string_view term : extra_terms) {
    if (term.starts_with("--")) {
      excluded += CCharSet::LowerAscii(term);
    } else {
      has_others = true;
    }
  }
  if (has_others && dashes != std::string::npos) first = ReplaceAll(first, "!!", "++");
  if (!has_others) AddRecord(text, first + excluded, name, number, kind);
  for (const std::string_view term : extra_terms) {
    if (term.starts_with("--")) continue;
    AddRecord(text, first + std::string(joined_by) + CCharSet::LowerAscii(term) + excluded, name, number, kind);
  }
}

std::vector<SignatureRule> ParseSignatureRules(std::string_view text) {
  std::vector<SignatureRule> rules;
  for (const std::string_view record : Records(text)) {
    const std::vector<std::string_view> fields = Split(record, "{*}");
    if (fields.empty()) continue;
    SignatureRule rule = ParseSignaturePattern(fields[0]);
    if (rule.terms.empty()) continue;
    if (fields.size() > 2) rule.name = SignatureName::FromText(fields[2]);
    rule.number = kDefaultKind;
    if (fields.size() >= kFields) {
      rule.number = DigitsToNumber(Trim(fields[fields.size() - 2]));
      rule.size_limit = DigitsToNumber(Trim(fields.back()));
    }
    rules.push_back(std::move(rule));
  }
  return rules;
}

std::vector<std::string> ParseSignatureTexts(std::string_view text) {
  std::vector<std::string> texts;
  for (const std::string_view record : Records(text)) {
    const std::string_view first = record.substr(0, record.find("{*}"));
    if (!first.empty()) texts.emplace_back(first);
  }
  return texts;
}

}  // namespace qiv
