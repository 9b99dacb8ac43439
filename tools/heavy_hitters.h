// The most frequent of endlessly many keys, in a table of fixed size ("space-saving").
//
// While the keys fit into the table every count is exact. When a new key finds it full, it takes the place of the one
// with the lowest count, and inherits that count as what it may have had before (Entry::missed). So for each key in the
// table: counted <= true count <= counted + missed; and each key that came more often than Total() / capacity is in it.
// Tested by tests/tools/event_statistics_test.cpp against a map of all keys.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

class CHeavyHitters {
 public:
  static constexpr std::size_t kColumns = 3;  ///< each key has so many counts, its rank goes by their sum

  struct Entry {
    std::string key;
    std::string note;  ///< the caller's, about the key
    std::array<std::uint64_t, kColumns> counts{};
    std::uint64_t missed = 0;  ///< at most so many more came before it had a place

    std::uint64_t Counted() const {
      std::uint64_t sum = 0;
      for (const std::uint64_t count : counts) sum += count;
      return sum;
    }
  };

  explicit CHeavyHitters(std::size_t capacity);
  CHeavyHitters(const CHeavyHitters&) = delete;
  CHeavyHitters& operator=(const CHeavyHitters&) = delete;

  /// `note` is kept when the key is new in the table.
  void Add(std::string_view key, std::size_t column, std::string_view note = {});

  /// Those counted most often, at most `limit`; of equal ones in the order of their keys.
  std::vector<const Entry*> Top(std::size_t limit) const;
  const std::vector<Entry>& Entries() const { return entries_; }

  std::uint64_t Total() const { return total_; }
  const std::array<std::uint64_t, kColumns>& Totals() const { return totals_; }
  /// Whether a key has ever lost its place: some counts may be too low then.
  bool Overflowed() const { return overflowed_; }
  std::size_t Capacity() const { return capacity_; }

 private:
  std::uint64_t Weight(std::size_t entry) const { return entries_[entry].Counted() + entries_[entry].missed; }
  std::size_t Insert(std::string_view key, std::string_view note);
  void SiftDown(std::size_t place);

  const std::size_t capacity_;
  std::vector<Entry> entries_;  // never reallocated: the index refers to their keys
  std::map<std::string_view, std::size_t> index_;
  std::vector<std::size_t> heap_;    // entries, the least weight first
  std::vector<std::size_t> places_;  // of each entry in the heap
  std::array<std::uint64_t, kColumns> totals_{};
  std::uint64_t total_ = 0;
  bool overflowed_ = false;
};

}  // namespace qiv
