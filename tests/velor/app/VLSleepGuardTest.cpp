// SPDX-License-Identifier: MIT
#include "Velor/app/VLSleepGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/SimulatedSleepInhibitor.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VLSleepGuardTest : public AppFixture {
 protected:
  static constexpr const char* kInhibit = "inhibit: Timecode is running";

  VLSleepGuardTest() {
    power::setSleepInhibitor(&mInhibitor);
    launch();
  }
  ~VLSleepGuardTest() override {
    end();
    power::setSleepInhibitor(nullptr);
  }

  power::SimulatedSleepInhibitor mInhibitor;
};

TEST_F(VLSleepGuardTest, InhibitsWhileTheClockRunsByItselfOrFollows) {
  EXPECT_THAT(mInhibitor.takeCalls(), IsEmpty());
  app().play();
  mHost.advance(10 * kFrame25);
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre(kInhibit));
  app().stop();
  mHost.advance(host::kNsPerSecond);
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre("release"));

  const auto desk = addSource("Desk");
  app().setSyncSource(desk);
  app().arm();
  mHost.settle();
  EXPECT_THAT(mInhibitor.takeCalls(), IsEmpty());  // it waits
  playBlocks(*desk, 10, 0);
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre(kInhibit));
  mHost.advance(2 * host::kNsPerSecond);
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre("release"));
}

TEST_F(VLSleepGuardTest, InhibitsWhileAGeneratorGeneratesAndUntilTheLastOneEnds) {
  const auto one = created();
  const auto other = created();
  mHost.settle();
  EXPECT_THAT(mInhibitor.takeCalls(), IsEmpty());
  inputOf(*one)->setEnable(true);
  inputOf(*other)->setEnable(true);
  app().play();
  mHost.advance(host::kNsPerSecond);
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre(kInhibit));
  clock().stop();
  mHost.settle();
  EXPECT_THAT(mInhibitor.takeCalls(), IsEmpty());  // what was sent ahead goes out
  mHost.advance(2 * host::kNsPerSecond);
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre("release"));

  app().play();
  mHost.advance(host::kNsPerSecond);
  end();
  EXPECT_THAT(mInhibitor.takeCalls(), ElementsAre(kInhibit, "release"));
}

}  // namespace
}  // namespace velor
