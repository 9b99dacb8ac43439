// A multi-pattern automaton: finds every occurrence of many byte strings in one pass over a text.
//
// Aho-Corasick over bytes with the failure links folded into a transition table whose columns are byte classes (bytes
// that no pattern uses share one column), so a step is one table look-up. Built once when a library loads and then only
// read: one object serves all threads. Cost of a search: one look-up per byte plus one call per occurrence.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

class CMultiPattern {
 public:
  CMultiPattern() = default;
  /// Patterns are numbered by their index. Empty patterns never occur; equal patterns each report.
  explicit CMultiPattern(const std::vector<std::string>& patterns);

  bool Empty() const { return pattern_count_ == 0; }
  std::size_t PatternLength(std::uint32_t pattern) const { return lengths_[pattern]; }

  /// Calls on_occurrence(pattern, start) for every occurrence, in order of the occurrence's END, longer patterns first
  /// at equal ends. It returns false to stop the search.
  template <typename OnOccurrence>
  void Find(std::string_view text, OnOccurrence&& on_occurrence) const;

 private:
  // Row-major [state][class]; the sign of nothing is used: `first_output_[state]` heads the list of patterns ending
  // there.
  std::array<std::uint8_t, 256> class_of_{};
  std::uint32_t class_count_ = 1;
  std::vector<std::uint32_t> next_;
  std::vector<std::uint32_t> output_begin_;  // per state, index into outputs_; size states + 1
  std::vector<std::uint32_t> outputs_;       // all patterns ending in a state, longest first
  std::vector<std::uint32_t> lengths_;
  std::size_t pattern_count_ = 0;
};

template <typename OnOccurrence>
void CMultiPattern::Find(std::string_view text, OnOccurrence&& on_occurrence) const {
  if (Empty()) return;
  std::uint32_t state = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    state = next_[state * class_count_ + class_of_[static_cast<unsigned char>(text[i])]];
    for (std::uint32_t o = output_begin_[state]; o < output_begin_[state + 1]; ++o) {
      const std::uint32_t pattern = outputs_[o];
      if (!on_occurrence(pattern, i + 1 - lengths_[pattern])) return;
    }
  }
}

}  // namespace qiv
