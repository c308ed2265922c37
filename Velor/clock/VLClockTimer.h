// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

#include "Kv-Appkit/kv_hptimer.h"
#include "platform/host/Host.h"

namespace velor {

/// The clock's ticks, one a frame: the format gives their length, and the play rate
/// changes it. Setters come from one thread at a time.
class VLClockTimer {
 public:
  /// `hostTime` is the time of the wake-up, ns. `wasHeldUp` says that the thread was
  /// held up for long, so that the ticks are counted from 0 again. Runs on the timer's
  /// thread.
  using Tick = std::function<void(const host::RealtimeContext& realtime, std::uint64_t hostTime,
                                  bool wasHeldUp)>;

  explicit VLClockTimer(Tick tick);
  ~VLClockTimer();
  VLClockTimer(const VLClockTimer&) = delete;
  VLClockTimer& operator=(const VLClockTimer&) = delete;

  /// The first tick comes one interval after the start.
  void start();
  /// Waits for the last tick, which comes after the stop.
  void stop();

  /// A running timer takes both at its next wake-up. A length that no clock holds leaves
  /// the timer as it was.
  void setFormat(std::uint32_t smpteFormat);
  void setRate(double rate);

 private:
  void fired(const host::RealtimeContext& realtime) noexcept;
  void applyInterval();

  host::Host& mHost;
  const Tick mTick;
  kv_hptimer_s* mHPTimer = nullptr;
  std::uint64_t mNominalTimerInterval;  // ns a frame at rate 1
  double mRate = 1;

  // The timer thread's own; one run's thread has ended when the next begins.
  struct {
    double mWeightedDelta = 0;  // ns
  } rt;
};

}  // namespace velor
