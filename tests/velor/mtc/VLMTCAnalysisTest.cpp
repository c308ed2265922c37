// SPDX-License-Identifier: MIT
#include "Velor/mtc/VLMTCAnalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace velor {
namespace {

struct Message {
  std::uint8_t data;
  double seconds;
};

// Blocks of 25 frames per second, the sender `ppm` fast.
std::vector<Message> stream(std::size_t blocks, double ppm = 0) {
  std::vector<Message> messages;
  for (std::size_t i = 0; i < 8 * blocks; ++i) {
    const std::size_t frame = i / 8 * 2;
    const std::array<std::size_t, 4> fields = {frame % 25, frame / 25 % 60, frame / 1500, 1 + 0x20};
    const std::size_t nibble = fields[i % 8 / 2] >> (i % 2 == 0 ? 0 : 4) & 0xF;
    messages.push_back({static_cast<std::uint8_t>(i % 8 << 4 | nibble),
                        static_cast<double>(i) / 100 / (1 + ppm * 1e-6)});
  }
  return messages;
}

VLMTCReport analysed(const std::vector<Message>& messages) {
  VLMTCAnalysis analysis;
  for (const Message& message : messages) {
    const std::array<std::uint8_t, 2> bytes = {0xF1, message.data};
    analysis.add(bytes.data(), bytes.size(),
                 1'000'000'000 + static_cast<std::uint64_t>(message.seconds * 1e9));
  }
  return analysis.report();
}

TEST(VLMTCAnalysis, RateSpacingAndJitterAreMeasured) {
  auto messages = stream(500, 42);
  const VLMTCReport even = analysed(messages);
  EXPECT_EQ(even.blocks, 500U);
  EXPECT_EQ(even.format, kSMPTETimeType25);
  EXPECT_EQ(even.first.mHours, 1);
  EXPECT_EQ(even.last.mSeconds, 39);
  EXPECT_NEAR(even.deviation, 42, 0.1);
  EXPECT_LT(even.jitterPeak, 1e-8);
  EXPECT_EQ(even.missing + even.outOfOrder + even.blocksOutOfOrder + even.stops, 0U);
  EXPECT_TRUE(even.verdict().starts_with("good")) << even.verdict();

  std::mt19937 random(1);
  std::uniform_real_distribution<double> late(0, 0.002);
  std::for_each(messages.begin(), messages.end(),
                [&](Message& message) { message.seconds += late(random); });
  const VLMTCReport shaken = analysed(messages);
  EXPECT_NEAR(shaken.jitter, 0.002 / 3.4641, 2e-5);
  EXPECT_NEAR(shaken.jitterPeak, 0.001, 3e-4);
  EXPECT_NEAR(shaken.deviation, 42, 3 * shaken.uncertainty);
  EXPECT_NEAR(shaken.longest, 0.012, 2e-4);
}

// As from a machine that is overloaded: a wait of 120 ms, then the twelve that are due at once.
TEST(VLMTCAnalysis, LateQuarterFramesAreNotMissing) {
  auto messages = stream(100);
  for (std::size_t i = 200; i < messages.size(); ++i) {
    messages[i].seconds = messages[std::min(i / 12 * 12 + 11, messages.size() - 1)].seconds;
  }
  const VLMTCReport bunched = analysed(messages);
  EXPECT_EQ(bunched.missing + bunched.outOfOrder + bunched.stops, 0U);
  EXPECT_NEAR(bunched.rate, 25, 0.5);
}

TEST(VLMTCAnalysis, MissingQuarterFramesStopsJumpsAndReverseAreDistinguished) {
  auto messages = stream(100);
  messages.erase(messages.begin() + 403);                          // one
  messages.erase(messages.begin() + 600, messages.begin() + 609);  // a block and one
  const VLMTCReport holed = analysed(messages);
  EXPECT_EQ(holed.missing, 10U);
  EXPECT_EQ(holed.outOfOrder, 0U);
  EXPECT_NEAR(holed.deviation, 0, 0.1);

  messages = stream(100);
  messages.erase(messages.begin() + 400, messages.begin() + 480);  // 0.8 s
  const VLMTCReport stopped = analysed(messages);
  EXPECT_EQ(stopped.stops, 1U);
  EXPECT_EQ(stopped.missing, 0U);

  messages = stream(100);
  const auto jumped = stream(200);
  for (std::size_t i = 400; i < 800; ++i) {
    messages[i].data = jumped[i + 800].data;
  }
  const VLMTCReport jump = analysed(messages);
  EXPECT_EQ(jump.blocksOutOfOrder, 1U);
  EXPECT_EQ(jump.missing, 0U);
  ASSERT_FALSE(jump.events.empty());
  EXPECT_EQ(jump.events[0].behind.mSeconds, 12);

  messages = stream(100);
  for (std::size_t i = 0; i < 800; ++i) {
    messages[i].data = stream(100)[799 - i].data;
  }
  const VLMTCReport reverse = analysed(messages);
  EXPECT_GT(reverse.reverse, 790U);
  EXPECT_EQ(reverse.blocksOutOfOrder, 0U);
  EXPECT_EQ(reverse.missing, 0U);
}

}  // namespace
}  // namespace velor
