#include "engines/injection/word_list.h"

#include <algorithm>

#include "common/char_set.h"

namespace qiv {
namespace {

constexpr bool IsLead(char c) { return CCharSet::IsLeadByte(static_cast<unsigned char>(c)); }
constexpr bool IsTrail(char c) { return CCharSet::IsTrailByte(static_cast<unsigned char>(c)); }

bool HoldsCharacters(std::string_view word) {
  for (std::size_t i = 0; i + 1 < word.size(); ++i) {
    if (CCharSet::CharacterLength(word, i) == 2) return true;
  }
  return false;
}

}  // namespace

CWordList::CWordList(const std::vector<std::string>& words) {
  std::vector<std::string> patterns = words;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (!HoldsCharacters(words[i])) continue;
    with_characters_.resize(words.size());
    with_characters_[i] = words[i];
    patterns[i] = CCharSet::LowerBytes(words[i]);
    longest_ = std::max(longest_, words[i].size());
  }
  patterns_ = CMultiPattern(patterns);
}

std::size_t CWordList::FindFirst(const JudgedText& text) const {
  CWholeCharacters whole(*this, text.exact);
  std::size_t found = std::string_view::npos;
  patterns_.Find(text.lowered, [&](std::uint32_t word, std::size_t begin) {
    if (whole.Counts(word, begin)) found = begin;
    return found == std::string_view::npos;
  });
  return found;
}

bool CWholeCharacters::IsWhole(std::uint32_t word, std::size_t begin) {
  const std::string_view bytes = words_.with_characters_[word];
  if (!BeginsCharacter(begin)) return false;
  bool open = false;  // the last byte would take another one into its character
  for (std::size_t i = 0; i < bytes.size();) {
    const std::size_t length = CCharSet::CharacterLength(bytes, i);
    if (length == 2 && exact_.substr(begin + i, 2) != bytes.substr(i, 2)) return false;
    open = length == 1 && IsLead(bytes[i]);
    i += length;
  }
  const std::size_t end = begin + bytes.size();
  return !open || end == exact_.size() || !IsTrail(exact_[end]);
}

bool CWholeCharacters::BeginsCharacter(std::size_t pos) {
  furthest_ = std::max(furthest_, pos);
  while (walked_ + words_.longest_ < furthest_) walked_ += CCharSet::CharacterLength(exact_, walked_);
  std::size_t at = walked_;
  while (at < pos) at += CCharSet::CharacterLength(exact_, at);
  return at == pos;
}

std::size_t FindWord(const JudgedText& text, const std::string& word) { return CWordList({word}).FindFirst(text); }

}  // namespace qiv
