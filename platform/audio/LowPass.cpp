// SPDX-License-Identifier: MIT
#include "platform/audio/LowPass.h"

#include <cmath>
#include <numbers>

namespace velor::audio {
namespace {

// Far below what 32-bit samples can carry. What dies away stops here, before its
// numbers become so small that the processor is slow with them.
constexpr double kSilence = 1e-30;

double audible(double value) noexcept {
  return std::fabs(value) < kSilence ? 0.0 : value;
}

}  // namespace

LowPass::Coefficients LowPass::coefficients(double sampleRate, double cutoff,
                                            double resonance) noexcept {
  if (sampleRate <= 2 * cutoff) {
    return {};
  }
  const double angle = 2 * std::numbers::pi * cutoff / sampleRate;
  const double alpha = std::sin(angle) / (2 * resonance);
  const double cosine = std::cos(angle);
  const double a0 = 1 + alpha;
  return {.b0 = (1 - cosine) / 2 / a0,
          .b1 = (1 - cosine) / a0,
          .b2 = (1 - cosine) / 2 / a0,
          .a1 = -2 * cosine / a0,
          .a2 = (1 - alpha) / a0};
}

// Transposed direct form II.
void LowPass::process(const Coefficients& coefficients, std::span<float> samples) noexcept {
  const Coefficients c = coefficients;
  double first = mFirst;
  double second = mSecond;
  for (float& sample : samples) {
    const double in = sample;
    const double out = c.b0 * in + first;
    first = c.b1 * in - c.a1 * out + second;
    second = c.b2 * in - c.a2 * out;
    sample = static_cast<float>(out);
  }
  mFirst = audible(first);
  mSecond = audible(second);
}

}  // namespace velor::audio
