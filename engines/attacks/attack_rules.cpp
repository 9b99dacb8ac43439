#include "engines/attacks/attack_rules.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "common/char_set.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::size_t kLongestFound = 200;  // of what is shown

/// Readings and places of a rule.
struct Where {
  unsigned readings = kReadPlain;
  unsigned places = 0;
};

/// Whether what stands between a word's end and the next word's start is what the step wants there.
bool Leads(std::string_view text, const PatternStep& step, std::size_t end, std::size_t start) {
  if (end > start) return false;
  if (!step.any_before) return RunsEnd(text.substr(0, start), step.before, end) == start;
  return start - end >= step.before.front().least && start - end <= step.before.front().most;
}

/// Whether what is beside the word is what the step wants there.
bool Fits(std::string_view text, const PatternStep& step, std::size_t start, std::size_t end) {
  return (!step.edge_before || IsWordEdge(text, start)) && (!step.edge_behind || IsWordEdge(text, end)) &&
         (!step.command_end || IsCommandEnd(text, end));
}

/// Where a pattern begins whose first word stands at `start`; npos when it does not begin as it should.
std::size_t BeginOf(std::string_view text, const AttackPattern& pattern, std::size_t start) {
  const std::size_t begin = RunsBegin(text, pattern.steps.front().before, start);
  if (begin == kEnd || pattern.begin == PatternBegin::kAnywhere) return begin;
  const bool fits = pattern.begin == PatternBegin::kText
                        ? begin == 0
                        : IsCommandBegin(text, begin, pattern.begin == PatternBegin::kTextOrCommand);
  return fits ? begin : kEnd;
}

constexpr unsigned kEverywhere = kInQuery | kInBody | kInCookie | kInHeader | kInAgent | kInPath;

bool ParseWhere(std::string_view text, Where* where, std::string* fault) {
  struct Name {
    std::string_view name;
    unsigned readings;
    unsigned places;
  };
  static constexpr Name kNames[] = {
      {"-", 0, kEverywhere},
      {"path", kReadPath, 0},
      {"shell", kReadShell, 0},
      {"values", 0, kInQuery | kInBody | kInCookie | kInPath},
      {"head", 0, kInQuery | kInCookie | kInHeader | kInAgent | kInPath},
      {"agent", 0, kInAgent},
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
  }
  if (where->places == 0) where->places = kEverywhere;
  return true;
}

}  // namespace

const std::vector<AttackFamily>& AttackFamilies() {
  static const std::vector<AttackFamily> families = {
      {"lfi", kLocalFiles}, {"rfi", kRemoteFiles}, {"rce", kBadCode},  {"php", kBadCode},
      {"ssti", kBadCode},   {"generic", kBadCode}, {"java", kBadCode}, {"dotnet", kBadCode},
      {"xxe", kBadCode},    {"ssrf", kBadCode},    {"crlf", kBadCode}, {"nosql", kBadCode},
      {"ldap", kBadCode},   {"xpath", kBadCode},   {"ssi", kBadCode},  {"scanner", kBadCode},
  };
  return families;
}

struct CAttackRules::Core {
  /// A rule's step that a word serves.
  struct Use {
    std::uint32_t rule;
    std::uint32_t step;
  };
  struct Compiled {
    AttackPattern pattern;
    unsigned readings = 0;
    unsigned places = 0;
    unsigned group = 0;
    std::uint32_t first_place = 0;  // of its steps in CAttackScan::reached_
  };

  std::vector<AttackRule> rules;
  std::vector<Compiled> compiled;
  CMultiPattern words;
  std::vector<std::vector<Use>> uses;  // by word; of one rule the last step first
  std::uint32_t places = 0;
};

CAttackRules::CAttackRules() : core_(std::make_shared<const Core>()) {}

bool CAttackRules::Set(std::vector<AttackRule> rules, const WordLists& lists, AttackFault* fault) {
  auto core = std::make_shared<Core>();
  std::map<std::string, std::vector<Core::Use>> uses;
  for (std::uint32_t r = 0; r < rules.size(); ++r) {
    fault->rule = rules[r].identifier;
    Where where;
    std::optional<AttackPattern> pattern = ParsePattern(rules[r].pattern, lists, &fault->text);
    if (!pattern || !ParseWhere(rules[r].where, &where, &fault->text)) return false;
    for (auto step = static_cast<std::uint32_t>(pattern->steps.size()); step-- > 0;) {
      for (const std::string& word : pattern->steps[step].words) uses[word].push_back({r, step});
    }
    const auto steps = static_cast<std::uint32_t>(pattern->steps.size());
    core->compiled.push_back(
        {std::move(*pattern), where.readings, where.places, AttackFamilies()[rules[r].family].group, core->places});
    core->places += steps;
  }
  std::vector<std::string> words;
  for (auto& [word, of_word] : uses) {
    words.push_back(word);
    core->uses.push_back(std::move(of_word));
  }
  core->words = CMultiPattern(words);
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
  if (text.size() > std::numeric_limits<std::uint32_t>::max() || !CAttackReadings::IsTelling(text)) return hit;
  readings_.ForEach(
      text, [&](unsigned reading, std::string_view read) { return !Search(read, reading, place, groups, &hit); });
  return hit;
}

void CAttackScan::Begin() {
  if (reached_.empty()) reached_.resize(core_->places);
  if (++search_ != 0) return;
  std::fill(reached_.begin(), reached_.end(), Reached{});
  search_ = 1;
}

bool CAttackScan::Search(std::string_view text, unsigned reading, unsigned place, unsigned groups, AttackHit* hit) {
  const auto& core = *core_;
  bool begun = false;
  core.words.Find(text, [&](std::uint32_t word, std::size_t start) {
    if (!begun) Begin();
    begun = true;
    const TextPlace found{start, core.words.PatternLength(word)};
    for (const auto& use : core.uses[word]) {
      const auto& rule = core.compiled[use.rule];
      if ((rule.readings & reading) == 0 || (rule.places & place) == 0 || (rule.group & groups) == 0) continue;
      const TextPlace match = Advance(text, rule.pattern, use.step, found, reached_.data() + rule.first_place);
      if (match.length == 0 || (!rules_.off_.empty() && rules_.off_[use.rule])) continue;
      hit->rule = &core.rules[use.rule];
      hit->found = text.substr(match.offset, std::min(match.length, kLongestFound));
      return false;
    }
    return true;
  });
  return hit->rule != nullptr;
}

/// A word of the pattern's step stands at `word`. Keeps how far the pattern is; all of it once it is found.
TextPlace CAttackScan::Advance(std::string_view text, const AttackPattern& pattern, std::size_t step, TextPlace word,
                               Reached* reached) const {
  const std::size_t end = word.offset + word.length;
  if (!Fits(text, pattern.steps[step], word.offset, end)) return {};
  std::size_t begin = kEnd;
  if (step == 0) {
    begin = BeginOf(text, pattern, word.offset);
  } else if (const Reached& before = reached[step - 1]; before.search == search_) {
    for (const TextPlace& last : {before.last, before.before_last}) {
      if (begin != kEnd || last.length == 0) continue;
      if (Leads(text, pattern.steps[step], last.offset + last.length, word.offset)) begin = last.offset;
    }
  }
  if (begin == kEnd) return {};
  if (step + 1 < pattern.steps.size()) {
    Reached& here = reached[step];
    here = {search_, {begin, end - begin}, here.search == search_ ? here.last : TextPlace()};
    return {};
  }
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
  return nullptr;
}

}  // namespace qiv
