// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Velor/app/VLOSCOptions.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Error.h"

namespace velor {

/// Times as they were typed: a format makes them times.
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

/// Fails when one of them is not a time of the format.
Expected<VLTimes> VLTimesFromWords(const VLTimeWords& words, std::uint32_t format);

/// A clip that the command line names.
struct VLMediaWords {
  std::string path;
  std::optional<std::string> start;  ///< the timecode of its first frame, as typed; else 0
};

/// Reads CLIP[@TIME]. The last "@" separates, since a path may have others.
Expected<VLMediaWords> VLMediaWordsFromText(const std::string& text);

/// The options of a run, checked; no two contradict each other. What is not given stays as
/// the document has it. Ports and times are as they were typed; times are checked against
/// the format when one is given.
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
  std::optional<bool> ltcCondition;
  VLOSCOptions osc;
  std::vector<VLMediaWords> media;
  /// The screen for the clips, by name or number, instead of windows; empty for the first one.
  std::optional<std::string> mediaFullscreen;
};

}  // namespace velor
