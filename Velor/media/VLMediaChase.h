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
#include "Velor/media/VLTimecodeLine.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Queue.h"
#include "platform/media/Player.h"

namespace velor {

/// Added to the position that a report gives when the player starts: a block of MTC takes two
/// frames to arrive, 80 ms at 25 frames a second, and readers show its time from then on.
inline constexpr std::chrono::milliseconds kVLMediaStartOffset{-80};

/// Seconds by which player and timecode may differ while in step.
inline constexpr double kVLMediaLargestOffset = 0.08;

/// By how much the rate may be corrected after a start: a start takes place before the rate of
/// a source is fully known that is 2 per cent off.
inline constexpr double kVLMediaLargestTrim = 0.0025;

/// Seconds off the line through the reports at which the player is corrected.
inline constexpr double kVLMediaFollowedOffset = 0.25e-3;

/// Keeps one player in step with MTC. A report of MTC inside the clip starts the player at the
/// place and rate that the report gives. One that finds a difference of kVLMediaLargestOffset
/// later ends this, and the one after it starts the player again.
///
/// The rate of a start is known from a few blocks, each of which may come early or late, so it
/// is off by some 0.01 per cent: some milliseconds after a minute. With `adjustSpeed`, the
/// reports since the start therefore correct place and rate, by no more than
/// kVLMediaLargestTrim; a source that changes its speed by more is started again. Without
/// `adjustSpeed` the player runs by itself.
///
/// Starts are computed in whole milliseconds, from the seconds of both times, whatever
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
    bool hasFailed = false;  ///< the clip cannot be played, which has been logged
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
  void follow(const SMPTETime& time, std::uint64_t timestamp) KV_RUNS_ON(mQueue);
  float rate() const KV_RUNS_ON(mQueue);
  std::chrono::milliseconds positionOf(const SMPTETime& time) const KV_RUNS_ON(mQueue);
  void post(Post call);

  host::Queue& mQueue;
  const std::weak_ptr<VLMediaChaseDelegate> mDelegate;
  VLMediaChaseState mState KV_ON_QUEUE(mQueue) = VLMediaChaseState::outOfStep;
  Settings mSettings KV_ON_QUEUE(mQueue);
  const media::Player* mPlayer KV_ON_QUEUE(mQueue) = nullptr;
  // What the player was told, and what the reports since the start say. `mFollows` is false
  // while the player runs by itself.
  bool mFollows KV_ON_QUEUE(mQueue) = false;
  VLTimecodeLine::Place mTold KV_ON_QUEUE(mQueue);
  double mStartRate KV_ON_QUEUE(mQueue) = 1;
  VLTimecodeLine mLine KV_ON_QUEUE(mQueue);
  // Starts that the main queue has not carried out yet: until then the player says nothing of
  // the chase.
  const std::shared_ptr<std::atomic<int>> mPendingStarts = std::make_shared<std::atomic<int>>(0);
};

}  // namespace velor
