#include "config/line_queue.h"

#include <utility>

namespace qiv {

CLineQueue::CLineQueue() {
  const CAutoLock lock(queue_lock_);
  items_.reserve(kReserved);
  index_.reserve(kReserved);
}

bool CLineQueue::Add(const std::string& line) {
  const CAutoLock lock(queue_lock_);
  if (const auto known = index_.find(line); known != index_.end()) {
    ++items_[known->second].count;
    return true;
  }
  if (items_.size() >= kMaxLines) return false;
  items_.push_back({line, 1});
  index_.emplace(line, items_.size() - 1);
  return true;
}

std::vector<CLineQueue::Item> CLineQueue::Take() {
  std::vector<Item> taken;
  const CAutoLock lock(queue_lock_);
  taken.reserve(kReserved);
  taken.swap(items_);
  index_.clear();
  return taken;
}

}  // namespace qiv
