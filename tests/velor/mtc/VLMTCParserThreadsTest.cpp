// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "Velor/mtc/VLMTCParser.h"
#include "platform/host/SystemHost.h"
#include "tests/velor/mtc/MTCPackets.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr unsigned kRate30 = 3;
constexpr std::uint64_t kSilence = 1'000'000'000 / 3;  // ten frames

struct Listener : VLMTCParserDelegate {
  void parserDidStopReading(VLMTCParser&) override { ++stops; }
  void parserDidReceiveFFMsg(VLMTCParser&, const SMPTETime&) override {}
  int stops = 0;
};

TEST(VLMTCParserThreads, AStreamMayReturnAtTheVeryMomentOfItsEnd) {
  host::SystemHost host;
  const auto listener = std::make_shared<Listener>();
  std::atomic<unsigned> reported{0};
  auto parser = VLMTCParser::initWithCompletionBlock(
      [&reported](const SMPTETime& time, std::uint64_t, double) {
        ++reported;
        EXPECT_EQ(time.mSeconds, time.mFrames);  // of one block, not of two
        EXPECT_EQ(time.mCounter % 3, 0U);
      });
  parser->setDelegate(listener);
  constexpr unsigned kRounds = 3;
  constexpr unsigned kBlocksAround = 200;
  const auto reader = host.startThread("reader", [&host, &parser] {
    unsigned number = 0;
    const auto addBlock = [&number, &parser] {
      number = (number + 1) % 30;
      for (const std::uint8_t piece : quarterFrames(1, 2, number, number, kRate30)) {
        parser->addPacket(ExactPacket(0, {0xF1, piece}).get());
      }
    };
    for (unsigned round = 0; round < kRounds; ++round) {
      addBlock();
      const std::uint64_t last = host.AudioGetCurrentHostTime();
      // A block may finish while the end is told, before it or after it.
      host.mach_wait_until(last + kSilence + round * kMs / 30);
      for (unsigned i = 0; i < kBlocksAround; ++i) {
        addBlock();
        parser->setDelegate(parser->delegate());
      }
    }
    host.mainQueue().after(3 * kSilence, [&host] { host.mainQueue().stop(); });
  });
  host.mainQueue().run();
  reader->join();
  EXPECT_GE(listener->stops, 1);
  // An end in between takes one block, which begins the next stream.
  EXPECT_GE(reported, kRounds * (kBlocksAround - 1));
  const std::weak_ptr<VLMTCParser> weak = parser;
  parser.reset();
  EXPECT_TRUE(weak.expired()) << "the last end was told, and nothing watches any more";
}

}  // namespace
}  // namespace velor
