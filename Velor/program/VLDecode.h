// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_frame.h"
#include "platform/audio/file/SoundFileReader.h"
#include "platform/host/Error.h"

namespace velor {

/// The options of `velor decode`, checked.
struct VLDecodeOptions {
  enum class Form : std::uint8_t { text, csv, json };

  std::string file;
  int channel = 1;  // from 1 on
  Form form = Form::text;
  bool isPlain = false;  // read with ltc_decoder, as the readers do
};

/// A frame as it was read.
struct VLDecodedFrame {
  std::uint64_t sample = 0;  ///< at which it begins in the file, from 0 on
  SMPTETime time{};          ///< digits as received, of the format that was detected
  std::array<std::uint8_t, kLTCUserBytes> userBits{};
  double fps = 0;          ///< measured, smoothed over about ten frames
  bool isReverse = false;  ///< played backwards: its last bit comes first
};

/// Totals of all frames.
struct VLDecodeSummary {
  static constexpr std::size_t kGapsListed = 100;

  /// Two frames that do not follow each other, by their place or by their time.
  struct Gap {
    VLDecodedFrame before;
    VLDecodedFrame behind;
  };

  std::uint64_t frames = 0;
  VLDecodedFrame first;  ///< when there are frames
  std::uint64_t gapCount = 0;
  std::vector<Gap> gaps;  ///< the first ones
  /// That of most frames; none without frames.
  std::optional<std::uint32_t> format;
  /// Frames a second, over all frames that follow each other; 0 without any.
  double meanRate = 0;
  std::optional<Error> error;  ///< that ended the reading before the end of the file
};

/// Reads the LTC on a channel, which must be there, up to the end or to what is wrong
/// with the file. Either with VLLTCVarispeedDecoder, or plainly with
/// ltc_decoder, which misses the first two frames of each stretch of signal, and for which
/// the file's end counts as that of the bit in which it falls.
VLDecodeSummary VLDecodeFile(audio::SoundFileReader& reader, int channel, bool isPlain,
                             const std::function<void(const VLDecodedFrame&)>& frame,
                             const std::function<void(double part)>& progress);

/// The command: a line a frame on standard output, the summary on standard error. Gives
/// the exit status: 0, 1 when the file is none or damaged or holds no LTC, 2 for a
/// channel that it does not have. Main thread.
int VLDecodeRun(const VLDecodeOptions& options);

}  // namespace velor
