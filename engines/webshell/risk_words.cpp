// The weights come from measuring samples against ordinary applications (docs/webshell-detection.md): only words of
// what webshells do are listed, no author's or sample's own names, so that files of other collections are found as
// well; a word's weight grows with how much commoner it is in samples, and is rounded so that a few of them are needed
// together.
#include "engines/webshell/risk_words.h"

#include <array>
#include <cstddef>
#include <vector>

#include "common/text.h"

namespace qiv {
namespace {

struct RiskWord {
  std::string_view word;
  std::int16_t weight;
};

constexpr RiskWord kPhpWords[] = {
#include "engines/webshell/risk_words_php.inc"
};
constexpr RiskWord kAspWords[] = {
#include "engines/webshell/risk_words_asp.inc"
};
constexpr RiskWord kAspxWords[] = {
#include "engines/webshell/risk_words_aspx.inc"
};

constexpr std::uint32_t kOffset = 2166136261U;  // FNV-1a
constexpr std::uint32_t kPrime = 16777619U;

constexpr std::uint32_t Hash(std::string_view word) {
  std::uint32_t hash = kOffset;
  for (const char c : word) hash = (hash ^ static_cast<unsigned char>(c)) * kPrime;
  return hash;
}

constexpr std::size_t kSlots = 2048;  // a power of two, far above the number of words
constexpr std::size_t kMostWords = 512;
constexpr std::size_t kLongestWord = 32;

class CWordTable {
 public:
  template <std::size_t n>
  explicit CWordTable(const RiskWord (&words)[n]) : words_(words) {
    static_assert(n < kMostWords);
    for (std::size_t i = 0; i < n; ++i) {
      std::size_t slot = Hash(words[i].word) % kSlots;
      while (slots_[slot] != 0) slot = (slot + 1) % kSlots;
      slots_[slot] = static_cast<std::uint16_t>(i + 1);
    }
  }

  // The word's number, or kMostWords.
  std::size_t Find(std::string_view word, std::uint32_t hash) const {
    for (std::size_t slot = hash % kSlots; slots_[slot] != 0; slot = (slot + 1) % kSlots) {
      if (words_[slots_[slot] - 1].word == word) return slots_[slot] - 1U;
    }
    return kMostWords;
  }
  const RiskWord& At(std::size_t number) const { return words_[number]; }

 private:
  const RiskWord* words_;
  std::array<std::uint16_t, kSlots> slots_{};
};

const CWordTable& Table(RiskLanguage language) {
  static const CWordTable kPhp(kPhpWords);
  static const CWordTable kAsp(kAspWords);
  static const CWordTable kAspx(kAspxWords);
  return language == RiskLanguage::kPhp ? kPhp : language == RiskLanguage::kAsp ? kAsp : kAspx;
}

// Whether the word is one of a list inside a text: what filters look for, not what the page does.
bool IsListed(std::string_view text, std::size_t begin, std::size_t end) {
  const char before = begin > 0 ? text[begin - 1] : ' ';
  const char behind = end < text.size() ? text[end] : ' ';
  return before == '|' || behind == '|' || (before == ',' && behind == ',');
}

}  // namespace

RiskScore ScoreRiskWords(std::string_view text, RiskLanguage language) {
  const CWordTable& table = Table(language);
  std::array<bool, kMostWords> met{};
  RiskScore result;
  std::int32_t heaviest = 0;
  char word[kLongestWord];
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!IsWordByte(text[i])) continue;
    std::size_t length = 0;
    std::uint32_t hash = kOffset;
    for (; i < text.size() && IsWordByte(text[i]); ++i, ++length) {
      if (length >= kLongestWord) continue;
      const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] | 0x20) : text[i];
      word[length] = c;
      hash = (hash ^ static_cast<unsigned char>(c)) * kPrime;
    }
    if (length < 2 || length > kLongestWord) continue;
    if (language != RiskLanguage::kPhp && IsListed(text, i - length, i)) continue;
    const std::size_t number = table.Find(std::string_view(word, length), hash);
    if (number == kMostWords || met[number]) continue;
    met[number] = true;
    result.score += table.At(number).weight;
    if (table.At(number).weight > heaviest) {
      heaviest = table.At(number).weight;
      result.heaviest = table.At(number).word;
      result.begin = i - length;
    }
  }
  return result;
}

}  // namespace qiv
