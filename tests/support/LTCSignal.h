// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "kvtimecode/SMPTETime.h"
#include "tests/support/LTCTime.h"

// Signals of LTC as they come from tapes, cables and other machines, and what stands
// in them. The same seed gives the same signal.
namespace velor {

/// Places are in samples from the first one, lost samples counted.
struct LTCSignal {
  struct Frame {
    SMPTETime time;
    std::array<std::uint8_t, 4> userBytes{};
    double mark = 0;   ///< the middle of the bit before
    double begin = 0;  ///< of the first bit
    double end = 0;    ///< of the last bit
    bool whole = true;
  };
  struct Loss {
    std::size_t index;  ///< of the first sample behind it
    std::size_t length;
  };

  double sampleRate = 0;
  std::vector<Frame> frames;
  std::vector<float> samples;
  std::vector<Loss> losses;
};

struct LTCSignalMaker {
  double sampleRate = 48000;
  std::uint32_t type = kSMPTETimeType25;
  std::size_t frames = 100;
  std::uint32_t seed = 1;

  /// Frames per second at a time in seconds; without it, the format's own.
  std::function<double(double)> speed = nullptr;
  double riseTime = 40e-6;  ///< from 10 to 90 %, s; 0 for steps (ST 12-1: 40 ± 10 us)
  double level = 0.5;       ///< of full scale
  bool inverted = false;
  double lowPass = 0;        ///< Hz, two poles; 0 for none
  double highPass = 0;       ///< Hz, one pole
  double offset = 0;         ///< DC, as a part of the level
  double hum = 0;            ///< 50 Hz, as a part of the level
  double clip = 0;           ///< of full scale; 0 for none
  double signalToNoise = 0;  ///< dB over the whole band, white; 0 for no noise
  unsigned bits = 0;         ///< of quantisation; 0 for none
  double silence = 0;        ///< before the first frame, s

  // Each at another place of each second; lengths in seconds.
  double dropOut = 0;  ///< of the signal, not of the noise
  double splice = 0;   ///< cut out, without a trace in the sample times
  double xrun = 0;     ///< lost, and skipped by the sample times

  LTCSignal make() const;
};

/// Played from its end, without losses.
LTCSignal reversed(LTCSignal signal);

/// As libltc's encoder makes it, 8 bits wide.
LTCSignal signalByLibltc(double sampleRate, std::uint32_t type, std::size_t frames, bool inverted);

}  // namespace velor
