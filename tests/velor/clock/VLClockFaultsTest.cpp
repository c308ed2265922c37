// SPDX-License-Identifier: MIT
// A stream with every fault that a line has, at random: whatever is passed on is
// what the sender said, at the time at which it said it.
#include <algorithm>
#include <map>
#include <random>
#include <string>

#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

constexpr unsigned kRate25 = 1;
constexpr unsigned kRate30 = 3;
constexpr std::uint64_t kPiece25 = 10 * kMs;
constexpr unsigned kFramesADay = 24 * 3600 * 25;

class VLClockFaults : public ClockFixture, public testing::WithParamInterface<std::uint64_t> {
 protected:
  bool oneIn(std::uint64_t n) { return mRandom() % n == 0; }

  void play(std::uint8_t byte) {
    mOutside->play(mSource->endpoint(), mHost.AudioGetCurrentHostTime(), {0xF1, byte});
    mHost.advance(kPiece25);
  }

  static std::string text(unsigned frame) {
    const unsigned seconds = frame / 25;
    return digits(
        at(static_cast<std::int32_t>(seconds / 3600), static_cast<std::int32_t>(seconds / 60 % 60),
           static_cast<std::int32_t>(seconds % 60), static_cast<std::int32_t>(frame % 25)));
  }

  enum class Fault { none, lost, doubled, swapped, backward, otherFormat, cut9, cut11 };

  // One block of the frame with a fault somewhere in it. A cut is in pieces of a
  // sender that goes on meanwhile.
  void playBlock(unsigned frame, Fault fault) {
    const unsigned rate = fault == Fault::otherFormat ? kRate30 : kRate25;
    const unsigned seconds = frame / 25;
    auto pieces = quarterFrames(seconds / 3600, seconds / 60 % 60, seconds % 60, frame % 25, rate);
    const std::size_t at = mRandom() % 7;
    if (fault == Fault::backward) {
      std::reverse(pieces.begin(), pieces.end());
    } else if (fault == Fault::swapped) {
      std::swap(pieces[at], pieces[at + 1]);
    }
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      if (i == at && (fault == Fault::cut9 || fault == Fault::cut11)) {
        mCut = fault == Fault::cut9 ? 9 * 4 : 11 * 4;
      }
      if (mCut > 0 || (i == at && fault == Fault::lost)) {
        mCut = std::max(0, mCut - 1);
        mHost.advance(kPiece25);
        continue;
      }
      if (pieces[i] >> 4 == 0 && rate == kRate25) {
        mSaid[mHost.AudioGetCurrentHostTime()] = frame;
      }
      play(pieces[i]);
      if (i == at && fault == Fault::doubled) {
        play(pieces[i]);
      }
    }
  }

  std::mt19937_64 mRandom{GetParam()};
  const std::shared_ptr<KVMIDIEndpoint> mSource = followSource("deck");
  int mCut = 0;
  // What the sender said, by the host time of each first piece.
  std::map<std::uint64_t, unsigned> mSaid;
};

TEST_P(VLClockFaults, NeverPassAWrongTimeOn) {
  const auto destination = addDestination("desk");
  clock().arm();
  takeSent(*destination);
  unsigned frame = 3600 * 25;
  std::size_t relayed = 0;
  for (int block = 0; block < 5000; ++block) {
    // Every fourth block has its fault, and the stream jumps whenever it likes. A
    // cut of a whole number of blocks together with a jump is what no reader can
    // tell from a stream without one.
    playBlock(frame, block % 4 == 0 ? static_cast<Fault>(1 + mRandom() % 7) : Fault::none);
    frame = oneIn(20) ? static_cast<unsigned>(mRandom() % kFramesADay) : (frame + 2) % kFramesADay;
    for (const OnWire& sent : takeSent(*destination)) {
      ASSERT_FALSE(sent.isLocate);
      const auto said = mSaid.find(sent.time - 8 * kPiece25);
      ASSERT_NE(said, mSaid.end()) << "at a time at which nothing was said";
      ASSERT_EQ(sent.digits, text((said->second + 2) % kFramesADay));
      ++relayed;
    }
  }
  EXPECT_GT(relayed, 1000U);
  EXPECT_LT(relayed, 4000U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, VLClockFaults, testing::Range<std::uint64_t>(1, 4));

}  // namespace
}  // namespace velor
