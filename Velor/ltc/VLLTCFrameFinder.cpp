// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCFrameFinder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace velor {
namespace {

constexpr std::size_t kSyncHalfBits = 2 * kLTCSyncBits;
constexpr std::size_t kCutHalfBits = 8;  // that may be missing at the end of a sync word
constexpr int kSyncErrors = 2;           // half bits, that the rule of the code corrects

// How sure each bit must be: 4 for a clean square wave, below 0 for a wrong bit.
constexpr float kLeastMargin = 1.0F;

// The levels of the sync word, the first one on top.
constexpr std::uint32_t syncLevels() {
  std::uint32_t levels = 0;
  std::uint32_t level = 1;
  for (std::size_t i = 0; i < kLTCSyncBits; ++i) {
    const std::uint32_t bit = kLTCSyncWord >> (kLTCSyncBits - 1 - i) & 1U;
    levels = levels << 2U | level << 1U | (level ^ bit);
    level ^= bit ^ 1U;
  }
  return levels;
}

constexpr std::uint32_t reversed(std::uint32_t levels) {
  std::uint32_t result = 0;
  for (std::size_t i = 0; i < kSyncHalfBits; ++i) {
    result = result << 1U | (levels >> i & 1U);
  }
  return result;
}

constexpr std::uint32_t kForward = syncLevels();
constexpr std::uint32_t kReverse = reversed(kForward);

// In either polarity.
bool isNear(std::uint32_t levels, std::uint32_t wanted) {
  const int errors = std::popcount(levels ^ wanted);
  return std::min(errors, static_cast<int>(kSyncHalfBits) - errors) <= kSyncErrors;
}

// All of a sync word but its end, without errors.
bool isMostOfSync(std::uint32_t levels) {
  constexpr std::uint32_t kMost = (1U << (kSyncHalfBits - kCutHalfBits)) - 1U;
  const std::uint32_t wrong = (levels ^ kForward >> kCutHalfBits) & kMost;
  return wrong == 0 || wrong == kMost;
}

bool hasDigits(const VLLTCBits& bits) {
  const auto isBelow = [&bits](const LTCField& units, const LTCField& tens, std::uint32_t limit) {
    return bits.field(units) < 10 && bits.field(tens) * 10 + bits.field(units) < limit;
  };
  return isBelow(kLTCFrameUnits, kLTCFrameTens, 30) &&
         isBelow(kLTCSecondUnits, kLTCSecondTens, 60) &&
         isBelow(kLTCMinuteUnits, kLTCMinuteTens, 60) && isBelow(kLTCHourUnits, kLTCHourTens, 24);
}

// The best sums of levels up to a bit and from it on, for each level at which it begins.
using Sums = std::array<std::array<float, 2>, kLTCFrameBits + 1>;

}  // namespace

std::optional<VLLTCBits> VLLTCFrameFinder::push(const VLLTCHalfBit& halfBit) {
  std::optional<VLLTCBits> bits;
  if (halfBit.isFirst) {
    bits = takeCut();
    mCount = 0;
  }
  mHalfBits[mNumber % kKept] = halfBit;
  mSigns = mSigns << 1U | (halfBit.level > 0 ? 1U : 0U);
  ++mCount;
  mIsReverseSync[mNumber % kKept] = mCount >= kSyncHalfBits && isNear(mSigns, kReverse);
  ++mNumber;
  if (mCount > kHalfBits - kCutHalfBits && isMostOfSync(mSigns)) {
    mMostOfSync = mNumber;
  }
  if (mCount < kHalfBits) {
    return bits;
  }
  if (isNear(mSigns, kForward)) {
    bits = read({0, 0, false, mCount > kHalfBits});
    mMostOfSync = bits ? 0 : mMostOfSync;
  }
  if (!bits && mNumber == mMostOfSync + kCutHalfBits) {
    bits = takeCut();
  }
  if (!bits && mCount > kHalfBits && hasReverseSync(1)) {
    bits = read({1, 0, true, true});
  }
  return bits;
}

std::optional<VLLTCBits> VLLTCFrameFinder::finish() {
  return mCount >= kHalfBits && hasReverseSync(0) ? read({0, 0, true, false}) : takeCut();
}

std::optional<VLLTCBits> VLLTCFrameFinder::takeCut() {
  const std::uint64_t end = std::exchange(mMostOfSync, 0);
  return end != 0 && mNumber <= end + kCutHalfBits
             ? read({static_cast<std::size_t>(mNumber - end), kCutHalfBits, false, true})
             : std::nullopt;
}

bool VLLTCFrameFinder::hasReverseSync(std::size_t extra) const {
  constexpr std::size_t kToSync = kHalfBits - kSyncHalfBits;
  return mIsReverseSync[(mNumber - 1 - kToSync - extra) % kKept];
}

// The half bit beside the first bit of the frame makes sure of that bit.
std::optional<VLLTCBits> VLLTCFrameFinder::read(const Row& row) const {
  std::array<float, kHalfBits> levels{};
  float mean = 0;
  const std::size_t count = kHalfBits - row.missing;
  for (std::size_t i = 0; i < count; ++i) {
    levels[i] = back(row.newest + (row.isReverse ? i : count - 1 - i)).level;
    mean += std::fabs(levels[i]) / static_cast<float>(count);
  }
  // [0] is for a bit that begins high. It ends high for a 0 and low for a 1; the next one begins at
  // the other level.
  Sums before{};
  Sums behind{};
  if (row.hasOutside) {
    const float outside = back(row.isReverse ? row.newest - 1 : row.newest + count).level;
    before[0] = {-outside, outside};
  }
  const auto zero = [&levels](std::size_t i) { return levels[2 * i] + levels[2 * i + 1]; };
  const auto one = [&levels](std::size_t i) { return levels[2 * i] - levels[2 * i + 1]; };
  for (std::size_t i = 0; i < kLTCFrameBits; ++i) {
    before[i + 1][0] = std::max(before[i][0] + one(i), before[i][1] - zero(i));
    before[i + 1][1] = std::max(before[i][1] - one(i), before[i][0] + zero(i));
  }
  for (std::size_t i = kLTCFrameBits; i-- > 0;) {
    behind[i][0] = std::max(behind[i + 1][0] + one(i), behind[i + 1][1] + zero(i));
    behind[i][1] = std::max(behind[i + 1][1] - one(i), behind[i + 1][0] - zero(i));
  }
  VLLTCBits bits;
  std::uint32_t sync = 0;
  for (std::size_t i = 0; i < kLTCFrameBits; ++i) {
    const float asOne = std::max(before[i][0] + one(i) + behind[i + 1][0],
                                 before[i][1] - one(i) + behind[i + 1][1]);
    const float asZero = std::max(before[i][0] + zero(i) + behind[i + 1][1],
                                  before[i][1] - zero(i) + behind[i + 1][0]);
    const std::uint32_t bit = asOne > asZero ? 1 : 0;
    if (i >= kLTCFrameBits - kLTCSyncBits) {
      sync = sync << 1U | bit;
      continue;
    }
    if (!(std::fabs(asOne - asZero) > kLeastMargin * mean)) {
      return std::nullopt;
    }
    bits.word |= static_cast<std::uint64_t>(bit) << i;
  }
  const std::size_t missingBits = row.missing / 2;
  if (sync >> missingBits != std::uint32_t{kLTCSyncWord} >> missingBits || !hasDigits(bits)) {
    return std::nullopt;
  }
  bits.begin = back(row.newest + count - 1).begin;
  bits.end = bits.begin + (back(row.newest).end - bits.begin) * static_cast<double>(kHalfBits) /
                              static_cast<double>(count);
  bits.mark = bits.begin - (bits.end - bits.begin) / static_cast<double>(kHalfBits);
  bits.isReverse = row.isReverse;
  bits.isCut = row.missing > 0;
  return bits;
}

}  // namespace velor
