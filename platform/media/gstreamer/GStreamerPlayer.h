// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/host/Queue.h"
#include "platform/host/Seqlock.h"
#include "platform/host/WeakSelf.h"
#include "platform/media/FrameCell.h"
#include "platform/media/Player.h"
#include "platform/media/PlayerDelegate.h"
#include "platform/media/gstreamer/GStreamerPipeline.h"
#include "platform/media/gstreamer/SoundOutput.h"

namespace velor::media {

/// A player over a GStreamer pipeline. What it says of its time it knows without asking the
/// pipeline: that follows the timeline, on the player's queue "velor.player".
class GStreamerPlayer final : public Player, private PipelineEvents {
 public:
  GStreamerPlayer(PlayerRequest request, PlayerDelegate& delegate);
  ~GStreamerPlayer() override;

  PlayerStatus status() const override { return mStatus; }
  std::string error() const override { return mError; }
  MediaTime duration() const override { return mContents.duration; }
  std::string title() const override { return mContents.title; }
  double nominalFrameRate() const override { return mContents.frameRate; }
  std::size_t audioTrackCount() const override { return mContents.audioChannels > 0 ? 1 : 0; }
  std::size_t audioChannelCount(std::size_t track) const override {
    return track == 0 ? mContents.audioChannels : 0;
  }

  float rate() const override { return static_cast<float>(mTimeline.load().rate); }
  MediaTime currentTime() const override;
  void setRate(float rate) override;
  void setRate(float rate, MediaTime time, std::uint64_t hostTime) override;
  void seekToTime(MediaTime time, std::function<void(bool finished)> completion) override;
  void stepByCount(int frames) override;

  float volume() const override { return mSound.volume.load(); }
  void setVolume(float volume) override;
  void setAudioTap(std::size_t track, std::shared_ptr<AudioTap> tap) override;

  std::shared_ptr<const VideoFrame> takeFrame() override { return mFrames.take(); }
  std::uint64_t droppedFrames() const override { return mFrames.replaced() + mLateFrames.load(); }

 private:
  struct Seek {
    std::uint64_t serial = 0;
    MediaTime time{};
    std::function<void(bool)> completion;
  };

  void clipIsReady(const ClipContents& contents) override;
  void clipFailed(const std::string& reason) override;
  void seekEnded(std::uint64_t serial, bool isDone) override;
  void clipEnded(std::uint64_t serial) override;
  void frameArrived(std::shared_ptr<const VideoFrame> frame, std::uint64_t late) override;
  std::shared_ptr<SoundRing> soundBegins(std::vector<SoundSide> sides, double rate) override;
  std::shared_ptr<AudioTap> audioTap() override;

  void open(const PlayerRequest& request);
  void follow(const PlayerTimeline& timeline, bool isSeek);
  void store(const PlayerTimeline& timeline);
  void endSeek(bool isDone);
  template <class Call>
  void report(Call call);

  const PlayerRequest mRequest;
  PlayerDelegate& mDelegate;

  // Main.
  PlayerStatus mStatus = PlayerStatus::unknown;
  std::string mError;
  ClipContents mContents;
  std::optional<Seek> mSeek;
  FrameCell mFrames;

  host::Seqlocked<PlayerTimeline> mTimeline;  // written on main
  std::atomic<std::uint64_t> mSerial{0};      // of the latest command; written on main
  std::atomic<MediaTime> mEnd{MediaTime(0)};  // written on main
  std::atomic<std::uint64_t> mLateFrames{0};
  SoundControl mSound;
  std::mutex mTapMutex;
  std::shared_ptr<AudioTap> mTap;

  // The queue's. The sound before what plays it.
  bool mIsOpened = false;  // or being tried with its video
  std::shared_ptr<SoundRing> mRing;
  std::unique_ptr<SoundOutput> mOutput;
  std::unique_ptr<GStreamerPipeline> mPipeline;
  std::unique_ptr<host::Queue> mQueue;

  const host::WeakSelf<GStreamerPlayer> mSelf{this};  // main
};

}  // namespace velor::media
