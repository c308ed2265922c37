// SPDX-License-Identifier: MIT
#include "Velor/mtc/VLMTCParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "kvtimecode/SMPTEString.h"
#include "sim/SimulatedHost.h"
#include "tests/velor/mtc/MTCPackets.h"

namespace velor {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kMs = 1'000'000;
// A block at 25 frames per second.
constexpr std::uint64_t kBlock = 80 * kMs;
constexpr unsigned kRate25 = 1;

const Bytes kFullFrame = {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x61, 0x02, 0x03, 0x04, 0xF7};
const Bytes kToken = {0xF0, 0x7F, 0x7F, 0x04, 0x05, 0x03, 0x04, 0x00, 0x39, 0x38,
                      0x22, 0x71, 0x11, 0x61, 0x01, 0x02, 0x03, 0x04, 0xF7};

struct Listener : VLMTCParserDelegate {
  void parserDidStopReading(VLMTCParser& parser) override {
    EXPECT_TRUE(host::current().mainQueue().isCurrent());
    stopped.push_back(host::current().AudioGetCurrentHostTime());
    if (whileStopping) {
      std::exchange(whileStopping, nullptr)(parser);
    }
  }
  void parserDidReceiveFFMsg(VLMTCParser&, const SMPTETime& time) override {
    fullFrames.push_back(time);
  }
  void parserDidReceiveLoopToken(VLMTCParser&, std::uint32_t token) override {
    tokens.push_back(token);
  }

  std::vector<std::uint64_t> stopped;
  std::vector<SMPTETime> fullFrames;
  std::vector<std::uint32_t> tokens;
  std::function<void(VLMTCParser&)> whileStopping;
};

struct Block {
  SMPTETime time;
  std::uint64_t timestamp;
  double deviation;
};

class VLMTCParserTest : public testing::Test {
 protected:
  VLMTCParserTest() {
    mParser->setDelegate(mListener);
    mBlocks.reserve(1000);
  }
  ~VLMTCParserTest() override { endStream(); }

  void endStream() { mHost.advance(1000 * kMs); }

  void add(std::uint64_t time, const Bytes& bytes) {
    mParser->addPacket(ExactPacket(time, bytes).get());
  }
  void addPiece(std::uint64_t time, std::uint8_t second) { add(time, {0xF1, second}); }

  static std::array<std::uint8_t, 8> pieces(unsigned number, unsigned rate = kRate25) {
    return quarterFrames(10, 20, number / 12, number % 12 * 2, rate);
  }
  // One with the second and frame of its number, at `time`.
  void addBlock(unsigned number, std::uint64_t time, std::uint64_t period = kBlock,
                unsigned rate = kRate25) {
    for (const std::uint8_t piece : pieces(number, rate)) {
      addPiece(time, piece);
      time += period / 8;
    }
  }
  std::vector<unsigned> numbers() const {
    std::vector<unsigned> result;
    for (const Block& block : mBlocks) {
      EXPECT_EQ(block.time.mHours, 10);
      EXPECT_EQ(block.time.mMinutes, 20);
      EXPECT_EQ(block.time.mFlags, kSMPTETimeValid | kSMPTETimeRunning);
      result.push_back(static_cast<unsigned>(block.time.mSeconds * 12 + block.time.mFrames / 2));
    }
    return result;
  }

  // Blocks 0 to 7 as bytes, damaged by `damage`, which sees those of block 3.
  template <class F>
  std::vector<unsigned> numbersReadWith(const F& damage) {
    mBlocks.clear();
    for (unsigned number = 0; number < 8; ++number) {
      const auto whole = pieces(number);
      Bytes bytes(whole.begin(), whole.end());
      if (number == 3) {
        damage(bytes);
      }
      for (const std::uint8_t byte : bytes) {
        add(0, {0xF2, byte});  // no quarter frame
        addPiece(mStart + number * kBlock + byte / 16 * kBlock / 8, byte);
      }
    }
    endStream();
    return numbers();
  }

  host::SimulatedHost mHost;
  const std::uint64_t mStart = 3600'000 * kMs;
  std::vector<Block> mBlocks;
  std::shared_ptr<Listener> mListener = std::make_shared<Listener>();
  std::shared_ptr<VLMTCParser> mParser = VLMTCParser::initWithCompletionBlock(
      [this](const SMPTETime& time, std::uint64_t timestamp, double deviation) {
        mBlocks.push_back({time, timestamp, deviation});
      });
};

TEST_F(VLMTCParserTest, ASteadyDeviationIsReachedQuicklyThenSlowly) {
  for (const double d : {0.01, -0.03, 0.049}) {
    mBlocks.clear();
    const auto period = static_cast<std::uint64_t>(80e6 * (1 - d));
    for (unsigned number = 0; number < 9; ++number) {
      addBlock(number, mStart + number * period, period);
    }
    ASSERT_EQ(mBlocks.size(), 8U);
    const double expected[] = {0.7, 0.91, 0.973, 0.9757, 0.97813, 0.980317};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
      EXPECT_NEAR(mBlocks[i].deviation, expected[i] * d, 1e-9) << "block " << i;
    }
    endStream();  // and the next stream begins at 0 again
  }
}

TEST_F(VLMTCParserTest, AnImpossibleSpeedLeavesTheAverageAlone) {
  std::uint64_t time = mStart;
  unsigned number = 0;
  const auto next = [&](double factor) {
    time += static_cast<std::uint64_t>(80e6 * factor);
    addBlock(number++, time);
    return mBlocks.empty() ? 0.0 : mBlocks.back().deviation;
  };
  next(1);
  const double before = next(0.98);
  EXPECT_NEAR(before, 0.7 * 0.02, 1e-9);
  for (const double factor : {1.0501, 0.9499, 2.0, 0.0}) {
    EXPECT_EQ(next(factor), before) << factor;
  }
  EXPECT_NEAR(next(1.0499), 0.1 * -0.0499 + 0.9 * before, 1e-9);
}

TEST_F(VLMTCParserTest, ADamagedBlockIsLostAloneAndWithItsLastPieceTheNextOneToo) {
  const std::vector<unsigned> all = {1, 2, 3, 4, 5, 6, 7};
  const std::vector<unsigned> one = {1, 2, 4, 5, 6, 7};
  const std::vector<unsigned> two = {1, 2, 5, 6, 7};
  for (std::ptrdiff_t at = 0; at < 8; ++at) {
    SCOPED_TRACE(at);
    const bool isLast = at == 7;
    EXPECT_EQ(numbersReadWith([at](Bytes& bytes) { bytes.erase(bytes.begin() + at); }),
              isLast ? two : one);
    for (const Block& block : mBlocks) {
      EXPECT_NEAR(block.deviation, 0, 1e-12) << "a gap is no speed";
    }
    const auto twice = [at](Bytes& bytes) {
      bytes.insert(bytes.begin() + at, bytes[static_cast<std::size_t>(at)]);
    };
    EXPECT_EQ(numbersReadWith(twice), isLast ? all : one);
    if (!isLast) {
      const auto swap = [at](Bytes& bytes) {
        std::swap(*(bytes.begin() + at), *(bytes.begin() + at + 1));
      };
      EXPECT_EQ(numbersReadWith(swap), one);
    }
  }
  const auto reverse = [](Bytes& bytes) { std::reverse(bytes.begin(), bytes.end()); };
  EXPECT_EQ(numbersReadWith(reverse), two);
}

TEST_F(VLMTCParserTest, TenFramesOfSilenceEndAStreamAndTheNextOneStartsAgain) {
  const std::uint64_t start = mHost.AudioGetCurrentHostTime();
  for (unsigned number = 0; number < 10; ++number) {
    // Faster by 2 % than nominal.
    addBlock(number, mStart + number * kBlock / 50 * 49);
    mHost.advance(kBlock);
  }
  const std::uint64_t last = start + 9 * kBlock;
  mHost.advance(320 * kMs - 1);
  EXPECT_TRUE(mListener->stopped.empty());
  mHost.advance(1);
  EXPECT_EQ(mListener->stopped, std::vector{last + 400 * kMs});
  EXPECT_NEAR(mBlocks.back().deviation, 0.02, 0.001);

  mBlocks.clear();
  // Also when its times follow those of the former one at a speed that could be.
  const std::uint64_t again = mStart + 10 * kBlock / 50 * 49;
  addBlock(0, again);
  EXPECT_TRUE(mBlocks.empty());
  addBlock(1, again + kBlock);
  ASSERT_EQ(mBlocks.size(), 1U);
  EXPECT_EQ(mBlocks[0].time.mCounter, 3U);
  EXPECT_NEAR(mBlocks[0].deviation, 0, 1e-12);
  endStream();
  EXPECT_EQ(mListener->stopped.size(), 2U);
}

TEST_F(VLMTCParserTest, RateCodesFoldToFourFormatsAndTheSilenceThatEndsAStreamIsOfItsFirst) {
  const struct {
    unsigned rate;
    std::uint32_t type;
    double framesPerSecond;
  } cases[] = {{0, kSMPTETimeType24, 24},
               {1, kSMPTETimeType25, 25},
               {2, kSMPTETimeType2997Drop, 29.97},
               {3, kSMPTETimeType30, 30}};
  for (const auto& [rate, type, framesPerSecond] : cases) {
    mListener->stopped.clear();
    addBlock(0, mStart, kBlock, rate);
    addBlock(1, mStart + kBlock, kBlock, rate);
    EXPECT_EQ(mBlocks.back().time.mType, type);
    // A reserved bit keeps the format of before.
    addBlock(2, mStart + 2 * kBlock, kBlock, 4 + (3 - rate));
    EXPECT_EQ(mBlocks.back().time.mType, type);
    EXPECT_EQ(mBlocks.back().time.mHours, 10);
    addBlock(3, mStart + 3 * kBlock, kBlock, 3 - rate);
    const std::uint64_t last = mHost.AudioGetCurrentHostTime();
    endStream();
    ASSERT_EQ(mListener->stopped.size(), 1U);
    EXPECT_NEAR(static_cast<double>(mListener->stopped[0] - last), 1e10 / framesPerSecond, 2);
  }
}

TEST_F(VLMTCParserTest, ARateCodeThatFormatsShareStandsForTheOneThatIsExpected) {
  const struct {
    std::uint32_t expected;
    unsigned rate;
    double framesPerSecond;
  } cases[] = {{kSMPTETimeType2398, 0, 24 / 1.001},
               {kSMPTETimeType30Drop, 2, 30},
               {kSMPTETimeType2997, 3, 29.97}};
  for (const auto& [expected, rate, framesPerSecond] : cases) {
    mParser->setExpectedType(expected);
    const auto block = static_cast<std::uint64_t>(2e9 / framesPerSecond);
    for (unsigned number = 0; number < 3; ++number) {
      addBlock(number, mStart + number * block, block, rate);
    }
    EXPECT_EQ(mBlocks.back().time.mType, expected);
    EXPECT_NEAR(mBlocks.back().deviation, 0, 1e-6);
    endStream();
  }
  add(mStart, kFullFrame);  // of 30
  EXPECT_EQ(mListener->fullFrames.back().mType, kSMPTETimeType2997);
  // One of another code is read as ever.
  addBlock(0, mStart);
  addBlock(1, mStart + kBlock);
  EXPECT_EQ(mBlocks.back().time.mType, kSMPTETimeType25);
}

TEST_F(VLMTCParserTest, ABlockThatSilenceInterruptedGoesOnAfterIt) {
  addBlock(0, mStart);
  addBlock(1, mStart + kBlock);
  const auto interrupted = pieces(2);
  addPiece(mStart + 2 * kBlock, interrupted[0]);
  endStream();
  mBlocks.clear();
  for (std::size_t i = 1; i < 8; ++i) {
    addPiece(2 * mStart, interrupted[i]);
  }
  addBlock(3, 2 * mStart);
  EXPECT_EQ(numbers(), std::vector<unsigned>{3});
  EXPECT_EQ(mBlocks[0].time.mCounter, 3U);
}

TEST_F(VLMTCParserTest, AStreamThatReturnsWhileItsEndIsReportedEndsOnceMore) {
  addBlock(0, mStart);
  mListener->whileStopping = [this](VLMTCParser&) {
    addBlock(1, mStart + kBlock);
    addBlock(2, mStart + 2 * kBlock);
  };
  endStream();
  EXPECT_EQ(mListener->stopped.size(), 1U);
  EXPECT_EQ(numbers(), (std::vector<unsigned>{1, 2}));
  addBlock(3, mStart + 3 * kBlock);  // the first of the new stream
  addBlock(4, mStart + 4 * kBlock);
  EXPECT_EQ(numbers(), (std::vector<unsigned>{1, 2, 4}));
  endStream();
  EXPECT_EQ(mListener->stopped.size(), 2U);
}

TEST_F(VLMTCParserTest, WhatWasGatheredBeforeAClearCounts) {
  addBlock(0, mStart);
  addPiece(mStart + kBlock, 0x05);
  mParser->clear();
  addBlock(1, mStart + kBlock);
  EXPECT_EQ(mBlocks.at(0).time.mFrames, 5 + 2);
}

TEST_F(VLMTCParserTest, FullFramesLocateAndDamagedOnesMakeTheTimeInvalidOrLeaveItAlone) {
  Bytes drop = kFullFrame;
  drop[5] = 0x40 + 23;
  add(0, kFullFrame);
  add(0, drop);
  ASSERT_EQ(mListener->fullFrames.size(), 2U);
  const SMPTETime& located = mListener->fullFrames[0];
  EXPECT_EQ(stringFromSMPTETime(located), "01:02:03:04");
  EXPECT_EQ(located.mType, kSMPTETimeType30);
  EXPECT_EQ(located.mFlags, kSMPTETimeValid);
  EXPECT_EQ(located.mCounter, 0U);
  EXPECT_EQ(stringFromSMPTETime(mListener->fullFrames[1]), "23:02:03;04");
  mListener->fullFrames.clear();

  const auto statusAndFlags = [](const Bytes& bytes) {
    SMPTETime time;
    time.mFlags = 3;
    time.mMinutes = 44;
    const std::int32_t status = mtc_smpte_time_from_full_frame(ExactPacket(0, bytes).get(), &time);
    EXPECT_EQ(time.mMinutes, 44);
    return std::pair(status, time.mFlags);
  };
  using Seen = std::pair<std::int32_t, std::uint32_t>;
  for (const std::size_t byte : {0U, 1U, 2U, 3U, 4U, 9U}) {
    Bytes damaged = kFullFrame;
    damaged[byte] ^= 0x08;
    EXPECT_EQ(statusAndFlags(damaged), Seen(-12089, 0)) << "byte " << byte;
  }
  Bytes longer = kFullFrame;
  longer.push_back(0xF7);
  EXPECT_EQ(statusAndFlags(longer), Seen(-12089, 0));
  for (const auto& [byte, value] : {std::pair(5, 0xE1), {5, 0x81}, {6, 60}, {7, 60}, {7, 0xFF}}) {
    Bytes damaged = kFullFrame;
    damaged[static_cast<std::size_t>(byte)] = static_cast<std::uint8_t>(value);
    EXPECT_EQ(statusAndFlags(damaged), Seen(-12089, 3)) << "byte " << byte;
    add(0, damaged);
  }
  EXPECT_TRUE(mListener->fullFrames.empty());
}

TEST_F(VLMTCParserTest, TokensAreReportedWhateverTheirBitsAndDamagedOnesAreNot) {
  Bytes highBits = kToken;
  highBits[14] = 0xFE;
  add(0, highBits);
  EXPECT_EQ(mListener->tokens, std::vector<std::uint32_t>{0xFE020304});
  mListener->tokens.clear();
  for (const std::size_t byte : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 13U, 18U}) {
    Bytes damaged = kToken;
    damaged[byte] ^= 0x10;
    add(0, damaged);
  }
  Bytes longer = kToken;
  longer.push_back(0xF7);
  add(0, longer);
  EXPECT_TRUE(mListener->tokens.empty());
}

TEST_F(VLMTCParserTest, AParserWithoutAnOwnerLivesUntilItsStreamHasEnded) {
  const std::weak_ptr<VLMTCParser> weak = mParser;
  addBlock(0, mStart);
  mParser.reset();
  mHost.advance(400 * kMs - 1);
  EXPECT_FALSE(weak.expired());
  EXPECT_TRUE(mListener->stopped.empty());
  mHost.advance(1);
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(mListener->stopped.size(), 1U);
}

}  // namespace
}  // namespace velor
