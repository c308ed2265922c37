// SPDX-License-Identifier: MIT
#pragma once

#include <span>

namespace velor::audio {

/// A low-pass of the second order: the section of R. Bristow-Johnson's "Cookbook
/// formulae for audio EQ biquad filter coefficients", its Q being the resonance. One
/// object a channel; belongs to one thread. Realtime-safe: yes.
class LowPass {
 public:
  /// Of y = b0 x + b1 x' + b2 x'' - a1 y' - a2 y''; as they stand, all passes.
  struct Coefficients {
    double b0 = 1;
    double b1 = 0;
    double b2 = 0;
    double a1 = 0;
    double a2 = 0;
  };
  /// Cut-off in Hz. At a rate that cannot carry it, all passes.
  static Coefficients coefficients(double sampleRate, double cutoff, double resonance) noexcept;

  /// In place. Continues from the last call; the first one starts from silence.
  void process(const Coefficients& coefficients, std::span<float> samples) noexcept;

 private:
  double mFirst = 0;
  double mSecond = 0;
};

}  // namespace velor::audio
