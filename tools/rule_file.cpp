#include "tools/rule_file.h"

#include <optional>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/injection/rule_text.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

constexpr std::size_t kFields = 5;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Every "%" must begin an escape; nothing otherwise.
std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    const int high = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    plain += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return plain;
}

std::string HexEscape(char c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  return {'%', kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string Escape(std::string_view text) {
  std::string escaped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const bool end_blank = c == ' ' && (i == 0 || i + 1 == text.size());
    if (c >= 0x20 && c != 0x7F && c != '%' && c != '*' && !end_blank) {
      escaped += text[i];
    } else {
      escaped += HexEscape(text[i]);
    }
  }
  return escaped;
}

/// A text of a user-defined record: what the loader would divide at, or drop, as "%XX". `last`: "==" follows.
std::string Encoded(std::string_view text, char separator, bool last) {
  std::string encoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view rest = text.substr(i);
    const bool divides = rest.front() == '%' || rest.front() == separator || rest.starts_with("{#}") ||
                         rest.starts_with("{*}") || rest.starts_with("==") || (last && rest == "=");
    if (divides || static_cast<unsigned char>(rest.front()) < 0x20) {
      encoded += HexEscape(rest.front());
    } else {
      encoded += rest.front();
    }
  }
  return encoded;
}

std::string Joined(const std::vector<std::string>& words, std::string_view separator) {
  std::string joined;
  for (const std::string& word : words) {
    if (&word != &words.front()) joined += separator;
    joined += word;
  }
  return joined;
}

/// What is wrong with the line; null when nothing is.
const char* ParseLine(std::string_view text, RuleLine* rule) {
  const std::vector<std::string_view> fields = SplitUtf8(text, "\t");
  if (fields.size() != kFields) {
    return "a rule has five fields divided by tabs: identifier, words, shown text, English and Chinese remark";
  }
  if (fields[0].empty()) return "the identifier is empty";
  rule->identifier = fields[0];
  for (const std::string_view word : SplitUtf8(fields[1], "*")) {
    std::optional<std::string> plain = Unescape(word);
    if (!plain) return "\"%\" is not followed by two hexadecimal digits; \"%\" itself is written %25";
    if (plain->empty()) return "a word is empty; \"*\" itself is written %2A";
    rule->words.push_back(std::move(*plain));
  }
  if (fields[2].empty()) return "the shown text is empty; \"-\" shows the words";
  for (const auto& [field, out] :
       {std::pair{fields[2], &rule->shown}, {fields[3], &rule->english}, {fields[4], &rule->chinese}}) {
    std::optional<std::string> plain = Unescape(field);
    if (!plain) return "\"%\" is not followed by two hexadecimal digits; \"%\" itself is written %25";
    *out = std::move(*plain);
  }
  if (fields[2] == "-") rule->shown.clear();
  return nullptr;
}

}  // namespace

std::vector<RuleLine> ReadRuleFile(std::string_view text, CReport* report) {
  std::vector<RuleLine> rules;
  std::size_t number = 0;
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  for (std::string_view line : SplitUtf8(text, "\n")) {
    ++number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    RuleLine rule;
    rule.line = number;
    if (!CCharSet::IsValidUtf8(line)) {
      report->Error(number, "the line is no valid UTF-8");
    } else if (const char* const fault = ParseLine(line, &rule); fault != nullptr) {
      report->Error(number, fault);
    } else {
      rules.push_back(std::move(rule));
    }
  }
  return rules;
}

std::string WriteRuleFile(const std::vector<RuleLine>& rules) {
  std::string text;
  for (const RuleLine& rule : rules) {
    std::vector<std::string> words;
    for (const std::string& word : rule.words) words.push_back(Escape(word));
    const std::string shown = rule.shown == "-" ? "%2D" : Escape(rule.shown);
    text += rule.identifier + "\t" + Joined(words, "*") + "\t" + (shown.empty() ? "-" : shown) + "\t" +
            Escape(rule.english) + "\t" + Escape(rule.chinese) + "\n";
  }
  return text;
}

std::string LibraryRecord(const RuleLine& rule, const RecordForm& form, CReport* report) {
  const std::string_view separator(&form.separator, 1);
  const std::string words = Joined(rule.words, separator);
  std::string keyword = rule.shown.empty() ? words : rule.shown + "==" + words;
  if (form.user_defined) {
    std::vector<std::string> encoded;
    for (const std::string& word : rule.words) encoded.push_back(Encoded(word, form.separator, false));
    keyword = Joined(encoded, separator);
    if (!rule.shown.empty()) keyword = Encoded(rule.shown, form.separator, true) + "==" + keyword;
  }
  const std::string& remark = form.language == Language::kChinese ? rule.chinese : rule.english;
  const std::string record = keyword + "{*}*{*}" + remark + "{*}" + rule.identifier;

  // The loader itself says whether the record comes back as it was meant.
  const std::string stored = CCharSet::Utf8ToLocal(record + "{#}");
  const std::vector<InjectionRule> loaded = ParseRules(stored, form.separator, form.user_defined);
  InjectionRule meant;
  meant.shown = CCharSet::LowerAscii(CCharSet::Utf8ToLocal(rule.shown.empty() ? words : rule.shown));
  meant.remark = CCharSet::Utf8ToLocal(remark);
  meant.identifier = rule.identifier;
  for (const std::string& word : rule.words) {
    meant.words.push_back(CCharSet::LowerAscii(CCharSet::Utf8ToLocal(word)));
  }
  if (loaded.size() == 1 && loaded.front() == meant) return record;
  report->Error(rule.line,
                "the library cannot carry this rule: a text holds \"{*}\", \"{#}\" or \"==\", or a word holds the "
                "separator \"" +
                    std::string(1, form.separator) + "\"");
  return {};
}

}  // namespace qiv
