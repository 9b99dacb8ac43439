// What is known of a file as a whole, and conditions on it: which findings count in which files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace qiv {

/// Facts are bits of whoever asks.
struct FileCondition {
  std::size_t most_bytes = static_cast<std::size_t>(-1);
  std::uint64_t all = 0;   ///< each of them holds
  std::uint64_t any = 0;   ///< one of them holds; 0: no matter
  std::uint64_t none = 0;  ///< none of them holds
};

/// The facts of one file; each is found out once, when it is first asked for.
class CFileFacts {
 public:
  using Test = std::function<bool(std::uint64_t fact)>;

  CFileFacts(std::size_t bytes, Test test) : bytes_(bytes), test_(std::move(test)) {}

  void Set(std::uint64_t facts, bool holds) {
    asked_ |= facts;
    holds ? held_ |= facts : held_ &= ~facts;
  }
  /// `fact`: one bit.
  bool Has(std::uint64_t fact) {
    if ((asked_ & fact) == 0) Set(fact, test_(fact));
    return (held_ & fact) != 0;
  }
  bool Meet(const FileCondition& condition) {
    return bytes_ <= condition.most_bytes && !HasAny(condition.none) && HasAll(condition.all) &&
           (condition.any == 0 || HasAny(condition.any));
  }

 private:
  static std::uint64_t Lowest(std::uint64_t facts) { return facts & (~facts + 1); }
  bool HasAny(std::uint64_t facts) {
    if ((facts & asked_ & held_) != 0) return true;
    for (; facts != 0; facts &= facts - 1) {
      if (Has(Lowest(facts))) return true;
    }
    return false;
  }
  bool HasAll(std::uint64_t facts) {
    if ((facts & asked_ & ~held_) != 0) return false;
    for (; facts != 0; facts &= facts - 1) {
      if (!Has(Lowest(facts))) return false;
    }
    return true;
  }

  std::size_t bytes_;
  Test test_;
  std::uint64_t asked_ = 0;
  std::uint64_t held_ = 0;
};

}  // namespace qiv
