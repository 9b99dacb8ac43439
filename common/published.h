// A slot through which one writer at a time hands an immutable object to any number of readers.
//
// A reader takes a counted reference without a lock and may keep it as long as it likes; a writer puts the next object
// in place without waiting for readers; an object goes with its last reader. (std::atomic<std::shared_ptr> promises the
// same, but the libraries we build with take a lock bit in it and release it unordered, which the thread sanitizer
// rightly reports.)
//
// How: one 64-bit word holds the address of a node (upper 48 bits) and the number of readers that are just copying from
// it (lower 16 bits). A reader adds itself to the word, copies the node's shared_ptr and takes itself out again. A
// writer exchanges the word and carries the readers it found there over to the node's own count; whoever brings that
// count to zero deletes the node.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace qiv {

template <typename T>
class CPublished {
 public:
  explicit CPublished(std::shared_ptr<const T> value) : state_(Pack(new Node{std::move(value)})) {}
  ~CPublished() { delete Unpack(state_.load(std::memory_order_acquire)); }
  CPublished(const CPublished&) = delete;
  CPublished& operator=(const CPublished&) = delete;

  /// Lock-free; allocates nothing.
  std::shared_ptr<const T> Load() const {
    std::uint64_t state = state_.fetch_add(1, std::memory_order_acquire) + 1;
    Node* const node = Unpack(state);
    std::shared_ptr<const T> value = node->value;
    while (Unpack(state) == node) {
      // The node cannot be freed and its address used again while this reader is counted in it.
      if (state_.compare_exchange_weak(state, state - 1, std::memory_order_release, std::memory_order_relaxed)) {
        return value;
      }
    }
    if (node->readers.fetch_sub(1, std::memory_order_acq_rel) == 1) delete node;
    return value;
  }

  void Store(std::shared_ptr<const T> value) {
    const std::uint64_t old = state_.exchange(Pack(new Node{std::move(value)}), std::memory_order_acq_rel);
    Node* const node = Unpack(old);
    const auto pending = static_cast<std::int64_t>(old & kCountMask);
    if (node->readers.fetch_add(pending, std::memory_order_acq_rel) == -pending) delete node;
  }

 private:
  static constexpr unsigned kCountBits = 16;  // more threads than that cannot be between two lines of Load
  static constexpr std::uint64_t kCountMask = (std::uint64_t{1} << kCountBits) - 1;

  struct Node {
    std::shared_ptr<const T> value;
    std::atomic<std::int64_t> readers{0};  ///< negative until the writer has carried its share over
  };

  static_assert(sizeof(void*) == 8, "the word has room for a 48-bit address");
  static std::uint64_t Pack(Node* node) { return reinterpret_cast<std::uintptr_t>(node) << kCountBits; }
  static Node* Unpack(std::uint64_t state) {
    return reinterpret_cast<Node*>(static_cast<std::uintptr_t>(state >> kCountBits));
  }

  mutable std::atomic<std::uint64_t> state_;
};

}  // namespace qiv
