// SPDX-License-Identifier: MIT
#include "kva/KAEffectUnit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <span>
#include <vector>

#include "sim/SimulatedHost.h"

namespace velor {
namespace {

constexpr double kCutoff = 14000;
constexpr float kResonance = 0.70710677F;

// A filter at a rate, fed with a signal by the number of the sample.
struct Filter {
  explicit Filter(double rate, double (*signal)(double sample)) : mSignal(signal) {
    unit.setInputRenderCallback(&Filter::feed, this, 0);
    for (const KAUnitScope scope : {KAUnitScope::input, KAUnitScope::output}) {
      unit.setProperty(KAUnitProperty::sampleRate, scope, 0, rate);
    }
    setParameter(KAUnitParameter::lowPassCutoff, static_cast<float>(kCutoff));
    setParameter(KAUnitParameter::lowPassResonance, kResonance);
    unit.initialize();
  }
  void setParameter(KAUnitParameter parameter, float value) {
    static_cast<KAAudioUnit&>(unit).setParameter(parameter, KAUnitScope::global, 0, value, 0);
  }
  // The first channel of so many further samples; none when the source fails.
  std::vector<float> run(std::uint32_t frames, audio::OSStatus result = 0) {
    mResult = result;
    std::vector<float> samples(frames);
    float* const channels[] = {samples.data()};
    audio::OSStatus status = 0;
    {
      const host::RealtimeContext realtime;
      status = unit.render(realtime, {mNext, 0, 1}, frames, channels);
    }
    EXPECT_EQ(status, result);
    samples.resize(status == 0 ? frames : 0);
    mNext += static_cast<double>(samples.size());
    return samples;
  }
  KAEffectUnit unit{KAComponent::lowPass};

 private:
  static audio::OSStatus feed(const host::RealtimeContext&, void* self,
                              const audio::AudioTimeStamp& time, std::uint32_t frames,
                              std::span<float* const> channels) noexcept {
    auto& filter = *static_cast<Filter*>(self);
    for (std::uint32_t i = 0; i < frames; ++i) {
      channels[0][i] = static_cast<float>(filter.mSignal(time.mSampleTime + i));
    }
    return filter.mResult;
  }
  double (*mSignal)(double);
  double mNext = 0;
  audio::OSStatus mResult = 0;
};

class KAEffectUnitTest : public testing::Test {
 protected:
  host::SimulatedHost mHost;
};

double impulse(double sample) {
  return sample == 0 ? 1 : 0;
}

TEST_F(KAEffectUnitTest, ARateThatCannotCarryTheCutoffAndACycleThatFailsLeaveNoTrace) {
  const auto noise = [](double sample) { return std::sin(sample * sample); };
  for (const double rate : {22050.0, 28000.0, 48000.0}) {
    Filter whole(rate, noise);
    Filter interrupted(rate, noise);
    const std::vector<float> wanted = whole.run(200);
    const bool isFiltered = wanted[1] != static_cast<float>(noise(1));
    EXPECT_EQ(isFiltered, rate > 2 * kCutoff);
    std::vector<float> found = interrupted.run(100);
    EXPECT_TRUE(interrupted.run(100, 0x5000).empty());
    const std::vector<float> rest = interrupted.run(100);
    found.insert(found.end(), rest.begin(), rest.end());
    EXPECT_EQ(found, wanted);
  }
  Filter rung(48000, &impulse);
  rung.run(1);
  rung.unit.reset();
  EXPECT_EQ(rung.run(10), std::vector<float>(10));
}

}  // namespace
}  // namespace velor
