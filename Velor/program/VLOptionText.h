// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_frame.h"
#include "platform/audio/file/SoundFormat.h"
#include "platform/host/Error.h"

namespace velor {

/// Reads the texts of options.
struct VLOptionText {
  /// Reads "HH:MM:SS:FF" (":", ";" or "." before the frames) as a time of the format. A
  /// number that drop-frame counting leaves out is refused.
  static Expected<SMPTETime> time(const std::string& text, std::uint32_t format);
  /// Refuses a text that is not a time in any format.
  static Expected<> checkTime(const std::string& text);

  /// Reads "-12dB" or "-12 dB", at most 0 dB, as a part of full scale.
  static Expected<float> level(const std::string& text);

  /// Reads eight hexadecimal digits; the last one is the first group in the frame.
  static Expected<std::array<std::uint8_t, kLTCUserBytes>> userBits(const std::string& text);

  /// Reads a number within the limits. `kind` is for the message: "number of seconds".
  static Expected<double> number(const std::string& text, double least, double most,
                                 const char* kind = "number");
  /// Likewise a whole one.
  static Expected<int> wholeNumber(const std::string& text, int least, int most,
                                   const char* kind = "whole number");

  /// Reads a format's name, such as "29.97df".
  static Expected<std::uint32_t> format(const std::string& text);
  /// Reads "16", "24" or "float".
  static Expected<audio::SampleEncoding> encoding(const std::string& text);
  /// Reads "normal", "stop", "loop" or "time-of-day" as a play mode of the clock.
  static Expected<std::uint64_t> playMode(const std::string& text);
};

/// The name of a format; "?" for none.
const char* VLFormatName(std::uint32_t format);

}  // namespace velor
