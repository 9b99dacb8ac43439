// The rules for attacks: config/_badcode.db, kept up to date.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/published.h"
#include "common/state_recorder.h"
#include "config/watched_file.h"
#include "engines/attacks/attack_rules.h"
#include "port/critical_section.h"

namespace qiv {

/// What one file holds; a request judges its answer by the rules of the same load.
struct AttackRuleSet {
  CAttackRules attacks;
  CAttackRules leaks;  ///< for responses
};

/// Thread safe. What is in force is immutable; a reader takes a counted reference without a lock.
class CBadcodeLibrary {
 public:
  /// Of the enciphered file, in bytes: half of it is text, some ten thousand rules.
  static constexpr std::uint64_t kFileMaxBytes = 8U << 20;

  /// `states` must outlive this object.
  CBadcodeLibrary(std::string path, CStateRecorder* states);

  /// Looks at the file. One that is no library, in which a rule cannot be used, or that is too large, is refused
  /// whole: what is in force stays, and a state says which rule. A record whose name or pattern has no GBK form is
  /// left out, and a state names it; bytes beyond ASCII in a pattern are written %XX. A file that is gone is no rules.
  Reload ReloadChanged();

  /// Never null.
  std::shared_ptr<const AttackRuleSet> Current() const { return rules_.Load(); }

 private:
  CStateRecorder& states_;
  CPublished<AttackRuleSet> rules_;

  CCriticalSection lock_;
  CWatchedFile file_ QIV_GUARDED_BY(lock_);
};

}  // namespace qiv
