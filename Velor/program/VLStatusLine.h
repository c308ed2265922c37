// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kvtimecode/SMPTETime.h"

namespace velor {

/// A port or an audio channel by name, which may be missing for a while.
struct VLNamedPort {
  std::string name;
  bool present = true;
  std::string standIn;  ///< the device in use meanwhile; empty: none
};

/// A generator of LTC: where it should play, and how fast the time comes in.
struct VLLTCOutput {
  VLNamedPort port;
  std::string rate;
};

/// A reader of LTC: where it should listen, and what it reads.
struct VLLTCInput {
  VLNamedPort port;
  SMPTETime time{};
  double speed = 0;  ///< frames a second; 0 while there is none
  std::uint32_t userbits = 0;
  std::uint32_t status = 0;  ///< a status of devices
};

/// The contents of the status line.
struct VLStatus {
  SMPTETime time{};
  std::uint64_t clockStatus = 0;
  std::string notice;  ///< what was decided for the user; empty: nothing
  std::optional<VLNamedPort> source;
  std::vector<VLNamedPort> destinations;
  std::vector<VLLTCOutput> ltc;
  std::optional<VLLTCInput> ltcIn;
  bool isClockUsed = true;  ///< else the reader is all that there is to tell
  std::string server;
  std::uint16_t oscPort = 0;  // 0: no OSC comes in
};

/// A line on the terminal that is written over in place, cut with "..." where it is
/// longer than that is wide; silent where standard output is no terminal.
class VLStatusLine {
 public:
  VLStatusLine();
  /// Leaves the last line standing and goes to the next.
  ~VLStatusLine();
  VLStatusLine(const VLStatusLine&) = delete;
  VLStatusLine& operator=(const VLStatusLine&) = delete;

  bool isVisible() const { return mIsTerminal; }
  void show(const VLStatus& status);
  /// Leaves the line standing and goes to the next, for what others write.
  void leave();

 private:
  void show(const std::string& text);
  // False when the terminal did not take all of it.
  bool writeOut(const std::string& text) const;

  const bool mIsTerminal;
  // Writes without waiting: a terminal that is held (Ctrl-S, a connection that
  // hangs) must not hold the main queue. -1: standard output has to do.
  int mOwn = -1;
  std::string mLast;
  bool mIsWhole = true;
};

}  // namespace velor
