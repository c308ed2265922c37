// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Velor/ltc/VLLTCFrameFinder.h"
#include "Velor/ltc/VLLTCHalfBitClock.h"
#include "Velor/ltc/VLLTCRun.h"

namespace velor {

/// Reads LTC from a recording, forwards and backwards, from a tenth of its speed to ten
/// times.
///
/// A half-bit clock listens in each octave of speed until one of them reads frames. The
/// others then rest, and read again from the last frame on when that one reads no more.
///
/// One thread. Realtime-safe: no.
class VLLTCVarispeedDecoder {
 public:
  /// Gets the frames in the order in which they stand in the recording.
  using Consumer = std::function<void(const VLLTCBits& bits)>;

  VLLTCVarispeedDecoder(double sampleRate, Consumer consumer);

  void process(std::span<const float> samples);
  void finish();

 private:
  struct Octave {
    Octave(double sampleRate, double slowest, double fastest)
        : clock(sampleRate, slowest, fastest) {}
    VLLTCHalfBitClock clock;
    VLLTCFrameFinder finder;
    bool isResting = false;
  };

  void listen(Octave& octave, std::span<const float> samples, std::uint64_t from);
  void feed(Octave& octave, std::span<const float> samples);
  void found(const std::optional<VLLTCBits>& bits, Octave& by);
  void processPart(std::span<const float> samples);
  void deliver();
  void wakeOthers();

  const Consumer mConsumer;
  std::vector<std::unique_ptr<Octave>> mOctaves;
  Octave* mReading = nullptr;  // the only one that listens; none: all do

  std::vector<float> mKept;  // from the last frame on, while one reads
  std::uint64_t mKeptFrom = 0;
  std::uint64_t mPlace = 0;

  struct Found {
    VLLTCBits bits;
    Octave* by;
  };
  std::vector<Found> mFound;
  VLLTCRun mRun;
  double mLastEnd = 0;
  double mLastLength = 0;
};

}  // namespace velor
