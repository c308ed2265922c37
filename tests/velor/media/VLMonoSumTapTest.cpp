// SPDX-License-Identifier: MIT
#include "Velor/media/VLMonoSumTap.h"

#include <gtest/gtest.h>

#include <vector>

namespace velor {
namespace {

using Channels = std::vector<std::vector<float>>;

Channels processed(std::int32_t mode, Channels channels) {
  VLMonoSumTap tap;
  tap.setSummingMode(mode);
  std::vector<float*> pointers;
  for (auto& channel : channels) {
    pointers.push_back(channel.data());
  }
  const host::RealtimeContext realtime;
  tap.process(realtime, pointers, 2, 2);
  return channels;
}

TEST(VLMonoSumTap, OneChannelOfTheTrackGetsTheSumOverTheRootOfTheirNumberAndTheOthersNothing) {
  const Channels stereo{{0.5F, -0.25F}, {0.5F, 1.0F}};
  for (const std::int32_t mode : {0, 1}) {
    const auto summed = processed(mode, stereo);
    const auto other = static_cast<std::size_t>(1 - mode);
    EXPECT_FLOAT_EQ(summed[1 - other][0], 0.70710678F);
    EXPECT_FLOAT_EQ(summed[1 - other][1], 0.53033009F);
    EXPECT_EQ(summed[other], (std::vector<float>{0, 0}));
  }
  const auto six = processed(0, Channels(6, {1.0F, -1.0F}));
  EXPECT_FLOAT_EQ(six[0][0], 2.4494897F);  // 6 / sqrt(6)
  EXPECT_EQ(Channels(six.begin() + 1, six.end()), Channels(5, {0, 0}));
  for (const std::int32_t none : {-1, 2}) {  // no summing, and a channel beyond the track
    EXPECT_EQ(processed(none, stereo), stereo);
  }
}

}  // namespace
}  // namespace velor
