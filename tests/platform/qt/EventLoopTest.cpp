// SPDX-License-Identifier: MIT
#include "platform/qt/EventLoop.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <stdexcept>

#include "platform/host/SystemHost.h"

namespace velor::qt {
namespace {

class EventLoopTest : public testing::Test {
 protected:
  host::MainQueue& queue() { return mHost.mainQueue(); }

  host::SystemHost mHost;
  int mArguments = 1;
  char mName[6] = "velor";
  char* mWords[2] = {mName, nullptr};
  QCoreApplication mApplication{mArguments, mWords};
  EventLoop mLoop{queue()};
};

TEST_F(EventLoopTest, TakesAnEarlierStopAndTheExceptionOfAJob) {
  mLoop.stop();
  mLoop.run();
  queue().async([] { throw std::runtime_error("job"); });
  EXPECT_THROW(mLoop.run(), std::runtime_error);
  bool ran = false;
  queue().after(1'000'000, [&] {
    ran = true;
    queue().stop();
  });
  mLoop.run();
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace velor::qt
