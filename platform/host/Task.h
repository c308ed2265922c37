// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

namespace velor::host {

/// A move-only job without arguments. A callable of up to kInlineBytes is held
/// in place, so that a real-time thread can post it without allocation; a
/// larger one goes to the heap.
class Task {
 public:
  static constexpr std::size_t kInlineBytes = 96;

  template <class F>
  static constexpr bool fitsInline =
      sizeof(F) <= kInlineBytes &&
      alignof(F) <= alignof(std::max_align_t) && std::is_nothrow_move_constructible_v<F>;

  Task() noexcept = default;

  template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, Task>>>
  Task(F&& callable) {  // NOLINT(google-explicit-constructor): any callable is a task
    using Callable = std::decay_t<F>;
    if constexpr (fitsInline<Callable>) {
      ::new (static_cast<void*>(mStorage)) Callable(std::forward<F>(callable));
      mOperations = &kInlineOperations<Callable>;
    } else {
      ::new (static_cast<void*>(mStorage)) Callable*(new Callable(std::forward<F>(callable)));
      mOperations = &kHeapOperations<Callable>;
    }
  }

  Task(Task&& other) noexcept { take(other); }
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      reset();
      take(other);
    }
    return *this;
  }
  ~Task() { reset(); }

  explicit operator bool() const noexcept { return mOperations != nullptr; }
  void operator()() { mOperations->call(mStorage); }

  void reset() noexcept {
    if (mOperations != nullptr) {
      std::exchange(mOperations, nullptr)->destroy(mStorage);
    }
  }

 private:
  struct Operations {
    void (*call)(void*);
    void (*move)(void* from, void* to) noexcept;
    void (*destroy)(void*) noexcept;
  };

  template <class C>
  static constexpr Operations kInlineOperations{
      [](void* storage) { std::invoke(*static_cast<C*>(storage)); },
      [](void* from, void* to) noexcept {
        ::new (to) C(std::move(*static_cast<C*>(from)));
        static_cast<C*>(from)->~C();
      },
      [](void* storage) noexcept { static_cast<C*>(storage)->~C(); }};

  template <class C>
  static constexpr Operations kHeapOperations{
      [](void* storage) { std::invoke(**static_cast<C**>(storage)); },
      [](void* from, void* to) noexcept { ::new (to) C*(*static_cast<C**>(from)); },
      [](void* storage) noexcept { delete *static_cast<C**>(storage); }};

  void take(Task& other) noexcept {
    mOperations = std::exchange(other.mOperations, nullptr);
    if (mOperations != nullptr) {
      mOperations->move(other.mStorage, mStorage);
    }
  }

  alignas(std::max_align_t) std::byte mStorage[kInlineBytes];
  const Operations* mOperations = nullptr;
};

}  // namespace velor::host
