// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>

#include <type_traits>

namespace velor::jack {

/// `Function` as a library may call it that ends its threads by cancelling them at
/// any instruction, as jackd's does with a client that is closed while its server
/// is dead or late. Within it the thread is not cancelled: that would leave locks
/// held for ever, or end the program at the first `noexcept` on the stack. The
/// cancellation takes effect as soon as the function has returned.
template <auto Function>
struct JackCallback {
  // Nothing here has to be cleaned up, by the sanitizers' instrumentation either: the
  // few instructions where the thread may be cancelled have to let the unwinding pass.
  template <typename... Args>
  __attribute__((no_sanitize("thread", "address"))) static auto call(Args... args)
      -> decltype(Function(args...)) {
    int state = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    if constexpr (std::is_void_v<decltype(Function(args...))>) {
      run(args...);
      pthread_setcancelstate(state, nullptr);
    } else {
      const auto result = run(args...);
      pthread_setcancelstate(state, nullptr);
      return result;
    }
  }

 private:
  template <typename... Args>
  [[gnu::noinline]] static auto run(Args... args) {
    return Function(args...);
  }
};

}  // namespace velor::jack
