// SPDX-License-Identifier: MIT
#include "platform/jack/JackTimeBase.h"

#include <gtest/gtest.h>

#include <random>

namespace velor::jack {
namespace {

constexpr std::uint32_t kPeriod = 256;
constexpr std::uint32_t kRate = 48000;

// A server whose clock runs off by `ppm` against the host's, and whose readings
// of the host's clock jitter and are sometimes interrupted.
class Server {
 public:
  explicit Server(double ppm, std::uint32_t firstFrame = 0) : mPpm(ppm), mFrame(firstFrame) {}

  JackTimeBase::Reading next(std::mt19937& random) {
    JackTimeBase::Reading reading;
    const double start = mServerUs;
    mServerUs += kPeriod * 1e6 / kRate;
    reading.frame = mFrame;
    mFrame += kPeriod;
    reading.startUs = static_cast<std::uint64_t>(start);
    reading.nextUs = static_cast<std::uint64_t>(mServerUs);
    reading.frames = kPeriod;
    reading.sampleRate = kRate;
    const double nowUs = start + 30;
    reading.serverNowUs = static_cast<std::uint64_t>(nowUs);
    const auto host = static_cast<std::uint64_t>(hostOf(nowUs));
    const std::uint64_t interruption = random() % 10 == 0 ? 400'000 : random() % 800;
    reading.hostBefore = host - interruption;
    reading.hostAfter = host + random() % 300;
    mTrueStart = hostOf(start);
    return reading;
  }
  double trueStart() const { return mTrueStart; }

 private:
  double hostOf(double serverUs) const { return 5e12 + serverUs * 1000.0 * (1 + mPpm * 1e-6); }
  double mPpm;
  std::uint32_t mFrame;
  double mServerUs = 77e6;
  double mTrueStart = 0;
};

TEST(JackTimeBase, FollowsADriftingServerWithinATenthOfASample) {
  for (const double ppm : {0.0, 100.0, -300.0}) {
    std::mt19937 random(1);
    Server server(ppm);
    JackTimeBase base;
    for (int i = 0; i < 20000; ++i) {
      const JackTimeBase::Reading reading = server.next(random);
      const JackCycle& cycle = base.advance(reading);
      if (i > 500) {
        ASSERT_NEAR(static_cast<double>(cycle.startTime) - server.trueStart(), 0.0, 2500.0)
            << ppm << " ppm, cycle " << i;
      }
    }
  }
}

TEST(JackTimeBase, CountsFramesPastTheWrapOfTheServersCounterInOneEpochForEachRate) {
  std::mt19937 random(2);
  constexpr std::uint32_t kFirst = 0xFFFFFFFFU - 3 * kPeriod;
  Server server(0, kFirst);
  JackTimeBase base;
  const std::uint32_t epoch = base.advance(server.next(random)).epoch;
  for (std::uint64_t i = 1; i < 10; ++i) {
    const JackCycle& cycle = base.advance(server.next(random));
    EXPECT_EQ(cycle.startFrame, kFirst + i * kPeriod);
    EXPECT_EQ(cycle.epoch, epoch);
  }
  JackTimeBase::Reading faster = server.next(random);
  faster.sampleRate = 96000;
  EXPECT_NE(base.advance(faster).epoch, epoch);
}

}  // namespace
}  // namespace velor::jack
