// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>

#include "platform/audio/LowPass.h"
#include "platform/audio/builtin/EffectUnit.h"
#include "platform/host/LatestValue.h"

namespace velor::audio {

/// A low-pass of the second order, at the rate of its format. A cycle that its source
/// fails leaves it as it was.
class LowPassUnit final : public EffectUnit {
 public:
  OSStatus setParameter(AudioUnitParameterID parameter, float value) override;
  OSStatus initialize() override;
  void reset() noexcept override { mResetPending.store(true, std::memory_order_relaxed); }
  OSStatus render(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                  const AudioTimeStamp& time, std::uint32_t bus, std::uint32_t frames,
                  AudioBufferList& data) noexcept override;

 private:
  void update();

  double mCutoff = 6900;       // Hz
  double mResonance = 0.7071;  // Q, no peak
  host::LatestValue<LowPass::Coefficients> mCoefficients;
  std::atomic<bool> mResetPending{false};
  std::array<LowPass, kMaxChannels> mFilters;  // the cycles' own
};

}  // namespace velor::audio
