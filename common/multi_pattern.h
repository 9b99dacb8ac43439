// A multi-pattern automaton: finds every occurrence of many byte strings in one pass over a text.
//
// Aho-Corasick. States are numbered breadth first. As many states as fit kDenseEntries have a full row of a transition
// table with the failure links folded in; a column is a byte class (bytes that no pattern uses share one), so a step is
// one look-up; the last column holds the state's number. The states after them (deep, seldom reached, mostly with one
// edge) keep a short edge list and a failure link. In the initial state the search runs over bytes that begin no
// pattern without consulting the table.
//
// Size: 4 bytes a table entry, at most 4 MiB, and about 20 bytes a state beside it; a state is a distinct prefix of a
// pattern. 2,000 random patterns of 10 bytes over 40 byte values: 17,000 states, 2.9 MiB. Build time grows with the
// patterns' bytes.
// Cost of a search: at most two steps a byte plus one call an occurrence, whatever the text.
//
// Built once when a library loads and then only read: one object serves all threads.
// Tested by tests/common/multi_pattern_test.cpp against repeated plain searches.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/ascii.h"

namespace qiv {

class CMultiPattern {
 public:
  /// Bound of the transition table, in entries of 4 bytes.
  static constexpr std::size_t kDenseEntries = std::size_t{1} << 20;

  CMultiPattern() = default;
  /// Patterns are numbered by their index. Empty patterns never occur; equal patterns each report. Together at most
  /// 512 MiB. `dense_entries` is a smaller bound for tests.
  explicit CMultiPattern(const std::vector<std::string>& patterns, std::size_t dense_entries = kDenseEntries)
      : CMultiPattern(patterns, {}, dense_entries) {}
  /// `ending`: by number, whether who searches only wants the pattern where no letter, digit or "_" follows. Then most
  /// of its other occurrences are not reported, which spares calls; some may be.
  CMultiPattern(const std::vector<std::string>& patterns, const std::vector<bool>& ending,
                std::size_t dense_entries = kDenseEntries);

  /// Whether no pattern can occur.
  bool Empty() const { return longest_ == 0; }
  std::size_t PatternCount() const { return lengths_.size(); }
  std::size_t PatternLength(std::uint32_t pattern) const { return lengths_[pattern]; }

  /// Calls on_occurrence(pattern, start) for every occurrence, in order of the occurrence's END, longer patterns first
  /// at equal ends, equal patterns in order of number. It returns false to stop the search.
  template <typename OnOccurrence>
  void Find(std::string_view text, OnOccurrence&& on_occurrence) const;

  /// Calls on_start(start, patterns, count) for every position where something occurs, in order of START; `patterns`
  /// are the numbers that occur there, shorter patterns first. It returns false to stop the search. Holds back at most
  /// as many positions as the longest pattern has bytes.
  template <typename OnStart>
  void FindByStart(std::string_view text, OnStart&& on_start) const;

 private:
  // A place in the automaton: state * row_size_ for a dense state, else sparse_base_ + (state - dense_count_). The
  // top bits tell that something ends here, and that all of it wants no word to go on.
  using Place = std::uint32_t;
  static constexpr Place kOutput = 0x80000000U;
  static constexpr Place kEnding = 0x40000000U;
  static constexpr Place kFlags = kOutput | kEnding;

  class CBuilder;  // multi_pattern.cpp

  std::uint32_t StateOf(Place place) const {
    return place < sparse_base_ ? dense_[place + row_size_ - 1] : dense_count_ + (place - sparse_base_);
  }
  Place PlaceOf(std::uint32_t state) const {
    return state < dense_count_ ? state * row_size_ : sparse_base_ + (state - dense_count_);
  }
  Place Step(Place place, std::uint32_t byte_class) const {
    while (place >= sparse_base_) {
      const std::uint32_t state = place - sparse_base_;
      for (std::uint32_t e = sparse_begin_[state]; e < sparse_begin_[state + 1]; ++e) {
        if (sparse_edges_[e].byte_class == byte_class) return sparse_edges_[e].target;
      }
      place = sparse_failure_[state];
    }
    return dense_[place + byte_class];
  }

  struct Edge {
    std::uint32_t byte_class;
    Place target;
  };

  std::array<std::uint8_t, 256> class_of_{};     // 0: in no pattern
  std::array<std::uint8_t, 256> begins_none_{};  // 1: the byte begins no pattern
  std::uint32_t row_size_ = 0;                   // classes and the state's number
  std::uint32_t dense_count_ = 0;
  Place sparse_base_ = 0;
  std::vector<Place> dense_;
  std::vector<std::uint32_t> sparse_begin_;  // per sparse state, index into sparse_edges_; one more at the end
  std::vector<Edge> sparse_edges_;
  std::vector<Place> sparse_failure_;      // without the top bits
  std::vector<std::uint32_t> own_begin_;   // per state, index into own_; one more at the end
  std::vector<std::uint32_t> own_;         // patterns that are the state's own text, in order of number
  std::vector<std::uint32_t> own_suffix_;  // per state, the longest proper suffix state that has own patterns, or 0
  std::vector<std::uint32_t> lengths_;
  std::size_t longest_ = 0;
  std::size_t most_at_start_ = 0;  // how many patterns can occur at one position
};

template <typename OnOccurrence>
void CMultiPattern::Find(std::string_view text, OnOccurrence&& on_occurrence) const {
  if (Empty()) return;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  Place place = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (place == 0) {
      while (i < text.size() && begins_none_[bytes[i]] != 0) ++i;
      if (i == text.size()) return;
    }
    place = Step(place, class_of_[bytes[i]]);
    if ((place & kOutput) == 0) continue;
    const bool skip = (place & kEnding) != 0 && i + 1 < text.size() && IsWordByte(text[i + 1]);
    place &= ~kFlags;
    if (skip) continue;
    for (std::uint32_t state = StateOf(place); state != 0; state = own_suffix_[state]) {
      for (std::uint32_t o = own_begin_[state]; o < own_begin_[state + 1]; ++o) {
        if (!on_occurrence(own_[o], i + 1 - lengths_[own_[o]])) return;
      }
    }
  }
}

template <typename OnStart>
void CMultiPattern::FindByStart(std::string_view text, OnStart&& on_start) const {
  // A ring of the last `window` positions, each with room for all patterns that can occur at one position. What starts
  // at s is complete once an occurrence ends beyond s + window. It is prepared when the first occurrence comes.
  constexpr std::size_t kInline = 512;
  std::uint32_t inline_room[kInline];
  std::unique_ptr<std::uint32_t[]> large_room;
  const std::size_t window = std::min(longest_, text.size());
  const std::size_t slots = std::bit_ceil(window);
  const std::size_t slot_size = most_at_start_ + 1;  // the count, then the patterns
  std::uint32_t* ring = nullptr;
  bool stopped = false;
  std::size_t first = 0;  // positions before it are done with
  const auto flush = [&](std::size_t end) {
    for (; first < end && !stopped; ++first) {
      std::uint32_t* const slot = ring + (first & (slots - 1)) * slot_size;
      if (slot[0] == 0) continue;
      stopped = !on_start(first, slot + 1, slot[0]);
      slot[0] = 0;
    }
  };
  std::size_t last_end = 0;
  Find(text, [&](std::uint32_t pattern, std::size_t start) {
    const std::size_t end = start + lengths_[pattern];
    if (ring == nullptr) {
      ring = inline_room;
      if (slots * slot_size > kInline) {
        large_room = std::make_unique_for_overwrite<std::uint32_t[]>(slots * slot_size);
        ring = large_room.get();
      }
      for (std::size_t s = 0; s < slots; ++s) ring[s * slot_size] = 0;
    }
    if (end > last_end + window) {  // everything held back is complete, and what lies between is empty
      flush(last_end);
      first = end - window;
    } else if (end > window) {
      flush(end - window);
    }
    last_end = end;
    if (stopped) return false;
    std::uint32_t* const slot = ring + (start & (slots - 1)) * slot_size;
    slot[1 + slot[0]++] = pattern;
    return true;
  });
  if (ring != nullptr) flush(last_end);
}

}  // namespace qiv
