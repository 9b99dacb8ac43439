#include "common/multi_pattern.h"

#include <algorithm>
#include <numeric>

namespace qiv {

// Builds breadth first over the sorted patterns: a state is a range of them that share their first `depth` bytes, so
// that its children are the sub-ranges by the next byte, in class order.
class CMultiPattern::CBuilder {
 public:
  CBuilder(CMultiPattern* automaton, const std::vector<std::string>& patterns, const std::vector<bool>& ending)
      : automaton_(*automaton), patterns_(patterns), ending_(ending) {}

  void Build(std::size_t dense_entries) {
    Prepare(dense_entries);
    if (order_.empty()) return;
    states_.push_back({0, order_.size(), 0, 0, 0, 0, true});
    for (std::uint32_t state = 0; state < states_.size(); ++state) Expand(state);
    automaton_.own_begin_.push_back(static_cast<std::uint32_t>(automaton_.own_.size()));
    automaton_.sparse_begin_.push_back(static_cast<std::uint32_t>(automaton_.sparse_edges_.size()));
    for (int byte = 0; byte < 256; ++byte) {
      automaton_.begins_none_[byte] = automaton_.dense_[automaton_.class_of_[byte]] == 0;
    }
  }

 private:
  struct State {
    std::size_t begin;  // range of order_
    std::size_t end;
    std::size_t depth;
    std::size_t at_start;   // patterns met on the way here
    std::uint32_t failure;  // state of the longest proper suffix
    std::uint32_t output;   // this state or the longest suffix state that has own patterns, or 0
    bool ending;            // all that ends here wants no word to go on
  };

  const std::string& Pattern(std::size_t rank) const { return patterns_[order_[rank]]; }

  // Of a state that may not have its row yet.
  std::uint32_t StateOf(Place place) const {
    return place < automaton_.sparse_base_ ? place / automaton_.row_size_ : automaton_.StateOf(place);
  }

  void Prepare(std::size_t dense_entries) {
    CMultiPattern& a = automaton_;
    std::array<bool, 256> used{};
    for (std::uint32_t i = 0; i < patterns_.size(); ++i) {
      a.lengths_.push_back(static_cast<std::uint32_t>(patterns_[i].size()));
      a.longest_ = std::max(a.longest_, patterns_[i].size());
      for (const char c : patterns_[i]) used[static_cast<unsigned char>(c)] = true;
      if (!patterns_[i].empty()) order_.push_back(i);
    }
    std::stable_sort(order_.begin(), order_.end(),
                     [this](std::uint32_t x, std::uint32_t y) { return patterns_[x] < patterns_[y]; });
    // Class 0 is the bytes of no pattern; when there are none, it goes to the first byte so that 255 is the last.
    const bool all_used = std::all_of(used.begin(), used.end(), [](bool u) { return u; });
    std::uint32_t classes = all_used ? 0 : 1;
    for (int byte = 0; byte < 256; ++byte) {
      if (used[byte]) a.class_of_[byte] = static_cast<std::uint8_t>(classes++);
    }
    a.row_size_ = classes + 1;
    a.dense_count_ = static_cast<std::uint32_t>(std::max<std::size_t>(dense_entries / a.row_size_, 1));
    a.sparse_base_ = a.dense_count_ * a.row_size_;
  }

  // The state's edges, own patterns and row; then its children with their failure links. Everything that a failure link
  // leads to is shallower and therefore finished.
  void Expand(std::uint32_t number) {
    CMultiPattern& a = automaton_;
    State state = states_[number];
    const bool dense = number < a.dense_count_;
    a.own_begin_.push_back(static_cast<std::uint32_t>(a.own_.size()));
    while (state.begin < state.end && Pattern(state.begin).size() == state.depth) {
      a.own_.push_back(order_[state.begin++]);
      ++state.at_start;
    }
    a.most_at_start_ = std::max(a.most_at_start_, state.at_start);
    a.own_suffix_.push_back(number == 0 ? 0 : states_[state.failure].output);
    const std::size_t row = a.dense_.size();
    if (dense) {
      a.dense_.resize(row + a.row_size_, 0);
      if (number != 0) std::copy_n(a.dense_.begin() + a.PlaceOf(state.failure), a.row_size_, a.dense_.begin() + row);
      a.dense_.back() = number;
    } else {
      a.sparse_begin_.push_back(static_cast<std::uint32_t>(a.sparse_edges_.size()));
      a.sparse_failure_.push_back(a.PlaceOf(state.failure));
    }
    while (state.begin < state.end) {
      const char byte = Pattern(state.begin)[state.depth];
      const std::uint32_t byte_class = a.class_of_[static_cast<unsigned char>(byte)];
      std::size_t end = state.begin;
      while (end < state.end && Pattern(end)[state.depth] == byte) ++end;
      const Place target = AddChild(number, state, end, byte_class);
      if (dense) {
        a.dense_[row + byte_class] = target;
      } else {
        a.sparse_edges_.push_back({byte_class, target});
      }
      state.begin = end;
    }
  }

  Place AddChild(std::uint32_t parent, const State& state, std::size_t end, std::uint32_t byte_class) {
    const auto number = static_cast<std::uint32_t>(states_.size());
    State child{state.begin, end, state.depth + 1, state.at_start, 0, 0, true};
    if (parent != 0) {
      const Place failure = automaton_.Step(automaton_.PlaceOf(state.failure), byte_class) & ~kFlags;
      child.failure = StateOf(failure);
      child.ending = states_[child.failure].ending;
    }
    for (std::size_t own = child.begin; own < end && Pattern(own).size() == child.depth; ++own) {
      child.ending = child.ending && order_[own] < ending_.size() && ending_[order_[own]];
    }
    child.output = Pattern(child.begin).size() == child.depth ? number : states_[child.failure].output;
    states_.push_back(child);
    return automaton_.PlaceOf(number) | (child.output == 0 ? 0 : child.ending ? kFlags : kOutput);
  }

  CMultiPattern& automaton_;
  const std::vector<std::string>& patterns_;
  const std::vector<bool>& ending_;
  std::vector<std::uint32_t> order_;  // the non-empty patterns, sorted
  std::vector<State> states_;
};

CMultiPattern::CMultiPattern(const std::vector<std::string>& patterns, const std::vector<bool>& ending,
                             std::size_t dense_entries) {
  CBuilder(this, patterns, ending).Build(dense_entries);
}

}  // namespace qiv
