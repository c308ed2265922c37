// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCFrameFinder.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace velor {
namespace {

constexpr std::size_t kSyncHalfBits = 2 * kLTCSyncBits;
constexpr int kSyncErrors = 2;  // half bits, that the rule of the code corrects

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
  if (halfBit.isFirst) {
    mCount = 0;
  }
  mHalfBits[mNumber % kKept] = halfBit;
  mSigns = mSigns << 1U | (halfBit.level > 0 ? 1U : 0U);
  ++mCount;
  mIsReverseSync[mNumber % kKept] = mCount >= kSyncHalfBits && isNear(mSigns, kReverse);
  ++mNumber;
  if (mCount < kHalfBits) {
    return std::nullopt;
  }
  std::optional<VLLTCBits> bits;
  if (isNear(mSigns, kForward)) {
    bits = read(false, mCount > kHalfBits ? 1 : 0);
  }
  if (!bits && mCount > kHalfBits && hasReverseSync(1)) {
    bits = read(true, 1);
  }
  return bits;
}

std::optional<VLLTCBits> VLLTCFrameFinder::finish() const {
  return mCount >= kHalfBits && hasReverseSync(0) ? read(true, 0) : std::nullopt;
}

bool VLLTCFrameFinder::hasReverseSync(std::size_t extra) const {
  constexpr std::size_t kToSync = kHalfBits - kSyncHalfBits;
  return mIsReverseSync[(mNumber - 1 - kToSync - extra) % kKept];
}

// An extra half bit, beside the first bit of the frame, makes sure of that.
std::optional<VLLTCBits> VLLTCFrameFinder::read(bool isReverse, std::size_t extra) const {
  std::array<float, kHalfBits> levels{};
  float mean = 0;
  const std::size_t last = isReverse ? extra : 0;
  for (std::size_t i = 0; i < kHalfBits; ++i) {
    levels[i] = back(isReverse ? i + last : kHalfBits - 1 - i).level;
    mean += std::fabs(levels[i]) / static_cast<float>(kHalfBits);
  }
  // [0] is for a bit that begins high. It ends high for a 0 and low for a 1; the next one begins at
  // the other level.
  Sums before{};
  Sums behind{};
  if (extra > 0) {
    const float outside = back(isReverse ? 0 : kHalfBits).level;
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
  if (sync != kLTCSyncWord || !hasDigits(bits)) {
    return std::nullopt;
  }
  bits.begin = back(kHalfBits - 1 + last).begin;
  bits.end = back(last).end;
  bits.mark = bits.begin - (bits.end - bits.begin) / static_cast<double>(kHalfBits);
  bits.isReverse = isReverse;
  return bits;
}

}  // namespace velor
