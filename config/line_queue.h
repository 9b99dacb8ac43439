// Lines waiting to be written, equal ones counted instead of repeated.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "port/critical_section.h"

namespace qiv {

/// Thread safe. The order of first appearance is kept.
class CLineQueue {
 public:
  static constexpr std::size_t kReserved = 100;
  /// Different lines that are held. An attack in bulk from many addresses writes a new line each time; 10,000 lines are
  /// some 2 MiB.
  static constexpr std::size_t kMaxLines = 10'000;

  struct Item {
    std::string line;
    std::uint64_t count;
  };

  CLineQueue();

  /// False, with nothing changed, when the line is new and the queue is full.
  bool Add(const std::string& line);
  /// Empties the queue.
  std::vector<Item> Take();

 private:
  CCriticalSection queue_lock_;
  std::vector<Item> items_ QIV_GUARDED_BY(queue_lock_);
  std::unordered_map<std::string, std::size_t> index_ QIV_GUARDED_BY(queue_lock_);  ///< line -> place in items_
};

}  // namespace qiv
