#include "engines/attacks/attack_pattern.h"

#include <algorithm>

#include "base/hex.h"
#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::uint32_t kMostOfSet = 250;   // a run of a set is walked
constexpr std::uint32_t kMostOfAny = 4000;  // any bytes are not
constexpr std::uint32_t kMostBlanks = 16;
constexpr std::size_t kLongestPath = 64;  // of a command, before its name
constexpr std::size_t kShortestWord = 2;  // one byte alone is found everywhere

constexpr std::string_view kBlanks = " \t\r\n\f\v";

std::bitset<256> SetOf(std::string_view bytes) {
  std::bitset<256> set;
  for (const char c : bytes) set.set(static_cast<unsigned char>(c));
  return set;
}

/// Reads one pattern from its begin to its end.
class CPatternReader {
 public:
  CPatternReader(std::string_view text, const WordLists& lists) : text_(text), lists_(lists) {}

  std::optional<AttackPattern> Read(std::string* fault) {
    if (!CCharSet::IsAscii(text_)) Fail("other bytes than those of ASCII are written %XX");
    while (fault_.empty() && at_ < text_.size()) text_[at_] == '~' ? ReadMark() : ReadByte();
    EndWord();
    if (fault_.empty() && pattern_.steps.empty()) fault_ = "the pattern has no word";
    if (fault_.empty() && any_) fault_ = "\"~.\" stands between two words";
    pattern_.behind = std::move(runs_);
    for (const ByteRun& run : pattern_.behind) pattern_.most_behind += run.most;
    pattern_.edge_end = edge_;
    if (fault_.empty()) return std::move(pattern_);
    *fault = std::move(fault_);
    return std::nullopt;
  }

 private:
  void ReadByte() {
    const std::size_t length = text_[at_] == '%' ? 3 : 1;
    word_ += BytesOf(text_.substr(at_, length));
    at_ = std::min(at_ + length, text_.size());
  }

  /// A word as written, in lower case.
  std::string BytesOf(std::string_view written) {
    if (!CCharSet::IsAscii(written)) Fail("other bytes than those of ASCII are written %XX");
    const std::string bytes = CCharSet::LowerBytes(PercentDecode(written));
    if (bytes.size() + 2 * static_cast<std::size_t>(std::count(written.begin(), written.end(), '%')) !=
        written.size()) {
      Fail("\"%\" is not followed by two hexadecimal digits; \"%\" itself is written %25");
    }
    return bytes;
  }

  void ReadMark() {
    EndWord();
    const char kind = ++at_ < text_.size() ? text_[at_++] : '\0';
    const bool first = pattern_.steps.empty();
    switch (kind) {
      case '^':
      case 'c':
      case 'C':
        if (!first || pattern_.begin != PatternBegin::kAnywhere || !runs_.empty()) {
          return Fail("\"~^\", \"~c\" and \"~C\" begin a pattern");
        }
        pattern_.begin = kind == '^'   ? PatternBegin::kText
                         : kind == 'c' ? PatternBegin::kCommand
                                       : PatternBegin::kTextOrCommand;
        return;
      case '$':
        if (at_ != text_.size()) return Fail("\"~$\" ends a pattern");
        pattern_.text_end = true;
        return;
      case 'e':
        if (first || !runs_.empty()) return Fail("\"~e\" stands behind a word");
        pattern_.steps.back().command_end = true;
        return;
      case 'b':
        // Behind a word it is that word's, else of what comes next.
        if (!first && runs_.empty() && !any_) {
          pattern_.steps.back().edge_behind = true;
        } else {
          edge_ = true;
        }
        return;
      case 's':
      case 'S':
        if (any_) return Fail("\"~.\" stands alone between two words");
        runs_.push_back({SetOf(kBlanks), kind == 's' ? 0U : 1U, kMostBlanks});
        return;
      case '.':
        if (first || !runs_.empty()) return Fail("\"~.\" stands alone between two words");
        any_ = true;
        return ReadCount(kMostOfAny);
      case '[':
        return ReadSet();
      case '(':
        return ReadList();
      default:
        return Fail("\"~\" is followed by none of ^ $ c C e b s S . [ (; \"~\" itself is written %7E");
    }
  }

  /// "{m,n}", "{n}", or nothing, which is one.
  void ReadCount(std::uint32_t limit) {
    ByteRun run;
    if (any_) run.set.set();
    if (!any_) run.set = set_;
    if (at_ < text_.size() && text_[at_] == '{' && (any_ || at_ + 1 < text_.size())) {
      const std::size_t close = text_.find('}', at_);
      const std::string_view count = text_.substr(at_ + 1, close == kEnd ? 0 : close - at_ - 1);
      const std::size_t comma = count.find(',');
      const auto is_number = [](std::string_view digits) {
        return !digits.empty() && digits.size() <= 4 && std::all_of(digits.begin(), digits.end(), IsDigit);
      };
      const std::string_view least = count.substr(0, comma);
      const std::string_view most = comma == kEnd ? count : count.substr(comma + 1);
      if (!is_number(least) || !is_number(most)) return Fail("a run's length is written {m,n}; \"{\" itself is %7B");
      run.least = DigitsToNumber(least);
      run.most = DigitsToNumber(most);
      if (run.most < run.least || run.most > limit) return Fail("a run's length is out of bounds");
      at_ = close + 1;
    }
    runs_.push_back(run);
  }

  void ReadSet() {
    set_.reset();
    if (any_) return Fail("\"~.\" stands alone between two words");
    const bool none = at_ < text_.size() && text_[at_] == '^';
    if (none) ++at_;
    int last = -1;
    bool range = false;
    for (; at_ < text_.size() && text_[at_] != ']'; ++at_) {
      const int escaped = EscapedByte(text_, at_);
      int byte = escaped >= 0 ? escaped : static_cast<unsigned char>(text_[at_]);
      if (escaped >= 0) at_ += 2;
      if (escaped < 0 && byte == '-' && last >= 0 && !range && at_ + 1 < text_.size() && text_[at_ + 1] != ']') {
        range = true;
        continue;
      }
      for (int b = range ? last : byte; b <= byte; ++b) set_.set(static_cast<std::size_t>(b));
      last = byte;
      range = false;
    }
    if (at_ >= text_.size()) return Fail("a set of bytes has no \"]\"");
    ++at_;
    if (none) set_.flip();
    ReadCount(kMostOfSet);
  }

  void ReadList() {
    const std::size_t close = std::min(text_.find(')', at_), text_.size());
    const auto list = lists_.find(text_.substr(at_, close - at_));
    if (list == lists_.end()) return Fail("no list is called \"" + std::string(text_.substr(at_, close - at_)) + "\"");
    std::vector<std::string> words;
    for (const std::string& word : list->second) words.push_back(BytesOf(word));
    AddStep(std::move(words));
    at_ = std::min(close + 1, text_.size());
  }

  void EndWord() {
    if (word_.size() == 1 && !any_) {
      runs_.push_back({SetOf(word_), 1, 1});
    } else if (!word_.empty()) {
      AddStep({word_});
    }
    word_.clear();
  }

  void AddStep(std::vector<std::string> words) {
    for (const std::string& word : words) {
      if (word.size() < kShortestWord) Fail("a word has two bytes at least: \"" + word + "\"");
    }
    PatternStep step;
    step.words = std::move(words);
    step.before = std::move(runs_);
    for (const ByteRun& run : step.before) {
      step.least_before += run.least;
      step.most_before += run.most;
    }
    step.any_before = any_;
    step.edge_before = edge_;
    runs_.clear();
    any_ = edge_ = false;
    pattern_.steps.push_back(std::move(step));
  }

  void Fail(std::string fault) {
    if (fault_.empty()) fault_ = std::move(fault);
    at_ = text_.size();
  }

  const std::string_view text_;
  const WordLists& lists_;
  std::size_t at_ = 0;
  AttackPattern pattern_;
  std::string word_;
  std::vector<ByteRun> runs_;  // since the last word
  std::bitset<256> set_;
  bool any_ = false;
  bool edge_ = false;
  std::string fault_;
};

}  // namespace

std::optional<AttackPattern> ParsePattern(std::string_view text, const WordLists& lists, std::string* fault) {
  return CPatternReader(text, lists).Read(fault);
}

std::size_t RunsEnd(std::string_view text, const std::vector<ByteRun>& runs, std::size_t from) {
  for (const ByteRun& run : runs) {
    std::uint32_t count = 0;
    while (count < run.most && from < text.size() && run.set.test(static_cast<unsigned char>(text[from]))) {
      ++from;
      ++count;
    }
    if (count < run.least) return kEnd;
  }
  return from;
}

std::size_t RunsBegin(std::string_view text, const std::vector<ByteRun>& runs, std::size_t end) {
  for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
    std::uint32_t count = 0;
    while (count < run->most && end > 0 && run->set.test(static_cast<unsigned char>(text[end - 1]))) {
      --end;
      ++count;
    }
    if (count < run->least) return kEnd;
  }
  return end;
}

bool IsWordEdge(std::string_view text, std::size_t at) {
  return at == 0 || at >= text.size() || !IsWordByte(text[at - 1]) || !IsWordByte(text[at]);
}

CommandBegin CommandBeginAt(std::string_view text, std::size_t at) {
  constexpr std::string_view kPathMarks = "/\\.:?*[]%-_";
  if (at > 0 && (text[at - 1] == '/' || text[at - 1] == '\\')) {
    const std::size_t first = at > kLongestPath ? at - kLongestPath : 0;
    while (at > first && (IsWordByte(text[at - 1]) || kPathMarks.find(text[at - 1]) != kEnd)) --at;
  }
  for (std::uint32_t i = 0; i < kMostBlanks && at > 0; ++i) {
    const char c = text[at - 1];
    if (c == '(' && at > 1 && (text[at - 2] == '$' || text[at - 2] == '<' || text[at - 2] == '>')) {
      return CommandBegin::kBehindMark;
    }
    if (kCommandSeparators.find(c) != kEnd) return CommandBegin::kBehindMark;
    if (kBytesBesideCommand.find(c) == kEnd) return CommandBegin::kNone;
    --at;
  }
  return at == 0 ? CommandBegin::kText : CommandBegin::kNone;
}

bool IsCommandEnd(std::string_view text, std::size_t at) {
  return at >= text.size() || kBytesBehindCommand.find(text[at]) != kEnd;
}

}  // namespace qiv
