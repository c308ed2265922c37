// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>

#include "platform/audio/builtin/EffectUnit.h"
#include "platform/host/LatestValue.h"

namespace velor::audio {

/// A low-pass of the second order, at the rate of its format: the section of
/// R. Bristow-Johnson's "Cookbook formulae for audio EQ biquad filter
/// coefficients", its Q being the resonance. At a rate that cannot carry the
/// cut-off it lets everything pass. A cycle that its source fails leaves it as it
/// was.
class LowPassUnit final : public EffectUnit {
 public:
  OSStatus setParameter(AudioUnitParameterID parameter, float value) override;
  OSStatus initialize() override;
  void reset() noexcept override { mResetPending.store(true, std::memory_order_relaxed); }
  OSStatus render(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                  const AudioTimeStamp& time, std::uint32_t bus, std::uint32_t frames,
                  AudioBufferList& data) noexcept override;

 private:
  struct Coefficients {
    double b0 = 1;
    double b1 = 0;
    double b2 = 0;
    double a1 = 0;
    double a2 = 0;
  };
  struct State {
    double first = 0;
    double second = 0;
  };

  void update();

  double mCutoff = 6900;       // Hz
  double mResonance = 0.7071;  // Q, no peak
  host::LatestValue<Coefficients> mCoefficients;
  std::atomic<bool> mResetPending{false};
  std::array<State, kMaxChannels> mState;  // the cycles' own
};

}  // namespace velor::audio
