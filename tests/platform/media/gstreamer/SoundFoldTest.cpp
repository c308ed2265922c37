// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/SoundFold.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

namespace velor::media {
namespace {

constexpr auto kLeft = SoundSide::left;
constexpr auto kRight = SoundSide::right;
constexpr auto kBoth = SoundSide::both;

TEST(SoundFold, NoChannelIsLostAndFullScaleStaysFullScale) {
  // Front left and right, center, low, back left and right, as cinema sound has them.
  const std::vector<SoundSide> cinema{kLeft, kRight, kBoth, kBoth, kLeft, kRight};
  for (const std::uint32_t outputs : {1U, 2U, 4U, 5U}) {
    const SoundFold fold(cinema, outputs);
    std::vector<float> all(outputs);
    for (std::size_t channel = 0; channel < cinema.size(); ++channel) {
      std::array<float, 6> one{};
      one[channel] = 1;
      std::vector<float> heard(outputs);
      fold.apply(one.data(), 1, heard.data());
      EXPECT_GT(*std::ranges::max_element(heard), 0.1) << channel << " of " << outputs;
      if (outputs > 1 && cinema[channel] != kBoth) {
        EXPECT_EQ(heard[cinema[channel] == kLeft ? 1 : 0], 0) << channel << " of " << outputs;
      }
      std::ranges::transform(heard, all, all.begin(), std::plus());
    }
    EXPECT_LE(*std::ranges::max_element(all), 1.0001F) << outputs;
  }
}

}  // namespace
}  // namespace velor::media
