// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCRun.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr double kFarthest = 250;    // frames from one that was read to the next
constexpr double kPlaceError = 0.1;  // of a frame
constexpr double kGapError = 0.02;   // of the gap
constexpr double kMostPlaceError = 0.3;
constexpr double kLengthChange = 0.25;  // from one frame to the next

constexpr std::array<std::uint32_t, 4> kCountings = {kSMPTETimeType24, kSMPTETimeType25,
                                                     kSMPTETimeType30, kSMPTETimeType2997Drop};

bool isLater(const VLLTCBits& before, const VLLTCBits& bits, std::int32_t frames,
             std::uint32_t type) {
  const SMPTETime from = VLLTCTimeOf(before, type);
  const SMPTETime to = VLLTCTimeOf(bits, type);
  const std::int32_t labels = ltc_frames_per_second(type);
  if (from.mFrames >= labels || to.mFrames >= labels ||
      (ltc_type_is_drop(type) && bits.field(kLTCDropFlag) == 0)) {
    return false;
  }
  return ltc_same_time(
      ltc_smptetime_from_frame_number(ltc_frame_number_from_smptetime(from) + frames, type), to);
}

// Frames that have room between the two, of which the lengths are about the same.
std::optional<std::int32_t> framesBetween(const VLLTCBits& before, const VLLTCBits& bits) {
  const double length = bits.end - bits.begin;
  const double lengthBefore = before.end - before.begin;
  const double gap = (bits.begin - before.end) / ((length + lengthBefore) / 2);
  const double frames = std::round(gap);
  const double allowed = std::min(kPlaceError + kGapError * frames, kMostPlaceError);
  if (bits.isReverse != before.isReverse ||
      bits.field(kLTCDropFlag) != before.field(kLTCDropFlag) || !(frames <= kFarthest) ||
      std::fabs(gap - frames) > allowed ||
      std::fabs(length - lengthBefore) > kLengthChange * lengthBefore) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(frames);
}

}  // namespace

SMPTETime VLLTCTimeOf(const VLLTCBits& bits, std::uint32_t type) {
  const auto number = [&bits](const LTCField& units, const LTCField& tens) {
    return static_cast<std::int16_t>(bits.field(tens) * 10 + bits.field(units));
  };
  SMPTETime time;
  time.mType = type;
  time.mFlags = kSMPTETimeValid | kSMPTETimeRunning;
  time.mSubframeDivisor = kSMPTETimeSubframeDivisor;
  time.mHours = number(kLTCHourUnits, kLTCHourTens);
  time.mMinutes = number(kLTCMinuteUnits, kLTCMinuteTens);
  time.mSeconds = number(kLTCSecondUnits, kLTCSecondTens);
  time.mFrames = number(kLTCFrameUnits, kLTCFrameTens);
  return time;
}

bool VLLTCRun::isDouble(const VLLTCBits& before, const VLLTCBits& bits) {
  return bits.begin < before.end - kPlaceError * (before.end - before.begin);
}

bool VLLTCRun::isNext(const VLLTCBits& before, const VLLTCBits& bits, Countings among) {
  return framesBetween(before, bits) == 0 && countingsOf(before, bits, among) != 0;
}

bool VLLTCRun::isRepeat(const VLLTCBits& before, const VLLTCBits& bits) {
  return framesBetween(before, bits) == 0 && isLater(before, bits, 0, kSMPTETimeType30);
}

// A frame whose first bits are those of another one may seem to be the last of a second
// that is too short. So where the frames begin again from 0, they must do so as in the run.
VLLTCRun::Countings VLLTCRun::confirmationOf(const VLLTCBits& bits) const {
  const auto frames = [](const VLLTCBits& each) {
    return VLLTCTimeOf(each, kSMPTETimeType30).mFrames;
  };
  const bool isSameSecond = (frames(bits) > frames(*mHeld)) != bits.isReverse;
  return countingsOf(*mHeld, bits, isSameSecond || !mLast ? kAnyCounting : mCountings);
}

VLLTCRun::Countings VLLTCRun::countingsOf(const VLLTCBits& before, const VLLTCBits& bits,
                                          Countings among) {
  const std::optional<std::int32_t> between = framesBetween(before, bits);
  Countings countings = 0;
  for (std::size_t i = 0; between && i < kCountings.size(); ++i) {
    const Countings bit = Countings{1} << i;
    const std::int32_t steps = bits.isReverse ? -1 - *between : *between + 1;
    countings |= (among & bit) != 0 && isLater(before, bits, steps, kCountings[i]) ? bit : 0;
  }
  return countings;
}

}  // namespace velor
