// Names that a page's code puts together: of escapes, of elements of lists. Kept once each, as views that stay.
#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace qiv {

class CPageNames {
 public:
  /// `room`: bytes of memory that all names together may take.
  explicit CPageNames(std::size_t room) : room_(room) {}

  /// The name as a view that lives as long as this object; empty when there is no room for another one.
  std::string_view Keep(std::string name) {
    if (const auto found = kept_.find(name); found != kept_.end()) return *found;
    constexpr std::size_t kEach = 112;  // of the two containers, a name
    if (kEach + name.size() > room_) return {};
    room_ -= kEach + name.size();
    texts_.push_back(std::move(name));
    return *kept_.insert(texts_.back()).first;
  }

 private:
  std::size_t room_;
  std::list<std::string> texts_;
  std::unordered_set<std::string_view> kept_;
};

}  // namespace qiv
