// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <utility>

namespace velor::host {

/// A member of an object that no shared_ptr owns: jobs and delegates refer weakly to the
/// object through it, and those references end with the object. Destroy the object on the
/// queue of its jobs, so that none runs meanwhile.
template <class T>
class WeakSelf {
 public:
  explicit WeakSelf(T* self) : mSelf(self, [](T*) {}) {}

  /// For a delegate, which its receiver holds weakly.
  // NOLINTBEGIN(google-explicit-constructor)
  template <class Base>
  operator std::weak_ptr<Base>() const {
    return mSelf;
  }
  template <class Base>
  operator std::shared_ptr<Base>() const {
    return mSelf;
  }
  // NOLINTEND(google-explicit-constructor)

  /// A job that makes `call(self)`; it does nothing once the object has ended.
  template <class Call>
  auto job(Call call) const {
    return [weak = std::weak_ptr<T>(mSelf), call = std::move(call)]() mutable {
      if (const auto self = weak.lock()) {
        call(*self);
      }
    };
  }

 private:
  const std::shared_ptr<T> mSelf;
};

}  // namespace velor::host
