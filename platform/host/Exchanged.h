// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

namespace velor::host {

/// Gives a variable another value for a scope.
template <class T>
class [[nodiscard]] Exchanged {
 public:
  Exchanged(T& variable, T value)
      : mVariable(variable), mFormer(std::exchange(variable, std::move(value))) {}
  ~Exchanged() { mVariable = std::move(mFormer); }
  Exchanged(const Exchanged&) = delete;
  Exchanged& operator=(const Exchanged&) = delete;

 private:
  T& mVariable;
  T mFormer;
};

}  // namespace velor::host
