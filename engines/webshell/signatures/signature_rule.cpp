#include "engines/webshell/signatures/signature_rule.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

void AddTerms(std::string_view piece, std::string_view separator, std::vector<std::string>* terms) {
  for (const std::string_view term : Split(piece, separator)) {
    if (!term.empty()) terms->emplace_back(term);
  }
}

constexpr auto kLower = [] {
  std::array<char, 256> lower{};
  for (std::size_t byte = 0; byte < lower.size(); ++byte) lower[byte] = LowerByte(static_cast<char>(byte));
  return lower;
}();
constexpr auto kIsKept = [] {
  std::array<std::uint8_t, 256> kept{};
  for (std::size_t byte = 0; byte < kept.size(); ++byte) kept[byte] = byte != ' ' && byte != '\t';
  return kept;
}();

}  // namespace

std::string SignatureName::Text() const {
  return chinese.empty() || chinese == english ? english : english + "\t" + chinese;
}

SignatureName SignatureName::FromText(std::string_view text) {
  const std::size_t tab = std::min(text.find('\t'), text.size());
  return {std::string(text.substr(0, tab)), std::string(text.substr(std::min(tab + 1, text.size())))};
}

std::size_t FindExclusion(std::string_view pattern, std::size_t from) {
  std::size_t found = pattern.find("--", from);
  while (found != std::string_view::npos && pattern.substr(0, found).ends_with("<!"))
    found = pattern.find("--", found + 2);
  return found;
}

SignatureRule ParseSignaturePattern(std::string_view pattern) {
  const std::string text = BlankFreeLower(pattern);
  SignatureRule rule;
  if (std::size_t begin = FindExclusion(text); begin != std::string::npos) {
    rule.kind = PatternKind::kExcluding;
    const std::string_view first = std::string_view(text).substr(0, begin);
    rule.in_order = first.find("++") == std::string_view::npos && first.find("!!") != std::string_view::npos;
    AddTerms(first, rule.in_order ? "!!" : "++", &rule.terms);
    while (begin != std::string::npos) {
      const std::size_t end = FindExclusion(text, begin + 2);
      std::string term = text.substr(begin + 2, end == std::string::npos ? end : end - begin - 2);
      if (!term.empty()) rule.excluded.push_back(std::move(term));
      begin = end;
    }
  } else if (text.find("++") != std::string::npos) {
    rule.kind = PatternKind::kAllOf;
    AddTerms(text, "++", &rule.terms);
  } else if (text.find("!!") != std::string::npos) {
    rule.kind = PatternKind::kSequence;
    rule.in_order = true;
    AddTerms(text, "!!", &rule.terms);
  } else if (text.find('!') != std::string::npos) {
    rule.kind = PatternKind::kNearSequence;
    rule.in_order = true;
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
    const auto byte = static_cast<unsigned char>(text[i]);
    *out = kLower[byte];  // without a branch on the byte: blanks come unforeseen
    out += kIsKept[byte];
    if (byte >= 0x80 && CCharSet::CharacterLength(text, i) == 2) *out++ = text[++i];
  }
  copy.resize(static_cast<std::size_t>(out - copy.data()));
  return copy;
}

TextPlace PlaceInBlanks(std::string_view text, std::string_view copy, std::string_view term) {
  const std::size_t found = copy.find(term);
  if (term.empty() || found == std::string_view::npos) return {};
  std::size_t passed = 0;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ' ' || text[i] == '\t') continue;
    if (passed++ == found) begin = i;
    if (passed == found + term.size()) return {begin, i + 1 - begin};
  }
  return {};
}

}  // namespace qiv
