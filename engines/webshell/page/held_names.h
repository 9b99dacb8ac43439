// What a page's walk keeps by name: its variables, its functions.
//
// What is held is bounded by the room that the code's length earns; ordinary pages use a tenth of it. Beyond it the
// oldest go, so that names in front of a few lines cannot take the place of theirs.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qiv {

/// Names are views that must outlive the object. A thing's address lasts until it goes.
template <typename Thing>
class CHeldNames {
 public:
  struct Entry {
    Thing thing;
    std::size_t held = 0;  ///< bytes of room that it takes
  };
  static constexpr std::size_t kEntryBytes = 144;  ///< of a node, its place in the table and in the order

  /// `room`: bytes of memory.
  explicit CHeldNames(std::size_t room) : room_(room) {}

  /// Null for none.
  Entry* Find(std::string_view name) {
    const auto found = entries_.find(name);
    return found == entries_.end() ? nullptr : &found->second;
  }
  bool Has(std::string_view name) const { return entries_.contains(name); }
  /// The name as it was first put; empty for none.
  std::string_view NameOf(std::string_view name) const {
    const auto found = entries_.find(name);
    return found == entries_.end() ? std::string_view() : found->first;
  }

  /// The entry of that name, a new one if there is none; it takes no room until it is held.
  Entry& Put(std::string_view name) {
    const auto [found, is_new] = entries_.try_emplace(name);
    Entry& entry = found->second;
    if (is_new) order_.push_back(name);
    room_ += entry.held;
    entry.held = 0;
    return entry;
  }

  /// Lets the oldest go, but not that of the name, until the `wanted` bytes have room; gone(thing) for each. Whether
  /// they have.
  template <typename Gone>
  bool MakeRoom(std::string_view name, std::size_t wanted, const Gone& gone) {
    for (std::size_t left = order_.size() - begin_; left > 0 && wanted > room_; --left) {
      const std::string_view oldest = order_[begin_++];
      if (oldest == name) {
        order_.push_back(oldest);
        continue;
      }
      const auto found = entries_.find(oldest);
      gone(found->second.thing);
      room_ += found->second.held;
      entries_.erase(found);
      lost_ = true;
    }
    if (begin_ * 2 > order_.size()) {
      order_.erase(order_.begin(), order_.begin() + static_cast<std::ptrdiff_t>(begin_));
      begin_ = 0;
    }
    return wanted <= room_;
  }

  /// The entry takes that many bytes, or what room there is.
  void Hold(Entry* entry, std::size_t bytes) {
    entry->held = std::min(bytes, room_);
    room_ -= entry->held;
  }

  /// Whether any went.
  bool Lost() const { return lost_; }
  /// A part of one did.
  void SetLost() { lost_ = true; }

 private:
  std::size_t room_;
  std::unordered_map<std::string_view, Entry> entries_;
  std::vector<std::string_view> order_;  // oldest first
  std::size_t begin_ = 0;                // those in front of it are gone
  bool lost_ = false;
};

}  // namespace qiv
