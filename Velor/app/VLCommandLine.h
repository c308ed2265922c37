// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Velor/app/VLDecode.h"
#include "Velor/app/VLEncode.h"
#include "Velor/app/VLOSCRemote.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// What the command line asks for, checked: times are valid, of the format and in
/// range, and nothing contradicts anything else. Ports are as they were typed.
struct VLOptions {
  bool headless = false;
  bool list = false;
  bool play = false;
  std::uint32_t format = kSMPTETimeType25;
  std::optional<SMPTETime> start;
  std::vector<std::string> mtcOut;
  std::optional<std::string> syncSource;
  bool arm = false;
  double ratePercent = 0;
  std::optional<SMPTETime> offset;
  std::optional<double> preroll;  // seconds
  std::uint64_t playMode = 0;     // a play mode of the clock
  std::optional<SMPTETime> stopAt;
  std::optional<std::pair<SMPTETime, SMPTETime>> loop;
  std::vector<std::string> ltcOut;   // DEVICE:CHANNEL, as typed
  float ltcLevel = 0.1F;             // of full scale
  std::uint32_t ltcUserBits = 0;     // the first group lowest
  std::optional<std::string> ltcIn;  // DEVICE:CHANNEL, as typed
  int freewheel = 5;                 // seconds; -1 without end
  VLOSCOptions osc;
};

/// The options, or those of one of the commands, or what to print and with which status
/// to end.
struct VLCommandLine {
  std::optional<VLOptions> options;
  std::optional<VLEncodeOptions> encode;
  std::optional<VLDecodeOptions> decode;
  int exitStatus = 0;
  std::string output;  // to stdout when the status is 0, else to stderr
};

/// Reads the arguments behind the program's name. An error is one line that names
/// the argument, with the status 2.
VLCommandLine VLParseCommandLine(const std::vector<std::string>& arguments);

/// Reads "HH:MM:SS:FF" (any of ":", ";" and "." before the frames) as a time of the
/// format; hours, minutes, seconds and frames must be in range and must not be a
/// number that drop-frame counting leaves out. On failure none, and why in `error`.
std::optional<SMPTETime> VLTimeFromText(const std::string& text, std::uint32_t format,
                                        std::string& error);

/// Reads "-12dB" or "-12 dB", at most 0 dB, as a part of full scale. On failure none, and
/// why in `error`.
std::optional<float> VLLevelFromText(const std::string& text, std::string& error);

/// Reads eight hexadecimal digits, of which the last one is the first group of user bits
/// in the frame. On failure none, and why in `error`.
std::optional<std::array<std::uint8_t, kLTCUserBytes>> VLUserBitsFromText(const std::string& text,
                                                                          std::string& error);

/// The name of a format on the command line, "29.97df" for instance.
const char* VLFormatName(std::uint32_t format);

}  // namespace velor
