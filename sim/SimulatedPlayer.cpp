// SPDX-License-Identifier: MIT
#include "sim/SimulatedPlayer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Queue.h"

namespace velor::media {
namespace {

constexpr MediaTime kTick = std::chrono::milliseconds(10);
constexpr std::size_t kFramesPerTick = 480;
// A larger jump needs a seek.
constexpr double kLargestShift = 400e6;  // ns

host::MainQueue& mainQueue() {
  return host::current().mainQueue();
}
std::uint64_t now() {
  return host::current().AudioGetCurrentHostTime();
}
std::uint64_t ticksOf(MediaTime time) {
  return static_cast<std::uint64_t>(time.count());
}

}  // namespace

double SimulatedPlayer::Timeline::at(std::uint64_t now) const {
  const auto elapsed = static_cast<double>(static_cast<std::int64_t>(now - hostTime));
  return rate == 0 ? position : position + (static_cast<double>(rate) + drift) * elapsed;
}

SimulatedPlayer::SimulatedPlayer(SimulatedClip clip, bool wantsVideo, PlayerDelegate& delegate)
    : mClip(std::move(clip)),
      mWantsVideo(wantsVideo && !std::isnan(mClip.frameRate)),
      mDelegate(delegate),
      mTaps(mClip.channels.size()),
      mFrames([this] { mDelegate.playerHasFrame(*this); }) {
  mainQueue().after(ticksOf(mClip.openTime), mSelf.job([](auto& self) { self.open(); }));
}

template <class Call>
void SimulatedPlayer::report(Call call) {
  mainQueue().async(mSelf.job([call](auto& self) { call(self.mDelegate, self); }));
}

void SimulatedPlayer::open() {
  if (!mClip.error.empty()) {
    fail(mClip.error);
    return;
  }
  mStatus = PlayerStatus::readyToPlay;
  showFrame();
  mDelegate.playerStatusDidChange(*this);
}

void SimulatedPlayer::fail(const std::string& error) {
  mClip.error = error;
  mStatus = PlayerStatus::failed;
  report([](auto& delegate, auto& self) { delegate.playerStatusDidChange(self); });
}

MediaTime SimulatedPlayer::duration() const {
  return mStatus == PlayerStatus::readyToPlay ? mClip.duration : MediaTime{};
}

// --- the timeline

SimulatedPlayer::Timeline SimulatedPlayer::timeline() const {
  const std::lock_guard lock(mMutex);
  return mTimeline;
}

float SimulatedPlayer::rate() const {
  return timeline().rate;
}

MediaTime SimulatedPlayer::currentTime() const {
  const double position = timeline().at(now());
  return std::min(MediaTime(std::llround(position)), mClip.duration);
}

void SimulatedPlayer::setTimeline(float rate, double position, std::uint64_t hostTime) {
  const float former = this->rate();
  const float limited = rate > 0 ? std::min(rate, kMostRate) : 0.0F;
  {
    const std::lock_guard lock(mMutex);
    mTimeline.rate = limited;
    mTimeline.position = position;
    mTimeline.hostTime = hostTime;
  }
  ++mRun;
  if (limited != former) {
    report([](auto& delegate, auto& self) { delegate.playerRateDidChange(self); });
  }
  if (limited != 0) {
    tick(mRun);
  }
}

void SimulatedPlayer::setDrift(double drift) {
  const double position = timeline().at(now());
  const std::lock_guard lock(mMutex);
  mTimeline.position = position;
  mTimeline.hostTime = now();
  mTimeline.drift = drift;
}

void SimulatedPlayer::setRate(float rate) {
  if (mStatus == PlayerStatus::readyToPlay) {
    setTimeline(rate, static_cast<double>(currentTime().count()), now());
  }
}

void SimulatedPlayer::setRate(float rate, MediaTime time, std::uint64_t hostTime) {
  mStarts.push_back({rate, time, hostTime});
  if (mStatus != PlayerStatus::readyToPlay) {
    return;
  }
  const double before = timeline().at(now());
  replaceSeek();
  setTimeline(rate, static_cast<double>(time.count()), hostTime);
  if (std::abs(timeline().at(now()) - before) > kLargestShift) {
    beginSeek({});
  }
}

// --- seeks

void SimulatedPlayer::seekToTime(MediaTime time, std::function<void(bool)> completion) {
  if (mStatus != PlayerStatus::readyToPlay) {
    mainQueue().async(mSelf.job([completion](auto& /*self*/) { completion(false); }));
    return;
  }
  replaceSeek();
  const MediaTime limited = std::clamp(time, MediaTime{}, mClip.duration);
  setTimeline(rate(), static_cast<double>(limited.count()), now());
  beginSeek(std::move(completion));
}

void SimulatedPlayer::stepByCount(int frames) {
  setRate(0.0F);
  const double frame = std::isnan(mClip.frameRate) ? 40e6 : 1e9 / mClip.frameRate;
  const double shown = std::floor(static_cast<double>(currentTime().count()) / frame + 1e-6);
  seekToTime(MediaTime(std::llround((shown + frames) * frame)), [](bool /*finished*/) {});
}

void SimulatedPlayer::beginSeek(std::function<void(bool)> completion) {
  mIsSeeking = true;
  mCompletion = std::move(completion);
  mainQueue().after(ticksOf(mClip.seekTime),
                    mSelf.job([seek = ++mSeek](auto& self) { self.endSeek(seek); }));
}

void SimulatedPlayer::replaceSeek() {
  mIsSeeking = false;
  ++mSeek;
  if (const auto completion = std::exchange(mCompletion, {})) {
    mainQueue().async(mSelf.job([completion](auto& /*self*/) { completion(false); }));
  }
}

void SimulatedPlayer::endSeek(std::uint64_t seek) {
  if (seek != mSeek || !mIsSeeking) {
    return;
  }
  mIsSeeking = false;
  const auto completion = std::exchange(mCompletion, {});
  showFrame();
  mDelegate.playerDidJump(*this, currentTime());
  if (completion) {
    completion(true);
  }
}

// --- what is heard and shown

void SimulatedPlayer::tick(std::uint64_t run) {
  if (run != mRun) {
    return;
  }
  if (currentTime() >= mClip.duration) {
    setTimeline(0, static_cast<double>(mClip.duration.count()), now());
    showFrame();
    return;
  }
  if (!mIsSeeking) {
    showFrame();
    playBlock();
  }
  const double left = (static_cast<double>(mClip.duration.count()) - timeline().at(now())) /
                      static_cast<double>(rate());
  const auto delay = std::min(kTick, MediaTime(std::llround(left) + 1));
  mainQueue().after(ticksOf(delay), mSelf.job([run](auto& self) { self.tick(run); }));
}

void SimulatedPlayer::playBlock() {
  for (std::size_t track = 0; track < mTaps.size(); ++track) {
    if (mTaps[track] == nullptr || currentTime() < MediaTime{}) {
      continue;
    }
    std::vector<std::array<float, kFramesPerTick>> samples(mClip.channels[track]);
    std::vector<float*> channels;
    for (auto& channel : samples) {
      channel.fill(1);
      channels.push_back(channel.data());
    }
    const host::RealtimeContext realtime;
    mTaps[track]->process(realtime, channels, kFramesPerTick, kFramesPerTick);
  }
}

void SimulatedPlayer::showFrame() {
  if (!mWantsVideo) {
    return;
  }
  static constexpr std::uint8_t kPixel[4] = {};
  const double frame = 1e9 / mClip.frameRate;
  const auto last = std::floor((static_cast<double>(mClip.duration.count()) - 1) / frame);
  const double number = std::floor(static_cast<double>(currentTime().count()) / frame + 1e-6);
  const MediaTime start(std::llround(std::clamp(number, 0.0, last) * frame));
  if (start != std::exchange(mShown, start)) {
    mFrames.put(std::make_shared<VideoFrame>(VideoFrame{start, 1, 1, 4, kPixel, 1, nullptr}));
  }
}

// --- sound

void SimulatedPlayer::setVolume(float volume) {
  mVolume = volume > 0 ? std::min(volume, 1.0F) : 0.0F;
}

void SimulatedPlayer::setAudioTap(std::size_t track, std::shared_ptr<AudioTap> tap) {
  mTaps.at(track) = std::move(tap);
}

}  // namespace velor::media
