// SPDX-License-Identifier: MIT
#include "Velor/clock/VLClockTimer.h"

#include <cstdlib>
#include <utility>

#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr std::uint64_t kFirstTimerInterval = 40'000'000;  // ns, a frame at 25
constexpr double kDeltaWeight = 0.1;
constexpr std::int64_t kStallLimit = 20'000'000;  // ns, smoothed

// 0, which the timer refuses, for a number that is not a length of time.
std::uint64_t truncatedNanoseconds(double nanoseconds) {
  constexpr double kLimit = 0x1p64;
  return nanoseconds >= 0 && nanoseconds < kLimit ? static_cast<std::uint64_t>(nanoseconds) : 0;
}

}  // namespace

VLClockTimer::VLClockTimer(Tick tick)
    : mHost(host::current()), mTick(std::move(tick)), mNominalTimerInterval(kFirstTimerInterval) {
  kv_hptimer_create(&mHPTimer, kFirstTimerInterval);
  kv_hptimer_set_block(mHPTimer,
                       [this](const host::RealtimeContext& realtime) { fired(realtime); });
}

VLClockTimer::~VLClockTimer() {
  stop();
  // Without a thread it clears the count of wake-ups, or the timer would start
  // once more on its disposal.
  stop();
  kv_hptimer_dispose(mHPTimer);
}

void VLClockTimer::start() {
  kv_hptimer_start(mHPTimer);
}

void VLClockTimer::stop() {
  kv_hptimer_stop(mHPTimer);
}

void VLClockTimer::setFormat(std::uint32_t smpteFormat) {
  mNominalTimerInterval =
      truncatedNanoseconds(ltc_seconds_per_frame(smpteFormat) * host::kNsPerSecond);
  applyInterval();
}

void VLClockTimer::setRate(double rate) {
  mRate = rate;
  applyInterval();
}

void VLClockTimer::applyInterval() {
  kv_hptimer_set_interval(mHPTimer,
                          truncatedNanoseconds(static_cast<double>(mNominalTimerInterval) / mRate));
}

void VLClockTimer::fired(const host::RealtimeContext& realtime) noexcept {
  // Back to back: what is smoothed is how long this thread is held up, not how
  // far the ticks lie apart.
  const std::uint64_t t1 = mHost.AudioGetCurrentHostTime();
  const std::uint64_t t2 = mHost.AudioGetCurrentHostTime();
  rt.mWeightedDelta = (1.0 - kDeltaWeight) * rt.mWeightedDelta +
                      static_cast<double>(static_cast<std::int64_t>(t2 - t1)) * kDeltaWeight;
  const bool wasHeldUp = std::abs(static_cast<std::int64_t>(rt.mWeightedDelta)) >= kStallLimit;
  if (wasHeldUp) {
    rt.mWeightedDelta = 0;
  }
  mTick(realtime, t1, wasHeldUp);
}

}  // namespace velor
