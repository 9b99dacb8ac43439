#include "engines/webshell/php/symbols.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

#include "common/char_set.h"
#include "engines/webshell/php/sources.h"

namespace qiv {
namespace {

struct Keyword {
  std::string_view text;
  PhpWord word;
};

constexpr Keyword kKeywords[] = {
    {"include", PhpWord::kInclude},
    {"include_once", PhpWord::kInclude},
    {"require", PhpWord::kInclude},
    {"require_once", PhpWord::kInclude},
    {"echo", PhpWord::kEcho},
    {"print", PhpWord::kEcho},
    {"throw", PhpWord::kEcho},
    {"yield", PhpWord::kReturn},
    {"case", PhpWord::kEcho},
    {"if", PhpWord::kStatement},
    {"elseif", PhpWord::kStatement},
    {"while", PhpWord::kStatement},
    {"for", PhpWord::kStatement},
    {"foreach", PhpWord::kStatement},
    {"switch", PhpWord::kStatement},
    {"catch", PhpWord::kStatement},
    {"declare", PhpWord::kStatement},
    {"return", PhpWord::kReturn},
    {"else", PhpWord::kElse},
    {"do", PhpWord::kBlock},
    {"try", PhpWord::kBlock},
    {"finally", PhpWord::kBlock},
    {"default", PhpWord::kBlock},
    {"new", PhpWord::kNew},
    {"clone", PhpWord::kClone},
    {"array", PhpWord::kList},
    {"list", PhpWord::kList},
    {"and", PhpWord::kLogic},
    {"or", PhpWord::kLogic},
    {"xor", PhpWord::kLogic},
    {"instanceof", PhpWord::kInstanceof},
    {"as", PhpWord::kAs},
    {"function", PhpWord::kFunction},
    {"fn", PhpWord::kArrowFunction},
    {"class", PhpWord::kClass},
    {"interface", PhpWord::kClass},
    {"trait", PhpWord::kClass},
    {"enum", PhpWord::kClass},
    {"public", PhpWord::kModifier},
    {"private", PhpWord::kModifier},
    {"protected", PhpWord::kModifier},
    {"var", PhpWord::kModifier},
    {"final", PhpWord::kModifier},
    {"abstract", PhpWord::kModifier},
    {"readonly", PhpWord::kModifier},
    {"static", PhpWord::kModifier},
    {"global", PhpWord::kGlobal},
    {"namespace", PhpWord::kNamespace},
    {"use", PhpWord::kNamespace},
    {"const", PhpWord::kConst},
    {"true", PhpWord::kBoolean},
    {"false", PhpWord::kBoolean},
    {"null", PhpWord::kNull},
};

/// False for most names.
bool MayBeWord(std::string_view lower) {
  static constexpr auto kLengths = [] {
    std::array<std::uint32_t, 256> lengths{};  // by the first letter, bits
    for (const Keyword& keyword : kKeywords)
      lengths[static_cast<unsigned char>(keyword.text[0])] |= 1U << keyword.text.size();
    return lengths;
  }();
  return !lower.empty() && lower.size() < 32 &&
         (kLengths[static_cast<unsigned char>(lower[0])] >> lower.size() & 1U) != 0;
}

PhpWord WordOf(std::string_view lower) {
  if (!MayBeWord(lower)) return PhpWord::kNone;
  const auto found =
      std::find_if(std::begin(kKeywords), std::end(kKeywords), [lower](const Keyword& k) { return k.text == lower; });
  return found == std::end(kKeywords) ? PhpWord::kNone : found->word;
}

}  // namespace

PhpName CPhpSymbols::NameOf(PhpToken& token) {
  if (token.code == kNoName) token.code = names_.Of(token.Text(source_), true);
  if (token.code == kNoName) token.code = NameWithoutRoom(token.Text(source_));
  return token.code;
}

PhpName CPhpSymbols::NameOf(std::string_view text) {
  constexpr std::size_t kShort = 64;  // bytes that are read whatever the budget
  if (text.size() > kShort && !budget_.Spend(text.size())) return kNoName;
  const PhpName name = names_.Of(text);
  return name == kNoName ? NameWithoutRoom(text) : name;
}

// There are more names than any program has: one that cannot be told from others may hold what the request says. Words,
// superglobals and known functions keep their meaning.
PhpName CPhpSymbols::NameWithoutRoom(std::string_view text) {
  overflowed_ = true;
  constexpr std::size_t kLongest = 40;  // of those
  if (text.size() > kLongest) return kNoName;
  if (SuperglobalNumber(text) != 0) return names_.OfAnyway(text);
  const std::string lower = CCharSet::LowerAscii(text);
  return WordOf(lower) != PhpWord::kNone || FindPhpFunction(lower) ? names_.OfAnyway(lower) : kNoName;
}

PhpName CPhpSymbols::LowerOf(PhpName name) {
  const PhpName lower = names_.Lower(name);
  return lower == kNoName && name != kNoName ? NameWithoutRoom(names_.Text(name)) : lower;
}

PhpNameFacts& CPhpSymbols::FactsOf(PhpName name) {
  if ((name & kNumberName) != 0) name = kNoName;
  while (name >= facts_.size()) facts_.Push();
  PhpNameFacts& facts = facts_[name];
  if (!facts.known) {
    const std::string_view text = names_.Text(name);
    const PhpFunction* const function = FindPhpFunction(text);
    facts = {true, WordOf(text), SuperglobalNumber(text), 0, 0, 0, 0};
    if (function != nullptr) facts.function = static_cast<std::uint16_t>(function - PhpFunctions().data() + 1);
  }
  return facts;
}

PhpName CPhpSymbols::IndexOf(const PhpValue& value) {
  constexpr std::int64_t kMostNumber = 1000000000;  // fits the number of a name
  if (value.is_number && value.number >= 0 && value.number < kMostNumber) {
    return NameOfNumber(static_cast<std::size_t>(value.number));
  }
  if (!value.is_number && value.HasText()) return NameOf(value.Text());
  std::string text;
  return PhpTextOf(value, &text) ? NameOf(text) : kNoName;
}

}  // namespace qiv
