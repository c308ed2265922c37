// SPDX-License-Identifier: MIT
// What the command line cannot do while the clock runs, on a real server: the
// clock in this process, the recorder a client of its own.
#include <gtest/gtest.h>

#include <memory>

#include "tests/system/ClockOnJack.h"
#include "tests/system/MTCStream.h"

namespace velor::test {
namespace {

TEST_F(ClockOnJack, AClockThatStandsLocatesItsReceiversAndSoDoesTheNextOneAdded) {
  enable("Recorder:in");
  ASSERT_TRUE(waitFor(3, [this] { return stream().fullFrames.size() == 1; }));
  clock().setSmpteOffset(timeOf(0, 0, 1, 0));
  clock().setTime(timeOf(17, 2, 3, 4));
  ASSERT_TRUE(waitFor(3, [this] { return stream().fullFrames.size() == 2; }));
  // 25 frames a second is rate code 1; a locate goes out with the offset.
  EXPECT_EQ(stream().fullFrames[1],
            (std::vector<std::uint8_t>{0xF0, 0x7F, 0x7F, 1, 1, 0x20 | 17, 2, 4, 4, 0xF7}));
  enable("Recorder:second");
  // A destination that is added gets the time without it.
  ASSERT_TRUE(waitFor(3, [this] { return stream(1).fullFrames.size() == 1; }));
  EXPECT_EQ(stream(1).fullFrames[0],
            (std::vector<std::uint8_t>{0xF0, 0x7F, 0x7F, 1, 1, 0x20 | 17, 2, 3, 4, 0xF7}));
}

TEST_F(ClockOnJack, ARateChangeWhileRunningMovesTheBlocksAndLosesNone) {
  enable("Recorder:in");
  clock().start();
  run(2);
  const std::size_t before = stream().blocks.size();
  clock().setPlayRatePercent(2);
  run(4);
  clock().stop();
  run(0.4);
  const Stream all = stream();
  EXPECT_EQ(all.faults, 0) << all.fault;
  const WireFormat& format = wireFormat("25");
  for (std::size_t i = 1; i < all.blocks.size(); ++i) {
    EXPECT_EQ(all.blocks[i].label.text(),
              next(next(all.blocks[i - 1].label, format), format).text());
  }
  // The pieces of a block keep the nominal spacing; the blocks come 2 % sooner.
  EXPECT_EQ(gridOf(all.blocks, format, 48000).worstOffSpacing, 0.0);
  const std::vector<Block> fast(all.blocks.begin() + static_cast<std::ptrdiff_t>(before) + 3,
                                all.blocks.end());
  ASSERT_GE(fast.size(), 40U);
  const Grid grid = gridOf(fast, format, 48000, 1.02);
  // A wake-up that comes late moves one block, and says nothing of the rate.
  const auto half = grid.blockErrors.begin() + static_cast<std::ptrdiff_t>(fast.size() / 2);
  const double wander = quantile({half, grid.blockErrors.end()}, 0.5) -
                        quantile({grid.blockErrors.begin(), half}, 0.5);
  // A fourth of a percent: cycles that the server loses count as well.
  EXPECT_NEAR(wander / (static_cast<double>(fast.size()) / 2), 0.0, 10.0);
}

TEST_F(ClockOnJack, AnOffsetThatChangesWhileRunningIsInTheNextBlock) {
  enable("Recorder:in");
  clock().start();
  run(1);
  const std::size_t before = stream().blocks.size();
  clock().setSmpteOffset(timeOf(1, 0, 0, 0));
  run(1);
  const Stream all = stream();
  EXPECT_EQ(all.faults, 0) << all.fault;
  ASSERT_GT(all.blocks.size(), before + 5);
  EXPECT_EQ(all.blocks.front().label.hours, 0);
  EXPECT_EQ(all.blocks.back().label.hours, 1);
  int changes = 0;
  for (std::size_t i = 1; i < all.blocks.size(); ++i) {
    changes += all.blocks[i].label.hours != all.blocks[i - 1].label.hours ? 1 : 0;
  }
  EXPECT_EQ(changes, 1);
}

TEST_F(ClockOnJack, ADestinationThatGoesAndComesBackIsSentToAgain) {
  auto desk = std::make_unique<JackPeer>("Desk");
  desk->addInput("in");
  desk->activate();
  ASSERT_TRUE(waitFor(3, [this] {
    mHost->mainQueue().drainPending();
    std::string error;
    return VLEndpointNamed("Desk:in", KVMIDICore::sharedCore().destinations(), "destination",
                           error) != nullptr;
  }));
  enable("Desk:in");
  enable("Recorder:in");
  clock().start();
  run(1);
  EXPECT_GT(readStream(desk->recorded(), 0).blocks.size(), 5U);
  desk.reset();
  run(1);
  desk = std::make_unique<JackPeer>("Desk");
  desk->addInput("in");
  desk->activate();
  run(1.5);
  EXPECT_GT(readStream(desk->recorded(), 0).blocks.size(), 5U);
  // The one that stayed has seen nothing of it.
  const Stream other = stream();
  EXPECT_EQ(other.faults, 0) << other.fault;
  EXPECT_GE(other.blocks.size(), 35U);
}

}  // namespace
}  // namespace velor::test
