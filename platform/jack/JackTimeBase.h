// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace velor::jack {

/// One process cycle in host time and in frames that do not wrap.
struct JackCycle {
  std::uint64_t startFrame = 0;
  std::uint64_t startTime = 0;
  std::uint32_t frames = 0;
  double framesPerNs = 0;  ///< by the server's count of this cycle
  double nominalRate = 0;  ///< frames a second
  /// Another number after every break in the count of frames.
  std::uint32_t epoch = 0;

  /// The frame, to the nearest, at which the host time lies; before the cycle and
  /// after it by extrapolation.
  std::int64_t frameAt(std::uint64_t time) const noexcept;
  /// The host time of a frame of this cycle, ns.
  std::uint64_t timeAt(std::uint32_t offset) const noexcept;
};

/// Brings the server's time to host time. jackd counts CLOCK_MONOTONIC_RAW, which
/// drifts against the host's clock, so that the difference is measured in every
/// cycle and smoothed; its frame counter has 32 bits and wraps after 24.9 hours
/// at 48 kHz, and is widened to 64.
class JackTimeBase {
 public:
  /// One cycle's reading. The server's time lies between two readings of the
  /// host's.
  struct Reading {
    std::uint32_t frame = 0;    ///< of the cycle's start, wrapping
    std::uint64_t startUs = 0;  ///< server time of the cycle's start
    std::uint64_t nextUs = 0;   ///< and of the next one's
    std::uint32_t frames = 0;
    std::uint32_t sampleRate = 0;
    std::uint64_t serverNowUs = 0;
    std::uint64_t hostBefore = 0;
    std::uint64_t hostAfter = 0;
  };

  /// Process callback alone. Realtime-safe: yes.
  const JackCycle& advance(const Reading& reading) noexcept;

  /// A new server, another count. Not while the process callback runs.
  void restart() noexcept { mStarted = false; }

 private:
  JackCycle mCycle;
  bool mStarted = false;
  std::uint32_t mLastFrame = 0;
  std::uint32_t mSampleRate = 0;
  double mDifference = 0;  // host time less server time, ns
  double mSlope = 0;       // its change a cycle
};

}  // namespace velor::jack
