// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/GStreamerPlayer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/host/Host.h"
#include "platform/media/gstreamer/MovieFile.h"

namespace velor::media {
namespace {

// A step of a clip without video, or with frames of no fixed length.
constexpr double kStepSeconds = 0.04;

// A smaller difference is no jump: the caller's own look at the time is as old, ns.
constexpr std::int64_t kJump = 5'000'000;

std::uint64_t now() {
  return host::current().AudioGetCurrentHostTime();
}

float limited(float rate) {
  return rate > 0 ? std::min(rate, Player::kMostRate) : 0;
}

}  // namespace

GStreamerPlayer::GStreamerPlayer(PlayerRequest request, PlayerDelegate& delegate)
    : mRequest(std::move(request)),
      mDelegate(delegate),
      mFrames([this] { mDelegate.playerHasFrame(*this); }),
      mQueue(std::make_unique<host::Queue>("velor.player")) {
  mQueue->async([this] { open(mRequest); });
}

GStreamerPlayer::~GStreamerPlayer() {
  mQueue->sync([this] {
    mPipeline.reset();
    mOutput.reset();
  });
  mQueue.reset();
}

// --- on the main queue

MediaTime GStreamerPlayer::currentTime() const {
  const PlayerTimeline timeline = mTimeline.load();
  return std::min(MediaTime(timeline.at(now())), mEnd.load());
}

// A report of later, and never after the player's end.
template <class Call>
void GStreamerPlayer::report(Call call) {
  host::current().mainQueue().async(mSelf.job(std::move(call)));
}

void GStreamerPlayer::store(const PlayerTimeline& timeline) {
  const bool hasNewRate = timeline.rate != mTimeline.load().rate;
  mTimeline.store(timeline);
  mSound.timeline.store(timeline);
  if (hasNewRate) {
    report([](GStreamerPlayer& self) { self.mDelegate.playerRateDidChange(self); });
  }
}

void GStreamerPlayer::follow(const PlayerTimeline& timeline, bool isSeek) {
  store(timeline);
  const std::uint64_t serial = ++mSerial;
  mQueue->async([this, timeline, isSeek, serial] {
    // Of many that wait, as while a position is dragged, only the latest is worth its seek.
    if (serial == mSerial.load()) {
      mPipeline->follow(timeline, isSeek, serial);
    }
  });
}

void GStreamerPlayer::setRate(float rate) {
  if (mStatus != PlayerStatus::readyToPlay) {
    return;
  }
  const std::uint64_t time = now();
  const PlayerTimeline before = mTimeline.load();
  // A pause before the clip's start leaves it at its start.
  const std::int64_t at = std::min(before.at(time), mContents.duration.count());
  const double next = limited(rate);
  if (next == before.rate) {
    return;
  }
  follow({next, next > 0 ? at : std::max<std::int64_t>(at, 0), time}, mSeek.has_value());
  if (mSeek) {
    mSeek->serial = mSerial.load();
  }
}

void GStreamerPlayer::setRate(float rate, MediaTime time, std::uint64_t hostTime) {
  if (mStatus != PlayerStatus::readyToPlay) {
    return;
  }
  endSeek(false);
  const PlayerTimeline next{limited(rate), time.count(), hostTime};
  if (!(next.rate > 0)) {
    store({0, mTimeline.load().at(now()), now()});
    seekToTime(time, [](bool) {});
    return;
  }
  const std::int64_t was = currentTime().count();
  follow(next, false);
  if (const MediaTime is = currentTime(); std::abs(is.count() - was) > kJump) {
    report([is](GStreamerPlayer& self) { self.mDelegate.playerDidJump(self, is); });
  }
}

void GStreamerPlayer::seekToTime(MediaTime time, std::function<void(bool finished)> completion) {
  if (mStatus != PlayerStatus::readyToPlay) {
    report([completion = std::move(completion)](GStreamerPlayer&) { completion(false); });
    return;
  }
  endSeek(false);
  time = std::clamp(time, MediaTime(0), mContents.duration);
  follow({mTimeline.load().rate, time.count(), now()}, true);
  mSeek = Seek{mSerial.load(), time, std::move(completion)};
}

void GStreamerPlayer::stepByCount(int frames) {
  if (mStatus != PlayerStatus::readyToPlay) {
    return;
  }
  const double length = mContents.frameRate > 0 ? 1 / mContents.frameRate : kStepSeconds;
  const double at = static_cast<double>(currentTime().count()) * 1e-9;
  // A position within a hundredth of the next frame is that frame's.
  const double target = (std::floor(at / length + 0.01) + frames) * length;
  if (mTimeline.load().rate > 0) {
    setRate(0);
  }
  seekToTime(MediaTime(std::llround(target * 1e9)), [](bool) {});
}

void GStreamerPlayer::endSeek(bool isDone) {
  if (auto seek = std::exchange(mSeek, std::nullopt)) {
    report([seek = std::move(*seek), isDone](GStreamerPlayer& self) {
      if (isDone) {
        self.mDelegate.playerDidJump(self, seek.time);
      }
      seek.completion(isDone);
    });
  }
}

void GStreamerPlayer::setVolume(float volume) {
  mSound.volume = volume > 0 ? std::min(volume, 1.0F) : 0;
}

void GStreamerPlayer::setAudioTap(std::size_t track, std::shared_ptr<AudioTap> tap) {
  if (track == 0) {
    const std::lock_guard lock(mTapMutex);
    mTap.swap(tap);
  }
}

// --- on the player's queue

void GStreamerPlayer::open(const PlayerRequest& request) {
  PipelineEvents& events = *this;
  mPipeline.reset();
  mPipeline = std::make_unique<GStreamerPipeline>(*mQueue, request, events);
}

void GStreamerPlayer::clipIsReady(const ClipContents& contents) {
  mIsOpened = true;
  report([contents](GStreamerPlayer& self) {
    self.mContents = contents;
    self.mEnd = contents.duration;
    self.mStatus = PlayerStatus::readyToPlay;
    self.mDelegate.playerStatusDidChange(self);
  });
}

void GStreamerPlayer::clipFailed(const std::string& reason) {
  // A clip without sound is no clip to a pipeline that decodes sound alone; with its video
  // it has a length and a time.
  if (!mRequest.wantsVideo && !std::exchange(mIsOpened, true)) {
    mQueue->async([this] { open({mRequest.path, true}); });
    return;
  }
  const std::string cut = MovieFile::problem(mRequest.path);
  report([reason = cut.empty() ? reason : cut](GStreamerPlayer& self) {
    self.mError = "cannot play '" + self.mRequest.path.string() + "': " + reason;
    self.endSeek(false);
    self.store({0, self.currentTime().count(), now()});
    self.mStatus = PlayerStatus::failed;
    self.mDelegate.playerStatusDidChange(self);
  });
}

void GStreamerPlayer::seekEnded(std::uint64_t serial, bool isDone) {
  report([serial, isDone](GStreamerPlayer& self) {
    if (self.mSeek && self.mSeek->serial == serial) {
      self.endSeek(isDone);
    }
  });
}

void GStreamerPlayer::clipEnded(std::uint64_t serial) {
  report([serial](GStreamerPlayer& self) {
    if (serial == self.mSerial.load()) {
      self.store({0, self.mContents.duration.count(), now()});
    }
  });
}

// --- in GStreamer's threads

void GStreamerPlayer::frameArrived(std::shared_ptr<const VideoFrame> frame, std::uint64_t late) {
  if (mRequest.wantsVideo) {
    mLateFrames = late;
    mFrames.put(std::move(frame));
  }
}

std::shared_ptr<SoundRing> GStreamerPlayer::soundBegins(std::vector<SoundSide> sides, double rate) {
  auto ring = std::make_shared<SoundRing>(std::move(sides), rate);
  mQueue->async([this, ring] {
    mOutput.reset();
    mRing = ring;
    mOutput = std::make_unique<SoundOutput>(*mQueue, *mRing, mSound);
  });
  return ring;
}

std::shared_ptr<AudioTap> GStreamerPlayer::audioTap() {
  const std::lock_guard lock(mTapMutex);
  return mTap;
}

}  // namespace velor::media
