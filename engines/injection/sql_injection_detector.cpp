// The cut words split a text into segments; a rule word that opens a segment is a hit.
//
// Described by restarts: from a start p, find each cut word's first occurrence at or after p; one that fails its
// whole-word test puts its word out for this pass; the earliest of the rest (the earlier in the list at one position)
// ends the segment, and p moves behind it. Here the occurrences of all words come once, in order of position, from one
// automaton. An occurrence is its word's first at or after p exactly when the word's previous occurrence lies before p,
// so one remembered position a word replaces every restart. Segments do not overlap and each is read once, so the whole
// is linear in the text.
// Tested by tests/engines/injection/sql_injection_test.cpp against the description taken literally.
#include "engines/injection/sql_injection_detector.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kDetailValue = 800;  // bytes of a value that a detail line shows
constexpr std::string_view kCut = "...";

constexpr bool IsLetterOrDigit(char c) { return IsLetter(c) || IsDigit(c); }

// A word that begins with a letter or digit must not touch another one.
bool IsWholeCutWord(std::string_view text, std::size_t begin, std::size_t length) {
  if (!IsLetterOrDigit(text[begin])) return true;
  if (begin > 0 && IsLetterOrDigit(text[begin - 1])) return false;
  const std::size_t end = begin + length;
  return end == text.size() || !IsLetterOrDigit(text[end]);
}

bool NeedsStripping(std::string_view text) {
  return text.find('+') != std::string_view::npos || text.find("--") != std::string_view::npos ||
         text.find("/*") != std::string_view::npos;
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

// The value as a detail line shows it: whole when short, else from the keyword on (from the beginning when it is not
// there), cut between characters.
void AppendValue(std::string_view value, std::string_view keyword, std::string* detail) {
  std::string_view tail = value;
  if (value.size() > kDetailValue) {
    const std::size_t found = value.find(keyword);
    if (found != std::string_view::npos && found > 0) {
      detail->append(kCut);
      tail.remove_prefix(found);
    }
  }
  if (tail.size() <= kDetailValue) {
    detail->append(tail);
  } else {
    detail->append(CCharSet::Prefix(tail, kDetailValue)).append(kCut);
  }
}

}  // namespace

std::string SqlCommentStripper(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t pos = 0;
  std::size_t kept = 0;  // what lies from here to `pos` is copied in one go
  while (pos < text.size()) {
    const char c = text[pos];
    const char next = pos + 1 < text.size() ? text[pos + 1] : '\0';
    if (!kOpensRunOrComment[static_cast<unsigned char>(c)]) {
      ++pos;
    } else if (c == '\'' || c == '"') {
      pos = QuotedRunEnd(text, pos);
    } else if (c == '-' && next == '-') {
      result.append(text.substr(kept, pos - kept));
      pos = kept = std::min(text.find('\n', pos), text.size());
    } else if (c == '/' && next == '*') {
      result.append(text.substr(kept, pos - kept));
      const std::size_t end = std::min(text.find("*/", pos + 2), text.size());
      const std::string_view comment = text.substr(pos, end - pos);
      result.append(static_cast<std::size_t>(std::count(comment.begin(), comment.end(), '\n')), '\n');
      pos = kept = std::min(end + 2, text.size());
    } else {
      ++pos;
    }
  }
  result.append(text.substr(kept));
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

// Examines one unit of text after the other with the same working memory: positions count on from unit to unit, so that
// what was seen in an earlier unit lies before every p of a later one and nothing has to be cleared.
class CMatcher {
 public:
  explicit CMatcher(const InjectionLibrary& library) : library_(library), keys_(library.KeyPatterns()) {}

  std::ptrdiff_t Match(std::string_view text) {
    if (NeedsStripping(text)) {
      stripped_ = SqlCommentStripper(text);
      text = stripped_;
    }
    std::size_t p = 0;
    std::ptrdiff_t hit = SqlInjectionDetector::kNoMatch;
    keys_.FindByStart(text, [&](std::size_t start, const std::uint32_t* words, std::uint32_t count) {
      const std::uint32_t* const winner = FindWinner(text, p, start, words, words + count);
      if (winner == words + count) return true;
      hit = library_.FindRule(LeadingWord(text.substr(p, start - p)));
      p = start + keys_.PatternLength(*winner);
      return hit == SqlInjectionDetector::kNoMatch && p < text.size();
    });
    if (hit == SqlInjectionDetector::kNoMatch && p < text.size()) {
      hit = library_.FindRule(LeadingWord(text.substr(p)));
    }
    base_ += text.size();
    return hit;
  }

 private:
  // The earliest in the list of the cut words that occur at `start` and count for the pass that began at `p`; else
  // `end`.
  const std::uint32_t* FindWinner(std::string_view text, std::size_t p, std::size_t start, const std::uint32_t* words,
                                  const std::uint32_t* end) {
    if (last_seen_.empty()) last_seen_.assign(keys_.PatternCount(), 0);
    const std::uint32_t* winner = end;
    for (; words != end; ++words) {
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
  const CMultiPattern& keys_;
  std::string stripped_;
  std::vector<std::uint64_t> last_seen_;  // per cut word, where it last began, or 0; made when the first one occurs
  std::uint64_t base_ = 1;                // position of the unit's first byte
};

}  // namespace

std::ptrdiff_t SqlInjectionDetector::MatchUnit(std::string_view text, const InjectionLibrary& library) {
  return CMatcher(library).Match(text);
}

bool SqlInjectionDetector::Check(std::string_view text, const InjectionSettings* settings,
                                 const InjectionLibrary& library, InjectionRule* result, bool per_parameter) {
  if (text.empty() || settings == nullptr || library.Rules().empty() || library.Keys().empty()) return false;
  CMatcher matcher(library);
  const auto examine = [&](std::string_view name, std::string_view value) {
    const std::ptrdiff_t index = matcher.Match(value);
    if (index != kNoMatch) FillResult(index, name, value, per_parameter, *settings, library, result);
    return index != kNoMatch;
  };
  if (!per_parameter) return examine({}, text);
  return !ForEachParameter(text, [&](const Parameter& parameter) { return !examine(parameter.name, parameter.value); });
}

void SqlInjectionDetector::FillResult(std::ptrdiff_t index, std::string_view name, std::string_view value,
                                      bool per_parameter, const InjectionSettings& settings,
                                      const InjectionLibrary& library, InjectionRule* result) {
  const auto rule = static_cast<std::size_t>(index);
  if (rule >= library.Rules().size()) {
    result->shown.clear();
    result->second.clear();
    result->remark = Message(settings.language, MessageId::kFormatMismatch);
    result->identifier = "0";
    result->words.assign(1, std::string());
    return;
  }
  *result = library.Rules()[rule];
  if (!per_parameter) return;
  std::string detail(Message(settings.language, MessageId::kDetail));
  detail.append(Message(settings.language, MessageId::kColon));
  detail.append(name).append("=");
  AppendValue(value, result->words.empty() ? std::string_view{} : result->words.front(), &detail);
  result->remark = std::move(detail);
}

}  // namespace qiv
