// The names of a PHP file as numbers: variables, functions and keys of arrays are compared and looked up by number.
//
// A name is hashed once, with a seed that differs from process to process, and looked for in at most kMostProbes places
// of the table, so that the cost of a name is its length, whatever names a file holds.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/flow/stack.h"

namespace qiv {

/// A name's number; 0 is none. A decimal number below 2^31 is its own name.
using PhpName = std::uint32_t;
inline constexpr PhpName kNoName = 0;
inline constexpr PhpName kEmptyName = 1;
inline constexpr PhpName kNumberName = 0x80000000U;

constexpr PhpName NameOfNumber(std::size_t number) { return kNumberName | static_cast<std::uint32_t>(number); }

/// Spreads a number over all bits of a hash.
constexpr std::uint32_t MixHash(std::uint64_t value) {
  value *= 0x9E3779B97F4A7C15U;
  value ^= value >> 32;
  value *= 0xD6E8FEB86659FD93U;
  return static_cast<std::uint32_t>(value ^ value >> 32);
}

/// Differs from process to process, so that nobody can prepare texts whose hashes meet.
std::uint64_t HashSeed();

/// Finds numbered entries by their hash: an open table that grows with them. What stands too far from its place is not
/// found.
class CProbeTable {
 public:
  // Runs of 128 places come by chance in one of a hundred large tables at three quarters full, of 1,024 in none.
  static constexpr std::size_t kMostProbes = 1024;

  /// The first entry of that hash for which same(number) holds; else add() makes one and gives its number, from 1 on,
  /// or 0 to make none. 0: no room.
  template <typename Same, typename Add>
  std::uint32_t FindOrAdd(std::uint32_t hash, Same&& same, Add&& add) {
    if ((used_ + 1) * 4 > slots_.size() * 3) Grow();
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = 0; i < kMostProbes; ++i) {
      Slot& slot = slots_[(hash + i) & mask];
      if (slot.number == 0) {
        const std::uint32_t number = add();
        if (number == 0) return 0;
        slot = {hash, number};
        ++used_;
        return number;
      }
      if (slot.hash == hash && same(slot.number)) return slot.number;
    }
    return 0;
  }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t number = 0;
  };
  void Grow();

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

class CPhpNames {
 public:
  explicit CPhpNames(CFlowBudget* budget);

  /// The number of `text`; kNoName when the budget has no room. `lasting`: the bytes stay longer than this object.
  PhpName Of(std::string_view text, bool lasting = false);
  /// The same whatever room there is, for texts of which there are few.
  PhpName OfAnyway(std::string_view text);
  /// The same letters in lower case.
  PhpName Lower(PhpName name);
  /// Empty for numbers.
  std::string_view Text(PhpName name) const;

 private:
  PhpName Find(std::string_view text, bool lasting, bool anyway);
  struct Entry {
    const char* data;
    std::uint32_t size;
    PhpName lower;  // kNoName: not asked yet
  };
  // An entry, its places in a table that doubles at three quarters full, and what the walk keeps for each name.
  static constexpr std::size_t kRoom = 64;

  CFlowBudget* budget_;
  CFlowStack<Entry, 32> entries_;  // entry i has number i + 1
  std::list<std::string> own_;
  CProbeTable table_;
  std::array<PhpName, 256> of_byte_{};  // of one byte: a text may hold as many of them as bytes
};

}  // namespace qiv
