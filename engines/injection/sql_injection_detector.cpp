// The cut words split a text into segments; a rule word that opens a segment is a hit.
//
// Described by restarts: from a start p, find each cut word's first occurrence at or after p; one that fails its
// whole-word test puts its word out for this pass; the earliest of the rest (the earlier in the list at one position)
// ends the segment, and p moves behind it. Here the occurrences of all words come once, in order of position, from one
// automaton. An occurrence is its word's first at or after p exactly when the word's previous occurrence lies before p,
// so one remembered position a word replaces every restart. Segments do not overlap and each is read once, so the whole
// is linear in the text.
//
// Comments go before the text is cut. Where the winning word stood before they went is found by going over the text
// once more, for a hit only.
// Tested by tests/engines/injection/sql_injection_test.cpp against the description taken literally.
#include "engines/injection/sql_injection_detector.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "common/text.h"

namespace qiv {
namespace {

constexpr bool IsLetterOrDigit(char c) { return IsLetter(c) || IsDigit(c); }

// A word that begins with a letter or digit must not touch another one.
bool IsWholeCutWord(std::string_view text, std::size_t begin, std::size_t length) {
  if (!IsLetterOrDigit(text[begin])) return true;
  if (begin > 0 && IsLetterOrDigit(text[begin - 1])) return false;
  const std::size_t end = begin + length;
  return end == text.size() || !IsLetterOrDigit(text[end]);
}

bool HoldsComments(std::string_view text) {
  return text.find("--") != std::string_view::npos || text.find("/*") != std::string_view::npos;
}

// The end of the quoted run that begins at `begin`, its last quote included. Byte by byte on purpose: a text may as
// well be in UTF-8, so a backslash is never taken for a GBK trail byte.
std::size_t QuotedRunEnd(std::string_view text, std::size_t begin) {
  std::size_t pos = begin;
  while ((pos = text.find(text[begin], pos + 1)) != std::string_view::npos) {
    if (text[pos - 1] != '\\') return pos + 1;
  }
  return text.size();
}

constexpr auto kOpensRunOrComment = [] {
  std::array<bool, 256> table{};
  for (const char c : {'\'', '"', '-', '/'}) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

// Calls keep(begin, end) for the pieces of the text that stay when comments go, in order, until it returns false.
template <typename Keep>
void ForEachKept(std::string_view text, const Keep& keep) {
  std::size_t pos = 0;
  std::size_t kept = 0;  // what lies from here to `pos` is one piece
  while (pos < text.size()) {
    const char c = text[pos];
    const char next = pos + 1 < text.size() ? text[pos + 1] : '\0';
    if (!kOpensRunOrComment[static_cast<unsigned char>(c)]) {
      ++pos;
    } else if (c == '\'' || c == '"') {
      pos = QuotedRunEnd(text, pos);
    } else if (c == '-' && next == '-') {
      if (!keep(kept, pos)) return;
      pos = kept = std::min(text.find('\n', pos), text.size());
    } else if (c == '/' && next == '*') {
      if (!keep(kept, pos)) return;
      const std::size_t end = std::min(text.find("*/", pos + 2), text.size());
      const std::string_view comment = text.substr(0, end);
      while ((pos = comment.find('\n', pos)) != std::string_view::npos) {
        if (!keep(pos, pos + 1)) return;
        ++pos;
      }
      pos = kept = std::min(end + 2, text.size());
    } else {
      ++pos;
    }
  }
  keep(kept, text.size());
}

// Where the byte at `stripped` of the stripped text stands in the text.
std::size_t OriginOf(std::string_view text, std::size_t stripped) {
  std::size_t origin = text.size();
  std::size_t before = 0;
  ForEachKept(text, [&](std::size_t begin, std::size_t end) {
    if (stripped < before + (end - begin)) origin = begin + (stripped - before);
    before += end - begin;
    return before <= stripped;
  });
  return origin;
}

}  // namespace

std::string SqlCommentStripper(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  ForEachKept(text, [&](std::size_t begin, std::size_t end) {
    result.append(text, begin, end - begin);
    return true;
  });
  std::replace(result.begin(), result.end(), '+', ' ');
  return result;
}

std::string_view LeadingWord(std::string_view segment) {
  std::size_t begin = 0;
  while (begin < segment.size() && IsSpace(segment[begin])) ++begin;
  if (begin == segment.size() || !(IsLetter(segment[begin]) || segment[begin] == '_')) return {};
  std::size_t end = begin;
  while (end < segment.size() && (IsWordByte(segment[end]) || segment[end] == '-')) ++end;
  if (end == segment.size() || !IsSpace(segment[end])) return {};
  std::size_t next = end;
  while (next < segment.size() && IsSpace(segment[next])) ++next;
  if (next == segment.size() || segment[next] == ',') return {};
  return segment.substr(begin, end - begin);
}

namespace {

struct UnitMatch {
  std::ptrdiff_t index = SqlInjectionDetector::kNoMatch;
  TextPlace word;  // in the unit
};

// Examines one unit of text after the other with the same working memory: positions count on from unit to unit, so that
// what was seen in an earlier unit lies before every p of a later one and nothing has to be cleared.
class CMatcher {
 public:
  /// The units are pieces of `whole`.
  CMatcher(const InjectionLibrary& library, const JudgedText& whole)
      : library_(library),
        words_(library.KeyWords()),
        keys_(words_.Patterns()),
        comments_(HoldsComments(whole.lowered)),
        whole_(whole) {
    if (whole.lowered.find('+') == std::string_view::npos) return;
    blanked_ = whole.lowered;
    std::replace(blanked_.begin(), blanked_.end(), '+', ' ');
    whole_.lowered = blanked_;
  }

  UnitMatch Match(TextPlace place) {
    const JudgedText unit = whole_.Part(place);
    JudgedText text = unit;
    const bool stripped = comments_ && HoldsComments(unit.lowered);
    if (stripped) {
      stripped_ = SqlCommentStripper(unit.lowered);
      if (words_.HasCharacters()) stripped_exact_ = SqlCommentStripper(unit.exact);
      text = {stripped_, stripped_exact_};
    }
    UnitMatch match = Cut(text);
    base_ += text.lowered.size();
    if (stripped && match.index != SqlInjectionDetector::kNoMatch) {
      const std::size_t begin = OriginOf(unit.lowered, match.word.offset);
      match.word = {begin, OriginOf(unit.lowered, match.word.offset + match.word.length - 1) + 1 - begin};
    }
    return match;
  }

 private:
  UnitMatch Cut(const JudgedText& judged) {
    const std::string_view text = judged.lowered;
    CWholeCharacters whole(words_, judged.exact);
    std::size_t p = 0;
    UnitMatch match;
    const auto examine = [&](std::size_t end) {
      const std::string_view word = LeadingWord(text.substr(p, end - p));
      match.index = library_.FindRule(word);
      if (match.index != SqlInjectionDetector::kNoMatch) match.word = PlaceOf(word, text);
      return match.index != SqlInjectionDetector::kNoMatch;
    };
    keys_.FindByStart(text, [&](std::size_t start, const std::uint32_t* words, std::uint32_t count) {
      const std::uint32_t* const winner = FindWinner(text, whole, p, start, words, words + count);
      if (winner == words + count) return true;
      const bool hit = examine(start);
      p = start + keys_.PatternLength(*winner);
      return !hit && p < text.size();
    });
    if (match.index == SqlInjectionDetector::kNoMatch && p < text.size()) examine(text.size());
    return match;
  }

  // The earliest in the list of the cut words that occur at `start` and count for the pass that began at `p`; else
  // `end`.
  const std::uint32_t* FindWinner(std::string_view text, CWholeCharacters& whole, std::size_t p, std::size_t start,
                                  const std::uint32_t* words, const std::uint32_t* end) {
    if (last_seen_.empty()) last_seen_.assign(keys_.PatternCount(), 0);
    const std::uint32_t* winner = end;
    for (; words != end; ++words) {
      if (!whole.Counts(*words, start)) continue;
      const bool first_of_pass = start >= p && last_seen_[*words] < base_ + p;
      last_seen_[*words] = base_ + start;
      if (first_of_pass && (winner == end || *words < *winner) &&
          IsWholeCutWord(text, start, keys_.PatternLength(*words))) {
        winner = words;
      }
    }
    return winner;
  }

  const InjectionLibrary& library_;
  const CWordList& words_;
  const CMultiPattern& keys_;
  const bool comments_;
  JudgedText whole_;  // every "+" of its lower-case form is a blank
  std::string blanked_;
  std::string stripped_;
  std::string stripped_exact_;
  std::vector<std::uint64_t> last_seen_;  // per cut word, where it last began, or 0; made when the first one occurs
  std::uint64_t base_ = 1;                // position of the unit's first byte
};

}  // namespace

std::ptrdiff_t SqlInjectionDetector::MatchUnit(const JudgedText& text, const InjectionLibrary& library) {
  return CMatcher(library, text).Match({0, text.lowered.size()}).index;
}

SqlFinding SqlInjectionDetector::FindingOf(std::ptrdiff_t index, const InjectionLibrary& library) {
  SqlFinding finding;
  if (index == kNoMatch) return finding;
  const auto rule = static_cast<std::size_t>(index);
  finding.id = rule < library.Rules().size() ? SqlFindingId::kRule : SqlFindingId::kFormatMismatch;
  if (finding.id == SqlFindingId::kRule) finding.rule = &library.Rules()[rule];
  return finding;
}

bool SqlInjectionDetector::Check(const JudgedText& text, const InjectionSettings* settings,
                                 const InjectionLibrary& library, SqlFinding* finding, bool per_parameter) {
  if (text.lowered.empty() || settings == nullptr || library.Rules().empty() || library.Keys().empty()) return false;
  CMatcher matcher(library, text);
  const auto examine = [&](TextPlace name, TextPlace value) {
    const UnitMatch match = matcher.Match(value);
    if (match.index == kNoMatch) return false;
    *finding = FindingOf(match.index, library);
    finding->is_parameter = per_parameter;
    finding->name = name;
    finding->value = value;
    finding->word = {value.offset + match.word.offset, match.word.length};
    return true;
  };
  if (!per_parameter) return examine({}, {0, text.lowered.size()});
  return !ForEachParameter(text.lowered, [&](const Parameter& parameter) {
    return !examine(PlaceOf(parameter.name, text.lowered), PlaceOf(parameter.value, text.lowered));
  });
}

}  // namespace qiv
