#include "engines/attacks/attack_rules.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <utility>

#include "common/char_set.h"
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

// A text's marks: which bytes that are no letters it holds, as bits. A rule that needs one that is not there cannot
// find anything.
constexpr std::uint64_t kCommandMark = std::uint64_t{1} << 63U;  // one of what begins a command behind something

constexpr auto kMarkOf = [] {
  std::array<std::uint64_t, 256> marks{};
  unsigned bit = 0;
  for (unsigned c = '!'; c < 0x7F; ++c) {
    if (!IsWordByte(static_cast<char>(c))) marks[c] = std::uint64_t{1} << bit++;
  }
  for (unsigned c = 0; c < 0x20; ++c) marks[c] = std::uint64_t{1} << bit;
  marks['\r'] = marks['\n'] = std::uint64_t{1} << ++bit;
  for (unsigned c = 0x80; c < 0x100; ++c) marks[c] = std::uint64_t{1} << (bit + 1);
  for (const char c : {';', '|', '&', '('}) marks[static_cast<unsigned char>(c)] |= kCommandMark;
  return marks;
}();

std::uint64_t MarksOf(std::string_view text) {
  std::uint64_t marks = 0;
  for (const char c : text) marks |= kMarkOf[static_cast<unsigned char>(c)];
  return marks;
}

std::uint64_t MarksOfRun(const ByteRun& run) {
  if (run.least == 0) return 0;
  std::uint64_t marks = ~std::uint64_t{0};
  for (std::size_t c = 0; c < kMarkOf.size(); ++c) {
    if (run.set.test(c)) marks &= kMarkOf[c];
  }
  return marks & ~kCommandMark;
}

/// The marks that every text holds in which the pattern is found.
std::uint64_t MarksNeeded(const AttackPattern& pattern) {
  std::uint64_t needed = pattern.begin == PatternBegin::kCommand ? kCommandMark : 0;
  for (const PatternStep& step : pattern.steps) {
    std::uint64_t of_words = ~std::uint64_t{0};
    for (const std::string& word : step.words) of_words &= MarksOf(word);
    needed |= of_words & ~kCommandMark;
    for (const ByteRun& run : step.before) needed |= step.any_before ? 0 : MarksOfRun(run);
  }
  for (const ByteRun& run : pattern.behind) needed |= MarksOfRun(run);
  return needed;
}

bool HoldsNoWordByte(const ByteRun& run) {
  for (std::size_t c = 0; c < run.set.size(); ++c) {
    if (run.set.test(c) && IsWordByte(static_cast<char>(c))) return false;
  }
  return run.least > 0;
}

/// Whether only another byte than a letter, digit or "_" can stand before the step's word, and behind it.
bool IsEdgedBefore(const AttackPattern& pattern, std::size_t step) {
  const PatternStep& here = pattern.steps[step];
  if (here.edge_before) return true;
  if (!here.before.empty()) return !here.any_before && HoldsNoWordByte(here.before.back());
  return step == 0 && pattern.begin != PatternBegin::kAnywhere;
}
bool IsEdgedBehind(const AttackPattern& pattern, std::size_t step) {
  const PatternStep& here = pattern.steps[step];
  if (here.edge_behind || here.command_end) return true;
  const bool last = step + 1 == pattern.steps.size();
  if (!last && pattern.steps[step + 1].any_before) return false;
  const std::vector<ByteRun>& next = last ? pattern.behind : pattern.steps[step + 1].before;
  return !next.empty() && HoldsNoWordByte(next.front());
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
      {"lfi", kLocalFiles},     {"rfi", kRemoteFiles}, {"rce", kBadCode},           {"php", kBadCode},
      {"ssti", kBadCode},       {"generic", kBadCode}, {"java", kBadCode},          {"dotnet", kBadCode},
      {"xxe", kBadCode},        {"ssrf", kBadCode},    {"crlf", kBadCode},          {"nosql", kBadCode},
      {"ldap", kBadCode},       {"xpath", kBadCode},   {"ssi", kBadCode},           {"scanner", kBadCode},
      {"leak_source", kLeaks},  {"leak_page", kLeaks}, {"leak_trace", kErrorLeaks}, {"leak_database", kLeaks},
      {"leak_listing", kLeaks},
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
    bool outside_writing = false;
    std::uint64_t needed = 0;       // marks
    std::uint32_t first_place = 0;  // of its steps in CAttackScan::reached_
  };

  std::vector<AttackRule> rules;
  std::vector<Compiled> compiled;
  CMultiPattern words;
  /// The uses of a word, of one rule the last step first; whether all need an edge before or behind it.
  struct Uses {
    std::vector<Use> of_word;
    bool edged_before = true;
    bool edged_behind = true;
  };
  std::vector<Uses> uses;  // by word
  std::uint32_t places = 0;
};

CAttackRules::CAttackRules() : core_(std::make_shared<const Core>()) {}

bool CAttackRules::Set(std::vector<AttackRule> rules, const WordLists& lists, AttackFault* fault) {
  auto core = std::make_shared<Core>();
  std::map<std::string, Core::Uses> uses;
  for (std::uint32_t r = 0; r < rules.size(); ++r) {
    fault->rule = rules[r].identifier;
    Where where;
    std::optional<AttackPattern> pattern = ParsePattern(rules[r].pattern, lists, &fault->text);
    if (!pattern || !ParseWhere(rules[r].where, &where, &fault->text)) return false;
    for (auto step = static_cast<std::uint32_t>(pattern->steps.size()); step-- > 0;) {
      for (const std::string& word : pattern->steps[step].words) {
        Core::Uses& of = uses[word];
        of.of_word.push_back({r, step});
        of.edged_before = of.edged_before && IsEdgedBefore(*pattern, step);
        of.edged_behind = of.edged_behind && IsEdgedBehind(*pattern, step);
      }
    }
    const auto steps = static_cast<std::uint32_t>(pattern->steps.size());
    const std::uint64_t needed = MarksNeeded(*pattern);
    core->compiled.push_back({std::move(*pattern), where.readings, where.places,
                              AttackFamilies()[rules[r].family].group, where.outside_writing, needed, core->places});
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

AttackHit CAttackScan::FindAsItStands(std::string_view lowered, AttackPlace place, unsigned groups) {
  AttackHit hit;
  if (lowered.size() <= std::numeric_limits<std::uint32_t>::max()) Search(lowered, kReadPlain, place, groups, &hit);
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
  const std::uint64_t marks = MarksOf(text);
  CTextShape shape(text);
  bool begun = false;
  core.words.Find(text, [&](std::uint32_t word, std::size_t start) {
    if (!begun) Begin();
    begun = true;
    const TextPlace found{start, core.words.PatternLength(word)};
    const auto& uses = core.uses[word];
    const std::size_t end = start + found.length;
    if (uses.edged_before && start > 0 && IsWordByte(text[start - 1])) return true;
    if (uses.edged_behind && end < text.size() && IsWordByte(text[end])) return true;
    for (const auto& use : uses.of_word) {
      const auto& rule = core.compiled[use.rule];
      if ((rule.needed & ~marks) != 0 || (rule.readings & reading) == 0 || (rule.places & place) == 0 ||
          (rule.group & groups) == 0)
        continue;
      const TextPlace match = Advance(text, rule.pattern, use.step, found, reached_.data() + rule.first_place);
      if (match.length == 0 || (!rules_.off_.empty() && rules_.off_[use.rule])) continue;
      if (rule.outside_writing && shape.IsWithinWriting(match.offset)) continue;
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
  const std::string lowered = CCharSet::LowerBytes(text);
  return scan.FindAsItStands(lowered, kInResponse, kLeaks | kErrorLeaks).rule;
}

}  // namespace qiv
