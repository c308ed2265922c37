// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Kv-Appkit/KVLineFit.h"
#include "Velor/mtc/mtc_wire.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The measurements of VLMTCAnalysis. Times are seconds, counted from the first message.
struct VLMTCReport {
  static constexpr std::size_t kListed = 1000;  // events

  /// About a second of quarter frames without a gap.
  struct Window {
    double begin = 0;
    double end = 0;
    double spacing = 0;  ///< mean
    double jitter = 0;   ///< deviation from an even spacing, rms
    double jitterPeak = 0;
  };
  enum class Kind : std::uint8_t { missing, outOfOrder, jump, stop };
  struct Event {
    Kind kind = Kind::missing;
    double seconds = 0;
    std::uint64_t count = 0;  ///< missing quarter frames
    double length = 0;        ///< length of a stop
    SMPTETime before{};       ///< time before a jump; invalid for other kinds
    SMPTETime behind{};
  };

  double duration = 0;
  std::uint64_t quarterFrames = 0;
  std::uint64_t reverse = 0;  ///< quarter frames that ran backwards
  std::uint64_t fullFrames = 0;
  std::uint64_t blocks = 0;             ///< complete ones
  std::optional<std::uint32_t> format;  ///< none without a complete block
  SMPTETime first{};
  SMPTETime last{};
  double rate = 0;         ///< frames per second
  double deviation = 0;    ///< from the format's rate, ppm
  double uncertainty = 0;  ///< standard deviation of `deviation`, ppm
  double spacing = 0;
  double shortest = 0;
  double longest = 0;  ///< longest spacing, without stops and missing quarter frames
  double jitter = 0;
  double jitterPeak = 0;
  std::uint64_t missing = 0;           ///< quarter frames
  std::uint64_t outOfOrder = 0;        ///< quarter frames
  std::uint64_t blocksOutOfOrder = 0;  ///< blocks whose time does not follow the one before
  std::uint64_t stops = 0;
  std::vector<Event> events;
  std::vector<Window> windows;

  /// One line for people.
  std::string verdict() const;
};

/// Measures a stream of MIDI Time Code by the arrival of its messages.
///
/// One thread. Realtime-safe: no.
class VLMTCAnalysis {
 public:
  /// Adds one message, of any bytes, that arrived at this host time (ns).
  void add(const std::uint8_t* bytes, std::size_t count, std::uint64_t hostTime);
  VLMTCReport report() const;

 private:
  void addQuarterFrame(std::uint8_t data, double seconds);
  /// How many quarter frames lie from the last one to this: 1 for the next one, 0 for one
  /// that is out of order.
  int stepTo(int piece, double passed);
  void startRow(int piece, std::uint8_t nibble, double seconds);
  void takeSpacing(double seconds, double passed, int step);
  void takePiece(int piece, std::uint8_t nibble, double seconds);
  void closeWindow();
  void addEvent(const VLMTCReport::Event& event);

  VLMTCReport mReport;
  std::optional<std::uint64_t> mFirst;  // host time
  double mLastSeconds = 0;
  int mLastPiece = -1;
  int mDirection = 1;
  bool mMayTurn = false;

  KVLineFit mPlaces;
  double mNumber = 0;
  double mSpacing = 0;  // smoothed
  double mBehind = 0;   // quarter frames for which time passed, but which did not come
  struct Arrival {
    double number;
    double seconds;
  };
  std::vector<Arrival> mWindow;
  double mSquares = 0;
  double mJitters = 0;

  std::array<std::uint8_t, kMTCPieces> mNibbles{};
  int mGathered = 0;  // pieces of the block, in their order
  std::optional<SMPTETime> mBlock;
};

}  // namespace velor
