#include "tools/heavy_hitters.h"

#include <algorithm>
#include <utility>

namespace qiv {

CHeavyHitters::CHeavyHitters(std::size_t capacity) : capacity_(std::max<std::size_t>(capacity, 1)) {
  entries_.reserve(capacity_);
  heap_.reserve(capacity_);
  places_.reserve(capacity_);
}

void CHeavyHitters::Add(std::string_view key, std::size_t column, std::string_view note) {
  const auto found = index_.find(key);
  const std::size_t entry = found != index_.end() ? found->second : Insert(key, note);
  ++entries_[entry].counts[column];
  ++totals_[column];
  ++total_;
  SiftDown(places_[entry]);
}

// The number of the new entry: one more, or that of the least.
std::size_t CHeavyHitters::Insert(std::string_view key, std::string_view note) {
  std::size_t entry = entries_.size();
  if (entry < capacity_) {
    entries_.push_back({std::string(key), std::string(note), {}, 0});
    // The new one weighs nothing: it goes to the top of the heap.
    std::size_t place = heap_.size();
    heap_.push_back(entry);
    places_.push_back(place);
    while (place > 0) {
      const std::size_t parent = (place - 1) / 2;
      heap_[place] = heap_[parent];
      places_[heap_[place]] = place;
      place = parent;
    }
    heap_[0] = entry;
    places_[entry] = 0;
  } else {
    entry = heap_[0];
    Entry& taken = entries_[entry];
    index_.erase(taken.key);
    taken.missed = Weight(entry);
    taken.counts = {};
    taken.key = key;
    taken.note = note;
    overflowed_ = true;
  }
  index_.emplace(entries_[entry].key, entry);
  return entry;
}

void CHeavyHitters::SiftDown(std::size_t place) {
  while (true) {
    std::size_t least = place;
    for (const std::size_t child : {2 * place + 1, 2 * place + 2}) {
      if (child < heap_.size() && Weight(heap_[child]) < Weight(heap_[least])) least = child;
    }
    if (least == place) return;
    std::swap(heap_[place], heap_[least]);
    places_[heap_[place]] = place;
    places_[heap_[least]] = least;
    place = least;
  }
}

std::vector<const CHeavyHitters::Entry*> CHeavyHitters::Top(std::size_t limit) const {
  std::vector<const Entry*> top;
  for (const Entry& entry : entries_) {
    if (entry.Counted() > 0) top.push_back(&entry);
  }
  const auto before = [](const Entry* a, const Entry* b) {
    const std::uint64_t x = a->Counted();
    const std::uint64_t y = b->Counted();
    return x != y ? x > y : a->key < b->key;
  };
  const std::size_t shown = std::min(limit, top.size());
  std::partial_sort(top.begin(), top.begin() + static_cast<std::ptrdiff_t>(shown), top.end(), before);
  top.resize(shown);
  return top;
}

}  // namespace qiv
