// A stack whose elements stay where they are and whose memory stays for the next ones: a walk opens and closes brackets
// as often as its text has bytes.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "engines/webshell/flow/budget.h"

namespace qiv {

/// What is taken off is as new when it is put on again only if the caller makes it so: elements are kept as they are.
template <typename T, std::size_t kBlock = 16>
class CFlowStack {
 public:
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T& operator[](std::size_t at) { return (*blocks_[at / kBlock])[at % kBlock]; }
  const T& operator[](std::size_t at) const { return (*blocks_[at / kBlock])[at % kBlock]; }
  T& back() { return *top_; }
  const T& back() const { return *top_; }

  /// The next element, as it was left or as new. Those that are there stay where they are.
  T& Push() {
    if (size_ / kBlock == blocks_.size()) blocks_.push_back(std::make_unique<Block>());
    ++size_;
    top_ = &(*this)[size_ - 1];
    return *top_;
  }
  void Pop() {
    --size_;
    if (size_ != 0) top_ = size_ % kBlock != 0 ? top_ - 1 : &(*this)[size_ - 1];
  }
  /// Takes elements off until no more than `size` are left.
  void Shrink(std::size_t size) {
    while (size_ > size) Pop();
  }

 private:
  using Block = std::array<T, kBlock>;

  std::vector<std::unique_ptr<Block>> blocks_;
  T* top_ = nullptr;
  std::size_t size_ = 0;
};

/// The same, where each element beyond the first few is paid for once, when the stack first grows to it.
template <typename T, std::size_t kBlock = 16>
class CPaidStack : public CFlowStack<T, kBlock> {
 public:
  static constexpr std::size_t kPrepaid = 64;  ///< elements, whatever the budget holds already

  explicit CPaidStack(CFlowBudget* budget) : budget_(budget) { budget_->Hold(kPrepaid * sizeof(T)); }

  /// Whether one more may be pushed; pays for it.
  bool MayPush() {
    if (this->size() < paid_) return true;
    if (!budget_->Take(sizeof(T))) return false;
    ++paid_;
    return true;
  }

 private:
  CFlowBudget* budget_;
  std::size_t paid_ = kPrepaid;
};

}  // namespace qiv
