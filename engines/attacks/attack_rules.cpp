#include "engines/attacks/attack_rules.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "base/ascii.h"
#include "common/char_set.h"
#include "engines/attacks/pattern_needs.h"
#include "engines/attacks/text_shape.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::size_t kLongestFound = 200;  // of what is shown

/// Readings and places of a rule.
struct Where {
  unsigned readings = kReadPlain;
  unsigned places = 0;
  bool outside_writing = false;
};

/// Whether what stands between a word's end and the next word's start is what the step wants there.
bool Leads(std::string_view text, const PatternStep& step, std::size_t end, std::size_t start) {
  if (end > start || start - end < step.least_before || start - end > step.most_before) return false;
  return step.any_before || RunsEnd(text.substr(0, start), step.before, end) == start;
}

/// Whether a pattern that wants a command can begin there.
bool Begins(PatternBegin wanted, CommandBegin there) {
  return there == CommandBegin::kBehindMark || (there == CommandBegin::kText && wanted == PatternBegin::kTextOrCommand);
}

/// Where a pattern begins whose first word stands at `start`; npos when it does not begin as it should.
std::size_t BeginOf(std::string_view text, const AttackPattern& pattern, std::size_t start) {
  if (pattern.begin == PatternBegin::kText && start > pattern.steps.front().most_before) return kEnd;
  const std::size_t begin = RunsBegin(text, pattern.steps.front().before, start);
  if (begin == kEnd || pattern.begin == PatternBegin::kAnywhere) return begin;
  const bool fits =
      pattern.begin == PatternBegin::kText ? begin == 0 : Begins(pattern.begin, CommandBeginAt(text, begin));
  return fits ? begin : kEnd;
}

constexpr unsigned kEverywhere = kInQuery | kInBody | kInCookie | kInHeader | kInAgent | kInPath;

bool ParseWhere(std::string_view text, Where* where, std::string* fault) {
  struct Name {
    std::string_view name;
    unsigned readings;
    unsigned places;
    bool outside_writing = false;
  };
  static constexpr Name kNames[] = {
      {"-", 0, kEverywhere},
      {"path", kReadPath, 0},
      {"shell", kReadShell, 0},
      {"values", 0, kInQuery | kInBody | kInCookie | kInPath},
      {"head", 0, kInQuery | kInCookie | kInHeader | kInAgent | kInPath},
      {"response", 0, kInResponse},
      {"agent", 0, kInAgent},
      {"short", 0, 0, true},
  };
  for (const std::string_view part : Split(text, ',')) {
    const auto* const name =
        std::find_if(std::begin(kNames), std::end(kNames), [part](const Name& n) { return n.name == part; });
    if (name == std::end(kNames)) {
      *fault = "no place or reading is called \"" + std::string(part) + "\"";
      return false;
    }
    where->readings |= name->readings;
    where->places |= name->places;
    where->outside_writing = where->outside_writing || name->outside_writing;
  }
  if (where->places == 0) where->places = kEverywhere;
  return true;
}

}  // namespace

const std::vector<AttackFamily>& AttackFamilies() {
  static const std::vector<AttackFamily> families = {
      {"lfi", kLocalFiles},
      {"rfi", kRemoteFiles},
      {"rce", kBadCode},
      {"php", kBadCode},
      {"ssti", kBadCode},
      {"generic", kBadCode},
      {"java", kBadCode},
      {"dotnet", kBadCode},
      {"xxe", kBadCode},
      {"ssrf", kBadCode},
      {"crlf", kBadCode},
      {"nosql", kBadCode},
      {"ldap", kBadCode},
      {"xpath", kBadCode},
      {"ssi", kBadCode},
      {"scanner", kBadCode},
      {"leak_source", kSourceLeaks},
      {"leak_page", kLeaks},
      {"leak_trace", kErrorLeaks},
      {"leak_database", kLeaks},
      {"leak_listing", kLeaks},
  };
  return families;
}

struct CAttackRules::Core {
  struct Compiled {
    AttackPattern pattern;
    bool outside_writing = false;
  };
  /// A rule's step that a word serves, and where it can count.
  struct Use {
    TextMarks needed = 0;
    std::uint32_t rule = 0;
    std::uint32_t place = 0;  // of the step in CAttackScan::reached_
    std::uint16_t step = 0;
    std::uint16_t before = 0;  // of neighbours
    std::uint16_t behind = 0;
    std::uint8_t readings = 0;
    std::uint8_t places = 0;
    std::uint8_t groups = 0;
    bool begins = false;    // the first of several steps, with nothing to look at before it
    bool commands = false;  // the first one, and a command's name
  };
  /// A word: what all its uses need, and its uses, of one rule the last step first.
  struct Word {
    TextMarks needed = ~TextMarks{0};
    std::uint16_t before = 0;
    std::uint16_t behind = 0;
    std::uint32_t first_use = 0;
    std::uint32_t end_use = 0;
  };

  std::uint16_t Index(const Neighbours& set) {
    const auto at = std::find(neighbours.begin(), neighbours.end(), set);
    if (at == neighbours.end()) return neighbours.push_back(set), static_cast<std::uint16_t>(neighbours.size() - 1);
    return static_cast<std::uint16_t>(at - neighbours.begin());
  }
  /// Whether no letter, digit or "_" can stand behind it.
  bool AddWord(const std::vector<Use>& of_word);

  std::vector<AttackRule> rules;
  std::vector<Compiled> compiled;
  CMultiPattern automaton;
  std::vector<Word> words;  // by number in the automaton
  std::vector<Use> uses;
  std::vector<Neighbours> neighbours;  // each set once
  std::uint32_t places = 0;
};

bool CAttackRules::Core::AddWord(const std::vector<Use>& of_word) {
  Word word;
  Neighbours before;
  Neighbours behind;
  word.first_use = static_cast<std::uint32_t>(uses.size());
  for (const Use& use : of_word) {
    word.needed &= use.needed;
    before |= neighbours[use.before];
    behind |= neighbours[use.behind];
    uses.push_back(use);
  }
  word.end_use = static_cast<std::uint32_t>(uses.size());
  word.before = Index(before);
  word.behind = Index(behind);
  words.push_back(word);
  for (std::size_t c = 0; c < kTextEdge; ++c) {
    if (behind[c] && IsWordByte(static_cast<char>(c))) return false;
  }
  return true;
}

CAttackRules::CAttackRules() : core_(std::make_shared<const Core>()) {}

bool CAttackRules::Set(std::vector<AttackRule> rules, const WordLists& lists, AttackFault* fault) {
  auto core = std::make_shared<Core>();
  std::map<std::string, std::vector<Core::Use>> uses;
  for (std::uint32_t r = 0; r < rules.size(); ++r) {
    fault->rule = rules[r].identifier;
    Where where;
    std::optional<AttackPattern> pattern = ParsePattern(rules[r].pattern, lists, &fault->text);
    if (!pattern || !ParseWhere(rules[r].where, &where, &fault->text)) return false;
    Core::Use use;
    use.needed = MarksNeeded(*pattern);
    use.rule = r;
    use.readings = static_cast<std::uint8_t>(where.readings);
    use.places = static_cast<std::uint8_t>(where.places);
    use.groups = AttackFamilies()[rules[r].family].group;
    for (std::size_t step = pattern->steps.size(); step-- > 0;) {
      use.step = static_cast<std::uint16_t>(step);
      use.place = core->places + use.step;
      use.begins = step == 0 && pattern->steps.size() > 1 && pattern->begin == PatternBegin::kAnywhere &&
                   pattern->steps.front().before.empty();
      use.commands = step == 0 && pattern->steps.front().before.empty() &&
                     (pattern->begin == PatternBegin::kCommand || pattern->begin == PatternBegin::kTextOrCommand);
      for (const std::string& word : pattern->steps[step].words) {
        use.before = core->Index(BytesBefore(*pattern, step, word));
        use.behind = core->Index(BytesBehind(*pattern, step, word));
        uses[word].push_back(use);
      }
    }
    const auto steps = static_cast<std::uint32_t>(pattern->steps.size());
    core->compiled.push_back({std::move(*pattern), where.outside_writing});
    core->places += steps;
  }
  std::vector<std::string> words;
  std::vector<bool> ending;
  for (const auto& [word, of_word] : uses) {
    words.push_back(word);
    ending.push_back(core->AddWord(of_word));
  }
  core->automaton = CMultiPattern(words, ending);
  core->rules = std::move(rules);
  core_ = std::move(core);
  off_.clear();
  return true;
}

CAttackRules CAttackRules::Without(const std::set<std::string>& identifiers) const {
  CAttackRules without = *this;
  without.off_.resize(core_->rules.size());
  for (std::size_t r = 0; r < core_->rules.size(); ++r) {
    if (identifiers.contains(core_->rules[r].identifier)) without.off_[r] = true;
  }
  return without;
}

const std::vector<AttackRule>& CAttackRules::Rules() const { return core_->rules; }

AttackHit CAttackScan::Find(std::string_view text, AttackPlace place, unsigned groups) {
  AttackHit hit;
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) return hit;
  readings_.ForEach(text, [&](unsigned reading, TextMarks marks, std::string_view read) {
    return !Search(read, {marks, reading, place, groups}, &hit);
  });
  return hit;
}

AttackHit CAttackScan::FindAsItStands(std::string_view lowered, AttackPlace place, unsigned groups) {
  AttackHit hit;
  if (lowered.size() > std::numeric_limits<std::uint32_t>::max()) return hit;
  // A page holds marks of all kinds: looking for them would cost more than it spares.
  Search(lowered, {~TextMarks{0}, kReadPlain, place, groups}, &hit);
  return hit;
}

void CAttackScan::Begin() {
  if (reached_.empty()) reached_.resize(core_->places);
  if (++search_ != 0) return;
  std::fill(reached_.begin(), reached_.end(), Reached{});
  search_ = 1;
}

bool CAttackScan::Search(std::string_view text, const Scope& scope, AttackHit* hit) {
  const auto& core = *core_;
  CTextShape shape(text);
  bool begun = false;
  core.automaton.Find(text, [&](std::uint32_t number, std::size_t start) {
    const auto& word = core.words[number];
    if ((word.needed & ~scope.marks) != 0) return true;
    const TextPlace found{start, core.automaton.PatternLength(number)};
    const std::size_t end = start + found.length;
    const std::size_t before = start > 0 ? static_cast<unsigned char>(text[start - 1]) : kTextEdge;
    const std::size_t behind = end < text.size() ? static_cast<unsigned char>(text[end]) : kTextEdge;
    if (!core.neighbours[word.before][before] || !core.neighbours[word.behind][behind]) return true;
    if (!begun) Begin();
    begun = true;
    std::optional<CommandBegin> command;  // the same for all uses
    for (std::uint32_t u = word.first_use; u < word.end_use; ++u) {
      const auto& use = core.uses[u];
      if ((use.needed & ~scope.marks) != 0 || !core.neighbours[use.before][before] ||
          !core.neighbours[use.behind][behind] || (use.readings & scope.reading) == 0 ||
          (use.places & scope.place) == 0 || (use.groups & scope.groups) == 0) {
        continue;
      }
      Reached* const reached = reached_.data() + use.place;
      if (use.begins) {
        *reached = {search_, found, reached->search == search_ ? reached->last : TextPlace()};
        continue;
      }
      if (use.step > 0 && (reached - 1)->search != search_) continue;
      const auto& rule = core.compiled[use.rule];
      std::size_t begin = start;
      if (use.commands) {
        if (!command) command = CommandBeginAt(text, start);
        if (!Begins(rule.pattern.begin, *command)) continue;
      } else {
        begin = use.step == 0 ? BeginOf(text, rule.pattern, start)
                              : BeginBehind(text, rule.pattern.steps[use.step], *(reached - 1), start);
        if (begin == kEnd) continue;
      }
      const TextPlace match = Advance(text, rule.pattern, use.step, {begin, end - begin}, reached);
      if (match.length == 0 || (!rules_.off_.empty() && rules_.off_[use.rule])) continue;
      if (rule.outside_writing && scope.place == kInBody && shape.IsWithinWriting(match.offset)) continue;
      hit->rule = &core.rules[use.rule];
      hit->found = text.substr(match.offset, std::min(match.length, kLongestFound));
      return false;
    }
    return true;
  });
  return hit->rule != nullptr;
}

/// Where a pattern begins whose next step is the word at `start`; npos when that does not follow what was found.
std::size_t CAttackScan::BeginBehind(std::string_view text, const PatternStep& step, const Reached& before,
                                     std::size_t start) {
  for (const TextPlace& last : {before.last, before.before_last}) {
    if (last.length != 0 && Leads(text, step, last.offset + last.length, start)) return last.offset;
  }
  return kEnd;
}

/// The pattern was found up to the end of this step. Keeps that; all of it once it is found.
TextPlace CAttackScan::Advance(std::string_view text, const AttackPattern& pattern, std::size_t step, TextPlace found,
                               Reached* reached) const {
  const std::size_t begin = found.offset;
  const std::size_t end = begin + found.length;
  if (step + 1 < pattern.steps.size()) {
    *reached = {search_, found, reached->search == search_ ? reached->last : TextPlace()};
    return {};
  }
  if (pattern.text_end && text.size() - end > pattern.most_behind) return {};
  const std::size_t last = RunsEnd(text, pattern.behind, end);
  if (last == kEnd || (pattern.text_end && last != text.size())) return {};
  if (pattern.edge_end && !IsWordEdge(text, last)) return {};
  return {begin, last - begin};
}

const AttackRule* FindsText(const CAttackRules& rules, std::string_view text) {
  CAttackScan scan(rules);
  for (const AttackPlace place : {kInQuery, kInBody, kInCookie, kInHeader, kInAgent, kInPath}) {
    const AttackHit hit = scan.Find(text, place, kLocalFiles | kRemoteFiles | kBadCode);
    if (hit.rule != nullptr) return hit.rule;
  }
  const std::string lowered = CCharSet::LowerBytes(text);
  return scan.FindAsItStands(lowered, kInResponse, kOfResponses).rule;
}

}  // namespace qiv
