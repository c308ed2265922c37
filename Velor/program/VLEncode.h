// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_frame.h"
#include "platform/audio/file/SoundFormat.h"
#include "platform/host/Error.h"

namespace velor {

/// The options of `velor encode`, checked.
struct VLEncodeOptions {
  /// Samples a second; with fewer, half a bit and a whole one cannot be
  /// distinguished in all formats.
  static constexpr int kMinSampleRate = 11025;

  std::string file;
  bool force = false;   // replace a file that exists
  SMPTETime start{};    // valid, with the format
  double duration = 0;  // seconds, above 0
  float level = 0;      // of the square's sides, above 0 and up to 1.0
  std::array<std::uint8_t, kLTCUserBytes> userBits{};
  audio::SoundFormat sound;  // of one channel
};

/// Samples of that duration, to the nearest.
std::int64_t VLEncodeLength(const VLEncodeOptions& options);

/// Writes LTC of one channel to a sound file, from the first sample on: the signal of an
/// LTC generator, its edges rounded by a low-pass at 14 kHz (not below 40 kHz), with no
/// sample above the level. A frame begins at the sample that is nearest to its time, however long
/// it goes on, and the last one ends with the duration, whole or not.
///
/// `progress` gets the part that is done, 0 to 1, now and then; if it returns false the
/// work ends. Fails when the file cannot be written.
Expected<> VLEncodeFile(const VLEncodeOptions& options,
                        const std::function<bool(double part)>& progress);

/// The command: reports errors and its progress on standard error. SIGINT, SIGTERM
/// and SIGHUP leave no file behind. Returns the exit status, 0 or 1. Main thread.
int VLEncodeRun(const VLEncodeOptions& options);

}  // namespace velor
