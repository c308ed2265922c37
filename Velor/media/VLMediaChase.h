// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include "Velor/media/VLMediaChaseDelegate.h"
#include "Velor/media/VLMediaChaseTransitions.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Queue.h"
#include "platform/media/Player.h"

namespace velor {

/// Added to the position that a report gives when the player starts: a block of MTC takes two
/// frames to arrive, 80 ms at 25 frames a second, and readers show its time from then on.
inline constexpr std::chrono::milliseconds kVLMediaStartOffset{-80};

/// Seconds by which player and timecode may differ while in step.
inline constexpr double kVLMediaLargestOffset = 0.08;

/// Keeps one player in step with MTC. It is an open loop with re-synchronisation: a report of
/// MTC inside the clip starts the player at the place and rate that the report gives, and the
/// player then runs by itself; further reports only measure. One that finds a difference of
/// kVLMediaLargestOffset ends this, and the one after it starts the player again.
///
/// Positions are computed in whole milliseconds, from the seconds of both times, whatever
/// their formats.
///
/// Queue: "velor.mediainputs", given to the constructor. Nothing waits: what the player has to
/// do is posted to the main queue, and the settings come from there as posts.
class VLMediaChase {
 public:
  /// The window's settings and the clip's length, by which the chase judges each report.
  struct Settings {
    bool online = true;
    bool adjustSpeed = false;
    bool isReady = false;
    SMPTETime clipStartTime{};
    double assetDuration = std::numeric_limits<double>::quiet_NaN();  ///< seconds
    std::string description;
  };

  VLMediaChase(host::Queue& queue, std::weak_ptr<VLMediaChaseDelegate> delegate);
  VLMediaChase(const VLMediaChase&) = delete;
  VLMediaChase& operator=(const VLMediaChase&) = delete;

  // --- from the parser, on the queue

  /// A report: a time, the host time (ns) at which it was, and the source's deviation from its
  /// nominal speed (0.01 is one per cent fast).
  void copyTime(const SMPTETime& time, std::uint64_t timestamp, double deviation);
  /// A full frame. Leaves the state, and does not ask whether the window is on line.
  void gotoTime(const SMPTETime& time);
  /// MTC has ended.
  void parserDidStop();

  // --- on the queue

  void setSettings(Settings settings);
  /// Null for none; the former one is not used any more when this returns.
  void setPlayer(const media::Player* player);
  void startTimeTyped();
  bool synced() const;

 private:
  using Post = std::function<void(VLMediaChaseDelegate&)>;

  bool change(VLMediaChaseEvent event) KV_RUNS_ON(mQueue);
  void start(const SMPTETime& time, std::chrono::milliseconds position, std::uint64_t timestamp,
             double deviation) KV_RUNS_ON(mQueue);
  void measure(const SMPTETime& time, std::chrono::milliseconds position) KV_RUNS_ON(mQueue);
  float rate() const KV_RUNS_ON(mQueue);
  std::chrono::milliseconds positionOf(const SMPTETime& time) const KV_RUNS_ON(mQueue);
  void post(Post call);

  host::Queue& mQueue;
  const std::weak_ptr<VLMediaChaseDelegate> mDelegate;
  VLMediaChaseState mState KV_ON_QUEUE(mQueue) = VLMediaChaseState::outOfStep;
  Settings mSettings KV_ON_QUEUE(mQueue);
  const media::Player* mPlayer KV_ON_QUEUE(mQueue) = nullptr;
  // Starts that the main queue has not carried out yet: until then the player says nothing of
  // the chase.
  const std::shared_ptr<std::atomic<int>> mPendingStarts = std::make_shared<std::atomic<int>>(0);
};

}  // namespace velor
