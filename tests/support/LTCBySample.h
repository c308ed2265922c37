// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

/// What the callback of a decoder got.
struct LTCCall {
  SMPTETime time;
  std::array<std::uint8_t, 4> userBits{};
  std::uint64_t hostTime = 0;
  double fps = 0;

  bool operator==(const LTCCall& other) const {
    return std::memcmp(&time, &other.time, sizeof time) == 0 && userBits == other.userBits &&
           hostTime == other.hostTime && fps == other.fps;
  }
};

/// What ltc_decoder does, defined sample by sample without a thought of speed. A frame
/// whose last 16 bits are not the sync word ends the program. 1 ns a tick, from 25
/// frames per second.
class LTCBySample {
 public:
  explicit LTCBySample(double sampleRate)
      : mSampleRate(sampleRate),
        mTicks(static_cast<std::uint64_t>(1e9 / sampleRate)),
        mSamplesPerBit(static_cast<float>(sampleRate / 25.0 / 80.0)) {}

  void process(double sampleTime, std::uint64_t hostNow, const float* samples, std::size_t count) {
    auto n = static_cast<std::uint64_t>(sampleTime);
    for (std::size_t i = 0; i < count; ++i, ++n, hostNow += mTicks) {
      const bool sign = std::signbit(samples[i]);
      if (sign == mLastSign) {
        continue;
      }
      mLastSign = sign;
      const auto delta = static_cast<float>(n - mLastEdge);
      const std::uint64_t frameTime = mLastEdgeTime;
      mLastEdge = n;
      mLastEdgeTime = hostNow;
      const float toFull = std::fabs(1 - delta / mSamplesPerBit);
      const float toHalf = std::fabs(1 - delta / (mSamplesPerBit * 0.5F));
      if (toHalf > toFull) {
        push(0, n, frameTime);
      } else if (toFull > toHalf) {
        if (!mHalf) {
          mHalf = true;
        } else {
          push(1, n, frameTime);
        }
      }
    }
    if (mLastGood != 0 && mLastGood + static_cast<std::uint64_t>(mSampleRate / 20.0) < n) {
      mLastGood = 0;
      mLastFrame = 0;
      mSamplesPerBit = static_cast<float>(mSampleRate / 27.5 / 80.0);
      mClock = 27.5;
      mAverage = 0;
      mTime.mCounter = 0;
    }
  }

  const std::vector<LTCCall>& calls() const { return mCalls; }

 private:
  void push(std::uint8_t bit, std::uint64_t n, std::uint64_t hostTime) {
    mHalf = false;
    mLastBits = static_cast<std::uint16_t>(mLastBits << 1U | bit);
    if (!ltc_frame_push_bit(*mFrame, bit, hostTime)) {
      return;
    }
    std::array<std::uint8_t, 4> user{};
    std::uint8_t drop = 0;
    if (ltc_frame_decode(*mFrame, mTime, user.data(), drop) != 0) {
      ltc_frame_reset(mFrame.get());
      return;
    }
    const std::uint64_t before = std::exchange(mLastFrame, n);
    if (before == 0) {
      return;
    }
    auto length = static_cast<double>(n - before);
    if (mAverage != 0) {
      length = 0.1 * length + 0.9 * mAverage;
    }
    const double fps = std::round(mSampleRate * 1000 / length) / 1000;
    const bool plausible = fps >= 23 && fps <= 31;
    mAverage = plausible ? length : 0;
    if (!plausible) {
      return;
    }
    ltc_detect_frame_format(mTime, drop, fps);
    mLastGood = n;
    if (std::fabs(1 - std::fabs(mClock) / fps) > 0.01) {
      mSamplesPerBit = static_cast<float>(mSampleRate / fps / 80.0);
      mClock = fps;
    }
    if (!ltc_is_valid(mTime)) {
      return;
    }
    mCalls.push_back({mTime, user, hostTime, fps});
    if (mLastBits != 0b0011'1111'1111'1101) {
      std::fputs("a frame without its sync word\n", stderr);
      std::abort();
    }
  }

  struct Destroy {
    void operator()(ltc_frame* frame) const { ltc_frame_destroy(frame); }
  };
  const double mSampleRate;
  const std::uint64_t mTicks;
  const std::unique_ptr<ltc_frame, Destroy> mFrame{ltc_frame_create()};
  std::vector<LTCCall> mCalls;
  float mSamplesPerBit;
  double mClock = 25;
  bool mLastSign = false;
  bool mHalf = false;
  std::uint16_t mLastBits = 0;
  std::uint64_t mLastEdge = 0;
  std::uint64_t mLastEdgeTime = 0;
  std::uint64_t mLastFrame = 0;
  std::uint64_t mLastGood = 0;
  double mAverage = 0;
  SMPTETime mTime;
};

}  // namespace velor
