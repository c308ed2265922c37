// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace velor::host {

/// Many writers, one reader, one order: a value whose push ended before another push
/// began is read first, whichever threads pushed. (Queues with a lane for each writer do
/// not promise that, and a job posted after a thread was joined must not overtake the
/// last job of that thread.)
///
/// When full: `tryPush` fails and counts, so that real-time writers never
/// allocate; `push` allocates a further slot and always succeeds.
template <class T>
class Mailbox {
 public:
  /// Room for `capacity` values beside those that `push` adds.
  explicit Mailbox(std::uint32_t capacity)
      : mCapacity(capacity + 1), mSlots(std::make_unique<Node[]>(mCapacity)) {
    for (std::uint32_t i = 0; i < mCapacity; ++i) {
      mSlots[i].index = i;
      mSlots[i].nextFree.store(i + 1 < mCapacity ? i + 1 : kNone, std::memory_order_relaxed);
    }
    mFree.store(0, std::memory_order_relaxed);
    // The list always holds one node whose value has been read already.
    mTail = takeFree();
    mTail->next.store(nullptr, std::memory_order_relaxed);
    mHead.store(mTail, std::memory_order_relaxed);
  }

  ~Mailbox() {
    T value;
    while (pop(value)) {
    }
    release(mTail);
  }

  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// Any thread. Realtime-safe: yes. False when full; the value is kept.
  bool tryPush(T&& value) noexcept {
    Node* node = takeFree();
    if (node == nullptr) {
      mRefused.fetch_add(1, std::memory_order_relaxed);
      return false;
    }
    link(node, std::move(value));
    return true;
  }

  /// Any thread. Realtime-safe: no, it allocates when full.
  void push(T&& value) {
    Node* node = takeFree();
    if (node == nullptr) {
      node = new Node;
      node->index = kNone;
    }
    link(node, std::move(value));
  }

  /// The reader's thread alone. Realtime-safe: yes, unless `push` had to
  /// allocate the slot. False when nothing is there, or when the next writer has
  /// not yet linked its value in: it signals after that.
  bool pop(T& value) noexcept {
    Node* next = mTail->next.load(std::memory_order_acquire);
    if (next == nullptr) {
      return false;
    }
    value = std::move(next->value);
    release(std::exchange(mTail, next));
    return true;
  }

  /// How many values `tryPush` has refused so far.
  std::uint64_t refused() const noexcept { return mRefused.load(std::memory_order_relaxed); }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Node {
    std::atomic<Node*> next{nullptr};
    std::atomic<std::uint32_t> nextFree{kNone};
    std::uint32_t index = kNone;  // in mSlots; kNone for one from the heap
    T value{};
  };

  // The free slots are a stack of indexes, taken by any writer. The upper half
  // counts the operations, so that a slot which was taken and given back in
  // between is not mistaken for the one seen before.
  Node* takeFree() noexcept {
    std::uint64_t top = mFree.load(std::memory_order_acquire);
    for (;;) {
      const auto index = static_cast<std::uint32_t>(top);
      if (index == kNone) {
        return nullptr;
      }
      const std::uint64_t next = mSlots[index].nextFree.load(std::memory_order_relaxed);
      const std::uint64_t replacement = ((top >> 32) + 1) << 32 | next;
      if (mFree.compare_exchange_weak(top, replacement, std::memory_order_acq_rel,
                                      std::memory_order_acquire)) {
        return &mSlots[index];
      }
    }
  }

  void release(Node* node) noexcept {
    if (node->index == kNone) {
      delete node;
      return;
    }
    std::uint64_t top = mFree.load(std::memory_order_relaxed);
    for (;;) {
      node->nextFree.store(static_cast<std::uint32_t>(top), std::memory_order_relaxed);
      const std::uint64_t replacement = ((top >> 32) + 1) << 32 | node->index;
      if (mFree.compare_exchange_weak(top, replacement, std::memory_order_acq_rel,
                                      std::memory_order_relaxed)) {
        return;
      }
    }
  }

  void link(Node* node, T&& value) noexcept {
    node->value = std::move(value);
    node->next.store(nullptr, std::memory_order_relaxed);
    Node* before = mHead.exchange(node, std::memory_order_acq_rel);
    before->next.store(node, std::memory_order_release);
  }

  const std::uint32_t mCapacity;
  const std::unique_ptr<Node[]> mSlots;
  alignas(64) std::atomic<std::uint64_t> mFree{0};
  alignas(64) std::atomic<Node*> mHead{nullptr};
  alignas(64) Node* mTail = nullptr;  // the reader's
  std::atomic<std::uint64_t> mRefused{0};
};

}  // namespace velor::host
