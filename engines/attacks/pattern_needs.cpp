#include "engines/attacks/pattern_needs.h"

#include "base/ascii.h"

namespace qiv {
namespace {

constexpr TextMarks kOfBytes = ~(kCommandMark | kTellingMark | kOverlongMark | kNulMark);

TextMarks MarksOfRun(const ByteRun& run) {
  if (run.least == 0) return 0;
  TextMarks marks = kOfBytes;
  for (std::size_t c = 0; c < kMarkOf.size(); ++c) {
    if (run.set.test(c)) marks &= kMarkOf[c];
  }
  return marks;
}

void Add(std::string_view bytes, Neighbours* set) {
  for (const char c : bytes) set->set(static_cast<unsigned char>(c));
}

void Add(const ByteRun& run, Neighbours* set) {
  for (std::size_t c = 0; c < run.set.size(); ++c) {
    if (run.set.test(c)) set->set(c);
  }
}

void DropWordBytes(Neighbours* set) {
  for (std::size_t c = 0; c < kMarkOf.size(); ++c) {
    if (IsWordByte(static_cast<char>(c))) set->reset(c);
  }
}

}  // namespace

TextMarks MarksNeeded(const AttackPattern& pattern) {
  TextMarks needed = pattern.begin == PatternBegin::kCommand ? kCommandMark : 0;
  for (const PatternStep& step : pattern.steps) {
    TextMarks of_words = kOfBytes;
    for (const std::string& word : step.words) of_words &= MarksOf(word);
    needed |= of_words;
    for (const ByteRun& run : step.before) needed |= step.any_before ? 0 : MarksOfRun(run);
  }
  for (const ByteRun& run : pattern.behind) needed |= MarksOfRun(run);
  return needed;
}

Neighbours BytesBefore(const AttackPattern& pattern, std::size_t step, std::string_view word) {
  const PatternStep& here = pattern.steps[step];
  Neighbours set;
  bool open = true;  // nothing need stand between
  for (auto run = here.before.rbegin(); open && !here.any_before && run != here.before.rend(); ++run) {
    Add(*run, &set);
    open = run->least == 0;
  }
  if (here.any_before || (open && step == 0 && pattern.begin == PatternBegin::kAnywhere)) {
    set.set();
  } else if (open && step > 0) {
    for (const std::string& last : pattern.steps[step - 1].words)
      Add(std::string_view(last).substr(last.size() - 1), &set);
  } else if (open) {
    if (pattern.begin != PatternBegin::kCommand) set.set(kTextEdge);
    if (pattern.begin != PatternBegin::kText) {
      for (const std::string_view bytes : {kBytesBesideCommand, kCommandSeparators, std::string_view("/")})
        Add(bytes, &set);
    }
  }
  if (here.edge_before && IsWordByte(word.front())) DropWordBytes(&set);
  return set;
}

Neighbours BytesBehind(const AttackPattern& pattern, std::size_t step, std::string_view word) {
  const PatternStep& here = pattern.steps[step];
  const bool last = step + 1 == pattern.steps.size();
  const bool any = !last && pattern.steps[step + 1].any_before;
  const std::vector<ByteRun>& runs = last ? pattern.behind : pattern.steps[step + 1].before;
  Neighbours set;
  bool open = true;
  for (auto run = runs.begin(); open && !any && run != runs.end(); ++run) {
    Add(*run, &set);
    open = run->least == 0;
  }
  if (any || (open && last && !pattern.text_end)) {
    set.set();
  } else if (open && last) {
    set.set(kTextEdge);
  } else if (open) {
    for (const std::string& next : pattern.steps[step + 1].words) Add(std::string_view(next).substr(0, 1), &set);
  }
  if (here.edge_behind && IsWordByte(word.back())) DropWordBytes(&set);
  if (here.command_end) {
    Neighbours ends;
    Add(kBytesBehindCommand, &ends);
    ends.set(kTextEdge);
    set &= ends;
  }
  return set;
}

}  // namespace qiv
