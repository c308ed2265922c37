// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>

#include "kva/KAAudioUnit.h"
#include "platform/audio/LowPass.h"
#include "platform/host/LatestValue.h"

namespace velor {

/// A unit within a graph, from its input 0 to its output 0: the converter, which hands on
/// what its source or its render callback gives, and the low-pass of the second order
/// after it. Formats of both sides are the same from `initialize` on; input takes that of
/// the source, and output that of the input unless it was set.
class KAEffectUnit final : public KAAudioUnit {
 public:
  explicit KAEffectUnit(KAComponent component) noexcept
      : mIsLowPass(component == KAComponent::lowPass) {}

  void reset() override { mResetPending.store(true, std::memory_order_relaxed); }
  audio::AudioStreamBasicDescription outputFormat() const override { return mOutput; }
  /// A cycle that the source fails leaves the filter as it was.
  audio::OSStatus render(const host::RealtimeContext& realtime, const audio::AudioTimeStamp& time,
                         std::uint32_t frames, std::span<float* const> channels) noexcept override;

 private:
  audio::OSStatus set(const Address& address, const KAPropertyValue& value) override;
  audio::OSStatus get(const Address& address, KAPropertyValue& value) const override;
  bool isWriteable(const Address& address) const override;
  audio::OSStatus applyParameter(KAUnitParameter parameter, float value) override;
  audio::OSStatus prepare() override;
  void update();

  const bool mIsLowPass;
  audio::AudioStreamBasicDescription mInput = KAStreamFormat(48000, 2);
  audio::AudioStreamBasicDescription mOutput = KAStreamFormat(48000, 2);
  bool mOutputIsSet = false;
  double mCutoff = 6900;       // Hz
  double mResonance = 0.7071;  // Q, no peak
  host::LatestValue<audio::AURenderCallbackStruct> mCallback;
  host::LatestValue<audio::LowPass::Coefficients> mCoefficients;
  std::atomic<bool> mResetPending{false};
  std::array<audio::LowPass, audio::kMaxChannels> mFilters;  // the cycles' own
};

}  // namespace velor
