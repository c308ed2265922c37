// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <utility>

namespace velor::host {

/// Lets jobs and delegates refer weakly to an object that no shared_ptr owns: a member of
/// the object, with which all those references end. The object ends on the queue of its
/// jobs, so that none is running then.
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

  /// A job that makes `call(self)`, and nothing once the object has ended.
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
