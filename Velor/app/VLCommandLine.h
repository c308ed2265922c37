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
#include "Velor/app/VLOSCOptions.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// Times as they were typed, which mean nothing without a format.
struct VLTimeWords {
  std::optional<std::string> start;
  std::optional<std::string> offset;
  std::optional<std::string> stopAt;
  std::optional<std::pair<std::string, std::string>> loop;
};

/// Times of one format.
struct VLTimes {
  std::optional<SMPTETime> start;
  std::optional<SMPTETime> offset;
  std::optional<SMPTETime> stopAt;
  std::optional<std::pair<SMPTETime, SMPTETime>> loop;
};

/// None, and why in `error`, when one of them is no time of the format.
std::optional<VLTimes> VLTimesFromWords(const VLTimeWords& words, std::uint32_t format,
                                        std::string& error);

/// What the command line asks for, checked, and nothing contradicts anything else. What
/// is not given stays as the document has it. Ports are as they were typed, and so are
/// times, which are checked against the format when one is given.
struct VLOptions {
  static constexpr float kLTCLevel = 0.1F;   // of full scale, of a new generator
  static constexpr int kFreewheel = 5;       // seconds, of a new reader
  static constexpr double kMaxPreroll = 60;  // seconds

  bool headless = false;
  std::optional<std::string> file;
  bool recover = false;
  bool fresh = false;  // without the last state
  bool keep = false;   // save the devices, switches, hosts and targets that options make
  bool wait = false;   // for ports and devices that are missing
  std::optional<bool> exactDrop;
  bool autoFormat = false;
  bool ignoreLoops = false;
  bool list = false;
  bool play = false;
  std::optional<std::uint32_t> format;
  VLTimeWords times;
  std::vector<std::string> mtcOut;
  std::optional<std::string> syncSource;
  bool arm = false;
  std::optional<double> ratePercent;
  std::optional<double> preroll;          // seconds
  std::optional<std::uint64_t> playMode;  // of the clock
  std::vector<std::string> ltcOut;        // DEVICE:CHANNEL, as typed
  std::optional<float> ltcLevel;
  std::optional<std::uint32_t> ltcUserBits;  // the first group lowest
  std::optional<std::string> ltcIn;          // DEVICE:CHANNEL, as typed
  std::optional<int> freewheel;              // seconds; -1 without end
  VLOSCOptions osc;
};

/// The options, or those of one of the commands, or what to print and with which status
/// to end.
struct VLCommandLine {
  std::optional<VLOptions> options;
  std::optional<VLEncodeOptions> encode;
  std::optional<VLDecodeOptions> decode;
  std::optional<std::string> inspect;  // a document
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
