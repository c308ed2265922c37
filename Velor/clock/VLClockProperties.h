// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Queue.h"
#include "platform/host/Seqlock.h"

namespace velor {

/// The times and settings of the clock. All times have the clock's format. They are
/// written on the clock's queue and read anywhere; play mode and pre-roll are plain
/// words, written by the thread that sets them. Observers get each change.
class VLClockProperties : public KVObservable {
 public:
  /// Where it last started from, or was last set to while it stood.
  SMPTETime startTimeSMPTE() const noexcept { return _startTime.load(); }

  /// A format code (SMPTETime.h).
  std::uint32_t smpteFormat() const noexcept { return _time.load().mType; }

  /// Added to what goes out, and nowhere else; standing receivers learn of it at
  /// the next locate. Raises unless valid and of the clock's format. Waits for the
  /// queue.
  void setSmpteOffset(const SMPTETime& smpteOffset);
  SMPTETime smpteOffset() const noexcept { return _offset.load(); }

  // --- play mode and its points ---

  /// Any value is stored; from the next tick on. Any thread.
  void setPlayMode(std::uint64_t playMode);
  std::uint64_t playMode() const noexcept { return _playMode.load(); }
  /// Stores one of the four play modes, ignores others. Waits for the queue.
  void setPlaybackMode(std::uint64_t playbackMode);
  /// The play mode; normal until one was set.
  std::uint64_t playbackMode() const noexcept;

  /// Any record. A stop is tested for on the frame itself, not past it. Waits for
  /// the queue.
  void setStopTime(const SMPTETime& stopTime);
  SMPTETime stopTime() const noexcept { return _stopTime.load(); }

  static constexpr double kLoopCorrection = 60;  // s

  /// Ignored unless valid and of the clock's format. A point that would end the
  /// loop before it starts moves the other one to 60 s from it. Wait for the queue.
  void setLoopStartTime(const SMPTETime& loopStartTime);
  void setLoopEndTime(const SMPTETime& loopEndTime);
  SMPTETime loopStartTime() const noexcept { return _loopTimes.load().start; }
  SMPTETime loopEndTime() const noexcept { return _loopTimes.load().end; }

  /// Whether a start goes back by the pre-roll time; never by time of day.
  void setPreroll(bool preroll);
  bool preroll() const noexcept { return _preroll.load(); }
  /// Seconds, held to 0 to 60. Raises for NaN and the like.
  void setPrerollTime(double prerollTime);
  double prerollTime() const noexcept { return _prerollTime.load(); }

 protected:
  struct LoopTimes {
    SMPTETime start;
    SMPTETime end;
  };

  /// Format 25, a stop time of one hour, all other times 0. The queue is used from the
  /// first setter on.
  explicit VLClockProperties(host::Queue& queue);
  ~VLClockProperties() = default;

  /// All times keep their real time, not their digits. On the queue.
  void convertTimes(std::uint32_t smpteFormat);

  host::Seqlocked<SMPTETime> _time;
  host::Seqlocked<SMPTETime> _offset;
  host::Seqlocked<SMPTETime> _startTime;
  host::Seqlocked<SMPTETime> _stopTime;
  host::Seqlocked<LoopTimes> _loopTimes;
  std::atomic<std::uint64_t> _playMode{0};
  std::atomic<bool> _preroll{false};
  std::atomic<double> _prerollTime{0};

 private:
  void moveLoopPoint(SMPTETime LoopTimes::*moved, SMPTETime LoopTimes::*other, double distance,
                     const SMPTETime& time);

  host::Queue& mQueue;
};

}  // namespace velor
