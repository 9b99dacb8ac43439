#include "engines/injection/match_excerpt.h"

#include <algorithm>

#include "common/char_set.h"

namespace qiv {
namespace {

constexpr std::size_t kExcerpt = 500;  // bytes shown
constexpr std::size_t kBefore = 250;   // of them before the match
constexpr std::string_view kCut = "...";

// A cut between characters is found by walking characters. Looking at the neighbouring byte alone cannot tell: in a run
// of high bytes every one may be a lead byte, and a trail byte may be ASCII. Where it can tell, the answer is the same.
std::size_t Back(std::string_view text, std::size_t pos) { return CCharSet::Prefix(text, pos).size(); }
// Characters have at most two bytes, so one step reaches the next boundary.
std::size_t Forward(std::string_view text, std::size_t pos) { return Back(text, pos) == pos ? pos : pos + 1; }

}  // namespace

std::string MatchExcerpt(std::string_view text, std::string_view keyword) {
  return MatchExcerpt(text, TextPlace{text.find(keyword), keyword.size()});
}

std::string MatchExcerpt(std::string_view text, TextPlace match) {
  if (text.empty() || match.length == 0) return {};
  if (text.size() <= kExcerpt) return std::string(text);
  const std::size_t found = match.offset;
  std::size_t begin = 0;
  std::size_t end = kExcerpt;
  if (found != std::string_view::npos && found + match.length > kExcerpt) {
    // The match begins inside the text and `begin` at or before it, so the end always lies behind the beginning.
    begin = found > kBefore ? Back(text, found - kBefore) : 0;
    end = Forward(text, std::min(begin + kExcerpt, text.size()));
  } else {
    end = Back(text, end);
  }
  std::string excerpt;
  excerpt.reserve(end - begin + 2 * kCut.size());
  if (begin > 0) excerpt.append(kCut);
  excerpt.append(text.substr(begin, end - begin));
  if (end < text.size()) excerpt.append(kCut);
  return excerpt;
}

std::string MatchExcerpt(std::string_view text, const std::vector<std::string>& keywords) {
  return keywords.empty() ? std::string() : MatchExcerpt(text, keywords.front());
}

}  // namespace qiv
