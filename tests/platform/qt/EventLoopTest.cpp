// SPDX-License-Identifier: MIT
// What the program may rely on, whichever loop runs its main queue.
#include "platform/qt/EventLoop.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTimer>
#include <atomic>
#include <memory>
#include <stdexcept>

#include "platform/host/SystemHost.h"

namespace velor::qt {
namespace {

class MainLoopContract : public testing::TestWithParam<bool> {
 protected:
  MainLoopContract() {
    if (GetParam()) {
      mEventLoop = std::make_unique<EventLoop>(queue());
    }
  }
  host::MainQueue& queue() const { return mHost->mainQueue(); }
  host::MainLoop& loop() const {
    return mEventLoop ? *mEventLoop : static_cast<host::MainLoop&>(queue());
  }

  const std::unique_ptr<host::SystemHost> mHost = std::make_unique<host::SystemHost>();
  int mArguments = 1;
  char mName[6] = "velor";
  char* mWords[2] = {mName, nullptr};
  QCoreApplication mApplication{mArguments, mWords};
  std::unique_ptr<EventLoop> mEventLoop;
};

TEST_P(MainLoopContract, RunsWhatAnyThreadPostsUntilItIsStoppedAndThenAgain) {
  for (int round = 0; round < 2; ++round) {
    std::atomic<int> ran{0};
    const auto thread = mHost->startThread("poster", [&] {
      for (int i = 0; i < 50; ++i) {
        queue().async([&ran] { ++ran; });
      }
      loop().stop();
    });
    loop().run();
    thread->join();
    EXPECT_EQ(ran, 50);
  }
}

TEST_P(MainLoopContract, TakesTheStopThatCameBeforeAndTheExceptionOfAJob) {
  loop().stop();
  loop().run();
  queue().async([] { throw std::runtime_error("job"); });
  EXPECT_THROW(loop().run(), std::runtime_error);
  bool ran = false;
  queue().after(1'000'000, [&] {
    ran = true;
    queue().stop();
  });
  loop().run();
  EXPECT_TRUE(ran);
}

INSTANTIATE_TEST_SUITE_P(Loops, MainLoopContract, testing::Bool(),
                         [](const auto& loop) { return loop.param ? "Qt" : "MainQueue"; });

TEST(EventLoopTest, TheToolkitsEventsComeBetweenTheJobs) {
  host::SystemHost host;
  int count = 1;
  char name[] = "velor";
  char* words[] = {name, nullptr};
  const QCoreApplication application(count, words);
  EventLoop loop(host.mainQueue());
  int events = 0;
  QTimer timer;
  QObject::connect(&timer, &QTimer::timeout, [&] {
    host.mainQueue().async([&] {
      if (++events == 3) {
        loop.stop();
      }
    });
  });
  timer.start(1);
  loop.run();
  EXPECT_EQ(events, 3);
}

}  // namespace
}  // namespace velor::qt
