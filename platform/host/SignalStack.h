// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace velor::host {

/// A stack for the signal handlers of the thread that makes it, so that the report of a crash
/// can be written when the thread has used up its own. Destroyed by the same thread. Does
/// nothing on a thread that has one already, such as that of a sanitizer.
/// Realtime-safe: no.
class SignalStack {
 public:
  SignalStack() noexcept;
  ~SignalStack();
  SignalStack(const SignalStack&) = delete;
  SignalStack& operator=(const SignalStack&) = delete;

 private:
  void* mMemory = nullptr;
  std::size_t mBytes = 0;
};

}  // namespace velor::host
