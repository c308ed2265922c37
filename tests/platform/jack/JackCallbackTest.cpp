// SPDX-License-Identifier: MIT
#include "platform/jack/JackCallback.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace velor::jack {
namespace {

struct Callback {
  std::atomic<bool> entered{false};
  std::atomic<bool> mayEnd{false};
  std::atomic<bool> ended{false};
  std::atomic<bool> cameBack{false};

  static int run(int result, void* self) noexcept {
    auto& callback = *static_cast<Callback*>(self);
    callback.entered = true;
    while (!callback.mayEnd) {
      std::this_thread::yield();
    }
    callback.ended = true;
    return result;
  }
  static void* thread(void* self) {
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    JackCallback<&Callback::run>::call(0, self);
    static_cast<Callback*>(self)->cameBack = true;
    return nullptr;
  }
};

TEST(JackCallback, AThreadThatIsCancelledWithinEndsAsSoonAsTheCallbackHas) {
  Callback callback;
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, nullptr, &Callback::thread, &callback), 0);
  while (!callback.entered) {
    std::this_thread::yield();
  }
  pthread_cancel(thread);
  callback.mayEnd = true;
  pthread_join(thread, nullptr);
  EXPECT_TRUE(callback.ended);
  EXPECT_FALSE(callback.cameBack);
}

}  // namespace
}  // namespace velor::jack
