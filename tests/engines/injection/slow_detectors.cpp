#include "tests/engines/injection/slow_detectors.h"

#include "common/char_set.h"
#include "common/text.h"

namespace qiv::slow {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool IsAlnum(char c) { return IsLetter(c) || IsDigit(c); }

std::string LeadingWord(std::string_view segment) {
  std::size_t i = 0;
  while (i < segment.size() && IsSpace(segment[i])) ++i;
  if (i == segment.size() || (!IsLetter(segment[i]) && segment[i] != '_')) return "";
  std::string word;
  while (i < segment.size() && (IsAlnum(segment[i]) || segment[i] == '_' || segment[i] == '-')) word += segment[i++];
  if (i == segment.size() || !IsSpace(segment[i])) return "";
  while (i < segment.size() && IsSpace(segment[i])) ++i;
  return i == segment.size() || segment[i] == ',' ? "" : word;
}

std::ptrdiff_t Examine(std::string_view segment, const Rules& rules) {
  const std::string word = LeadingWord(segment);
  for (std::size_t i = 0; i < rules.size() && !word.empty(); ++i) {
    if (!rules[i].words.empty() && rules[i].words[0] == word) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

// Where the word counts at or after p, or npos.
std::size_t FindCutWord(std::string_view text, std::string_view word, std::size_t p) {
  const std::size_t at = text.find(word, p);
  if (at == kNone || !IsAlnum(word[0])) return at;
  if (at > 0 && IsAlnum(text[at - 1])) return kNone;
  const std::size_t end = at + word.size();
  return end < text.size() && IsAlnum(text[end]) ? kNone : at;
}

// The fragment when the occurrence of `name` at `at` is a hit, else empty.
std::string EventHit(std::string_view text, std::string_view name, std::size_t at) {
  const auto quote_or_space = [](char c) { return c == '\'' || c == '"' || IsSpace(c); };
  if (at < 3 || !quote_or_space(text[at - 1])) return "";
  std::size_t i = at + name.size();
  if (i < text.size() && IsWordByte(text[i])) return "";
  const std::size_t tag = text.rfind('<', at - 1);
  if (tag == kNone || !IsLetter(text[tag + 1])) return "";
  std::size_t space = tag + 1;
  while (space < text.size() && !IsSpace(text[space])) ++space;
  if (space >= at) return "";
  while (i < text.size() && IsSpace(text[i])) ++i;
  if (i == text.size() || text[i] != '=') return "";
  ++i;
  while (i < text.size() && quote_or_space(text[i])) ++i;
  if (i == text.size()) return "";
  if (text[i] == '/') return std::string(text.substr(tag, i - tag));
  if (text[i] != '_' && !IsLetter(text[i])) return "";
  while (i < text.size() && !quote_or_space(text[i]) && text[i] != '>') ++i;
  return std::string(text.substr(tag, i - tag));
}

std::string JavascriptHit(std::string_view text, std::size_t at) {
  const auto name_start = [](char c) { return c == '_' || IsLetter(c); };
  const std::size_t tag = text.rfind('<', at);
  if (tag == kNone || !name_start(text[tag + 1])) return "";
  std::size_t i = tag + 1;
  while (i < at && !IsSpace(text[i])) ++i;
  while (i < at && IsSpace(text[i])) ++i;
  if (i >= at || !name_start(text[i])) return "";
  while (i < at && text[i] != '=') ++i;
  if (i >= at) return "";
  std::size_t end = at + 11;
  if (end >= text.size() || (text[end] != '/' && !name_start(text[end]))) return "";
  while (end < text.size() && !IsSpace(text[end])) ++end;
  return std::string(text.substr(tag, end - tag));
}

// Whether the word, if it holds characters of two bytes, stands at `at` as whole characters with the same bytes.
bool IsOfCharacters(std::string_view text, std::size_t at, std::string_view word) {
  const auto characters = [](std::string_view bytes) {
    std::vector<std::string_view> all;
    for (; !bytes.empty(); bytes.remove_prefix(all.back().size())) {
      all.push_back(bytes.substr(0, CCharSet::CharacterLength(bytes, 0)));
    }
    return all;
  };
  const std::vector<std::string_view> wanted = characters(word);
  if (wanted.size() == word.size()) return true;
  std::size_t before = 0;
  std::size_t same = 0;
  for (const std::string_view character : characters(text)) {
    if (before >= at && same < wanted.size()) {
      const bool equal = character.size() == 2 ? character == wanted[same] : EqualNoCase(character, wanted[same]);
      if (before != at + static_cast<std::size_t>(wanted[same].data() - word.data()) || !equal) return false;
      ++same;
    }
    before += character.size();
  }
  return same == wanted.size();
}

// End of the word's first whole occurrence at or after `from`, or npos.
std::size_t FindWholeWord(std::string_view text, std::string_view word, std::size_t from) {
  const std::string lower = CCharSet::LowerBytes(text);
  const std::string pattern = CCharSet::LowerBytes(word);
  for (;;) {
    const std::size_t at = lower.find(pattern, from);
    if (at == kNone) return kNone;
    if (!IsOfCharacters(text, at, word)) {
      from = at + 1;
      continue;
    }
    const std::size_t end = at + word.size();
    const bool before = IsWordByte(word.front()) && at > 0 && IsWordByte(text[at - 1]);
    const bool after = IsWordByte(word.back()) && end < text.size() && IsWordByte(text[end]);
    if (!before && !after) return end;
    from = end;
  }
}

bool HasAllWords(std::string_view text, const std::vector<std::string>& words) {
  std::size_t from = 0;
  for (const std::string& word : words) {
    if (word.empty()) return false;
    from = FindWholeWord(text, word, from);
    if (from == kNone) return false;
  }
  return !words.empty();
}

}  // namespace

std::string SqlCommentStripper(std::string_view text) {
  std::string result;
  char quote = 0;
  bool line_comment = false;
  bool block_comment = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const std::string_view two = text.substr(i, 2);
    if (line_comment || block_comment) {
      if (c == '\n') result += c;
      if (line_comment && c == '\n') line_comment = false;
      if (block_comment && two == "*/") {
        block_comment = false;
        ++i;
      }
    } else if (quote != 0) {
      result += c;
      if (c == quote && text[i - 1] != '\\') quote = 0;
    } else if (two == "--" || two == "/*") {
      (c == '-' ? line_comment : block_comment) = true;
      ++i;
    } else {
      if (c == '\'' || c == '"') quote = c;
      result += c;
    }
  }
  for (char& c : result) {
    if (c == '+') c = ' ';
  }
  return result;
}

std::ptrdiff_t MatchUnit(std::string_view unit, const Rules& rules, const Rules& keys) {
  const std::string text = SqlCommentStripper(unit);
  const std::string_view view = text;
  std::size_t p = 0;
  for (;;) {
    std::size_t best = kNone;
    std::size_t length = 0;
    for (const InjectionRule& key : keys) {
      if (key.words.empty() || key.words[0].empty()) continue;
      const std::size_t at = FindCutWord(view, key.words[0], p);
      if (at == kNone || (best != kNone && at >= best)) continue;
      best = at;
      length = key.words[0].size();
    }
    if (best == kNone) return Examine(view.substr(p), rules);
    if (p < best) {
      const std::ptrdiff_t rule = Examine(view.substr(p, best - p), rules);
      if (rule >= 0) return rule;
    }
    p = best + length;
    if (p >= text.size()) return -1;
  }
}

std::string EventCheck(std::string_view text, const Rules& events) {
  for (const InjectionRule& event : events) {
    if (event.words.empty() || event.words[0].empty()) continue;
    const std::string& name = event.words[0];
    for (std::size_t at = text.find(name); at != kNone; at = text.find(name, at + 1)) {
      if (std::string fragment = EventHit(text, name, at); !fragment.empty()) return fragment;
    }
  }
  return "";
}

std::string ScriptTagCheck(std::string_view text) {
  for (std::size_t at = text.find("<script"); at != kNone; at = text.find("<script", at + 7)) {
    std::size_t i = at + 7;
    while (i < text.size() && IsSpace(text[i])) ++i;
    if (i == text.size()) return "";
    if (text[i] == '>') return "<script>";
  }
  return "";
}

std::string JavascriptUrlCheck(std::string_view text) {
  for (std::size_t at = text.find("javascript:"); at != kNone; at = text.find("javascript:", at + 11)) {
    if (std::string fragment = JavascriptHit(text, at); !fragment.empty()) return fragment;
  }
  return "";
}

std::ptrdiff_t FirstKeywordRule(std::string_view text, const Rules& rules) {
  for (std::size_t i = 0; i < rules.size(); ++i) {
    if (HasAllWords(text, rules[i].words)) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

Rules OneWordRules(const std::vector<std::string>& words) {
  Rules rules;
  for (const std::string& word : words) rules.push_back({word, "*", "", "", {word}});
  return rules;
}

}  // namespace qiv::slow
