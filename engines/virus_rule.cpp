#include "engines/virus_rule.h"

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

void AddTerms(std::string_view piece, std::string_view separator, std::vector<std::string>* terms) {
  for (const std::string_view term : Split(piece, separator)) {
    if (!term.empty()) terms->emplace_back(term);
  }
}

}  // namespace

VirusRule ParseVirusPattern(std::string_view pattern) {
  const std::string text = BlankFreeLower(pattern);
  VirusRule rule;
  if (text.find("--") != std::string::npos) {
    rule.kind = PatternKind::kExcluding;
    const std::size_t first = text.find("--");
    AddTerms(std::string_view(text).substr(0, first), "++", &rule.terms);
    AddTerms(std::string_view(text).substr(first), "--", &rule.excluded);
  } else if (text.find("++") != std::string::npos) {
    rule.kind = PatternKind::kAllOf;
    AddTerms(text, "++", &rule.terms);
  } else if (text.find("!!") != std::string::npos) {
    rule.kind = PatternKind::kSequence;
    AddTerms(text, "!!", &rule.terms);
  } else if (text.find('!') != std::string::npos) {
    rule.kind = PatternKind::kNearSequence;
    AddTerms(text, "!", &rule.terms);
  } else if (!text.empty()) {
    rule.terms.push_back(text);
  }
  return rule;
}

std::string BlankFreeLower(std::string_view text) {
  std::string copy;
  copy.resize(text.size());
  char* out = copy.data();
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (static_cast<unsigned char>(c) < 0x80) {  // without a branch on the byte: blanks come unforeseen
      *out = static_cast<char>(c | (c >= 'A' && c <= 'Z' ? 0x20 : 0));
      out += c != ' ' && c != '\t';
    } else {
      *out++ = c;
      if (CCharSet::CharacterLength(text, i) == 2) *out++ = text[++i];
    }
  }
  copy.resize(static_cast<std::size_t>(out - copy.data()));
  return copy;
}

}  // namespace qiv
