// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/host/WeakSelf.h"
#include "platform/media/FrameCell.h"
#include "platform/media/Player.h"
#include "platform/media/PlayerDelegate.h"

namespace velor::media {

/// What is in a clip, and how long a player takes for it.
struct SimulatedClip {
  MediaTime duration = std::chrono::seconds(10);
  std::string title;
  double frameRate = 25;                    ///< NaN: no video
  std::vector<std::size_t> channels = {2};  ///< of each track of sound
  std::string error;                        ///< not empty: it cannot be opened
  MediaTime openTime = std::chrono::milliseconds(30);
  MediaTime seekTime = std::chrono::milliseconds(150);
};

/// A player whose clip is made up. It takes its time to open and to seek, as others do, and
/// keeps to its timeline to the nanosecond, unless it drifts.
class SimulatedPlayer final : public Player {
 public:
  /// A call of `setRate` with a position.
  struct Start {
    float rate;
    MediaTime time;
    std::uint64_t hostTime;
  };

  SimulatedPlayer(SimulatedClip clip, bool wantsVideo, PlayerDelegate& delegate);

  PlayerStatus status() const override { return mStatus; }
  std::string error() const override { return mClip.error; }
  MediaTime duration() const override;
  std::string title() const override { return mClip.title; }
  double nominalFrameRate() const override { return mClip.frameRate; }
  std::size_t audioTrackCount() const override { return mClip.channels.size(); }
  std::size_t audioChannelCount(std::size_t track) const override {
    return mClip.channels.at(track);
  }
  float rate() const override;
  MediaTime currentTime() const override;
  void setRate(float rate) override;
  void setRate(float rate, MediaTime time, std::uint64_t hostTime) override;
  void seekToTime(MediaTime time, std::function<void(bool)> completion) override;
  void stepByCount(int frames) override;
  float volume() const override { return mVolume; }
  void setVolume(float volume) override;
  void setAudioTap(std::size_t track, std::shared_ptr<AudioTap> tap) override;
  std::shared_ptr<const VideoFrame> takeFrame() override { return mFrames.take(); }
  std::uint64_t droppedFrames() const override { return mFrames.replaced(); }

  // --- for tests

  const std::vector<Start>& starts() const noexcept { return mStarts; }
  /// From now on the timeline runs off by so much, while the rate says nothing of it: 0.001 is
  /// 1 ms a second.
  void setDrift(double drift);
  /// The file has gone.
  void fail(const std::string& error);

 private:
  struct Timeline {
    float rate = 0;
    double position = 0;  // ns, at the host time
    std::uint64_t hostTime = 0;
    double drift = 0;

    double at(std::uint64_t now) const;
  };

  void open();
  Timeline timeline() const;
  void setTimeline(float rate, double position, std::uint64_t hostTime);
  void beginSeek(std::function<void(bool)> completion);
  void endSeek(std::uint64_t seek);
  void replaceSeek();
  void tick(std::uint64_t run);
  void playBlock();
  void showFrame();
  template <class Call>
  void report(Call call);

  SimulatedClip mClip;
  const bool mWantsVideo;
  PlayerDelegate& mDelegate;
  PlayerStatus mStatus = PlayerStatus::unknown;
  mutable std::mutex mMutex;
  Timeline mTimeline;  // under mMutex
  std::vector<Start> mStarts;
  float mVolume = 1;
  std::vector<std::shared_ptr<AudioTap>> mTaps;
  std::uint64_t mSeek = 0;  // counts
  bool mIsSeeking = false;
  std::function<void(bool)> mCompletion;  // of the seek under way
  std::uint64_t mRun = 0;                 // counts the changes of the timeline
  MediaTime mShown{-1};
  FrameCell mFrames;
  const host::WeakSelf<SimulatedPlayer> mSelf{this};
};

}  // namespace velor::media
