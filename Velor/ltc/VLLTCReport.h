// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_frame.h"

namespace velor {

/// The measurements of VLLTCAnalysis. Levels are parts of full scale, times are seconds.
struct VLLTCReport {
  static constexpr std::size_t kListed = 1000;  // events, changes of user bits

  /// A quarter of a second or four frames, whichever is longer, without a gap.
  struct Window {
    double begin = 0;
    double length = 0;
    double rate = 0;    ///< frames per second
    double level = 0;   ///< from the middle of the signal to its top
    double noise = 0;   ///< rms
    double hum = 0;     ///< peak, of the mains' frequency and two harmonics
    double hum50 = 0;   ///< power of 50, 100 and 150 Hz
    double hum60 = 0;   ///< power of 60, 120 and 180 Hz
    double offset = 0;  ///< DC
    double jitter = 0;  ///< rms
    double jitterPeak = 0;
    double bit = 0;  ///< length of a bit
    std::uint64_t frames = 0;
    std::uint64_t edges = 0;
    std::uint64_t missingEdges = 0;
  };

  enum class Kind : std::uint8_t { dropOut, splice, repeat, turn };
  struct Event {
    Kind kind = Kind::dropOut;
    double seconds = 0;  ///< end of the frame before
    double length = 0;   ///< time from there to the next frame
    SMPTETime before{};
    SMPTETime behind{};
  };
  struct UserBits {
    double seconds = 0;
    SMPTETime time{};
    std::array<std::uint8_t, kLTCUserBytes> bits{};
  };

  double sampleRate = 0;
  double duration = 0;
  double peak = 0;
  std::uint64_t frames = 0;
  std::uint64_t reverseFrames = 0;
  // The following are measured only where there are frames.
  double begin = 0;
  SMPTETime first{};
  SMPTETime last{};

  std::uint32_t format = kSMPTETimeType25;
  std::uint32_t other = kSMPTETimeType24;  ///< the nearest format of another rate
  /// Standard deviations by which the rate fits `format` better than `other`; none when the
  /// speed is far from both.
  std::optional<double> sigmas;
  double rate = 0;         ///< frames per second
  double deviation = 0;    ///< from the format's rate, ppm
  double uncertainty = 0;  ///< standard deviation of `deviation`, ppm
  double drift = 0;        ///< ppm a minute
  double lowest = 0;       ///< lowest deviation of a window, ppm
  double highest = 0;      ///< highest deviation of a window, ppm

  double level = 0;
  double lowestLevel = 0;
  double highestLevel = 0;
  double noise = 0;
  double signalToNoise = 0;  ///< dB, at most 120
  double margin = 0;         ///< dB by which noise may rise before frames are lost
  double hum = 0;
  double humFrequency = 0;  ///< Hz
  double offset = 0;
  double riseTime = 0;  ///< time of an edge from 10 to 90 %
  double bit = 0;
  double jitter = 0;
  double jitterPeak = 0;
  std::uint64_t missingEdges = 0;

  std::array<std::uint64_t, 4> counts{};  ///< of events, by Kind
  std::vector<Event> events;              ///< the first kListed
  std::uint64_t userBitChanges = 0;
  std::vector<UserBits> userBits;  ///< those of the first frame and the first changes
  std::vector<Window> windows;

  std::uint64_t count(Kind kind) const { return counts[static_cast<std::size_t>(kind)]; }
  /// One line for people, such as "good; 14 dB above the limit".
  std::string verdict() const;
};

}  // namespace velor
