// Rules for attacks of all kinds but injection into databases and pages, and the one search for all of them.
//
// Each word of each rule's pattern (attack_pattern.h) goes into one automaton. A text is searched once in each of its
// readings (attack_readings.h). An occurrence takes its rules one word further, or begins them; what may stand between
// two words is looked at then. A rule keeps one place for each of its words, so a search takes time linear in the
// text, and memory that the rules fix.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "common/text.h"
#include "engines/attacks/attack_pattern.h"
#include "engines/attacks/attack_readings.h"

namespace qiv {

/// What acts on the rules of a family. Bits.
enum AttackGroup : std::uint8_t {
  kLocalFiles = 1,
  kRemoteFiles = 2,
  kBadCode = 4,
  kLeaks = 8,         ///< in responses
  kErrorLeaks = 16,   ///< in responses that say themselves that something failed
  kSourceLeaks = 32,  ///< in pages: in data, source is what an editor asked for
};
inline constexpr unsigned kOfResponses = kLeaks | kErrorLeaks | kSourceLeaks;

/// Where a text stood. Bits.
enum AttackPlace : std::uint8_t {
  kInQuery = 1,
  kInBody = 2,
  kInCookie = 4,  ///< and in the query of a Referer
  kInHeader = 8,
  kInAgent = 16,
  kInPath = 32,
  kInResponse = 64,
};

struct AttackFamily {
  std::string_view name;  ///< of its file of rules
  AttackGroup group;
};
/// In the order of their files.
const std::vector<AttackFamily>& AttackFamilies();

struct AttackRule {
  std::string identifier;
  std::string where;    ///< as written: readings and places, divided by commas; "-": everywhere, in plain reading
  std::string pattern;  ///< as written
  std::string remark;
  std::string hits;        ///< a text that it must find, as written; "%XX" is a byte
  std::string misses;      ///< and one that it must not
  std::size_t family = 0;  ///< index into AttackFamilies()

  bool operator==(const AttackRule&) const = default;
};

/// What a load is told of a text that is no set of rules.
struct AttackFault {
  std::string rule;  ///< identifier, or name of a list
  std::string text;
};

class CAttackRules {
 public:
  /// No rules.
  CAttackRules();
  /// False, with *fault, when a rule cannot be used; then this stays as it is.
  bool Set(std::vector<AttackRule> rules, const WordLists& lists, AttackFault* fault);
  /// The same rules but for some. Cheap.
  CAttackRules Without(const std::set<std::string>& identifiers) const;

  const std::vector<AttackRule>& Rules() const;

 private:
  friend class CAttackScan;
  struct Core;
  std::shared_ptr<const Core> core_;
  std::vector<bool> off_;  // by rule; empty: none
};

struct AttackHit {
  const AttackRule* rule = nullptr;  ///< null: nothing was found
  std::string found;                 ///< the piece of the reading
};

/// The search of one request's texts for the rules of some groups. Keeps its working memory from one text to the next.
/// Not thread safe; `rules` must outlive it and its hits.
class CAttackScan {
 public:
  explicit CAttackScan(const CAttackRules& rules) : rules_(rules), core_(rules.core_) {}

  /// Judges a text that stands in `place`. The first hit of one of `groups`, or none.
  AttackHit Find(std::string_view text, AttackPlace place, unsigned groups);
  /// The same of a text in lower case that is read as it stands, without resolving anything in it.
  AttackHit FindAsItStands(std::string_view lowered, AttackPlace place, unsigned groups);

 private:
  struct Reached {
    std::uint32_t search = 0;  // in which search; another one is none
    TextPlace last;
    TextPlace before_last;  // the word may stand in the next one once more; without length: none
  };
  /// What a text is searched for.
  struct Scope {
    TextMarks marks;  // of the text
    unsigned reading;
    unsigned place;
    unsigned groups;
  };
  bool Search(std::string_view text, const Scope& scope, AttackHit* hit);
  static std::size_t BeginBehind(std::string_view text, const PatternStep& step, const Reached& before,
                                 std::size_t start);
  TextPlace Advance(std::string_view text, const AttackPattern& pattern, std::size_t step, TextPlace found,
                    Reached* reached) const;
  void Begin();

  const CAttackRules& rules_;
  const std::shared_ptr<const CAttackRules::Core> core_;
  CAttackReadings readings_;
  std::vector<Reached> reached_;
  std::uint32_t search_ = 0;
};

/// The rule that finds a text at one of the places it is for, or null.
const AttackRule* FindsText(const CAttackRules& rules, std::string_view text);

}  // namespace qiv
