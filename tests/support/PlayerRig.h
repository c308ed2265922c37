// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/SystemHost.h"
#include "platform/media/MediaService.h"
#include "platform/media/gstreamer/GStreamerMedia.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/TestClip.h"

namespace velor::test {

/// Hears the default device and keeps the host times at which clicks leave it.
class ClickEar {
 public:
  explicit ClickEar(audio::AudioService& service) : mClicks(kRoom) {
    using audio::AudioDirection;
    audio::AudioStreamRequest request{AudioDirection::input, "ear", 1, {0}, &ClickEar::hear, this};
    mStream = service.open(service.defaultDevice(AudioDirection::input), request);
  }

  /// Host times, ns, since the last call.
  std::vector<std::uint64_t> take() {
    const std::size_t count = mCount.load();
    std::vector<std::uint64_t> clicks(mClicks.begin() + static_cast<std::ptrdiff_t>(mTaken),
                                      mClicks.begin() + static_cast<std::ptrdiff_t>(count));
    mTaken = count;
    return clicks;
  }
  /// Of all samples so far.
  double peak() const { return mPeak.load(); }

 private:
  static constexpr std::size_t kRoom = 10'000;
  static constexpr std::uint64_t kPause = 300'000'000;

  static void hear(const host::RealtimeContext&, void* self, const audio::AudioTimeStamp& time,
                   std::uint32_t frames, std::span<float* const> channels) noexcept {
    auto& ear = *static_cast<ClickEar*>(self);
    for (std::uint32_t i = 0; i < frames; ++i) {
      const float level = std::fabs(channels[0][i]);
      ear.mPeak = std::max(ear.mPeak.load(), level);
      const std::uint64_t at = time.mHostTime + static_cast<std::uint64_t>(i * 1e9 / 48000);
      const std::size_t count = ear.mCount.load();
      if (level > 0.25F && at > ear.mLast + kPause && count < kRoom) {
        ear.mClicks[count] = ear.mLast = at;
        ear.mCount = count + 1;
      }
    }
  }

  std::vector<std::uint64_t> mClicks;
  std::atomic<std::size_t> mCount{0};
  std::size_t mTaken = 0;
  std::atomic<float> mPeak{0};
  std::uint64_t mLast = 0;
  std::unique_ptr<audio::AudioDeviceStream> mStream;
};

/// A player over the system's host, with its sound on "Velor Loopback", and all that it
/// reported.
class PlayerRig : public media::PlayerDelegate {
 public:
  struct Shown {
    std::uint64_t host = 0;
    int number = -1;
    media::MediaTime time{};
    int width = 0;
  };

  ~PlayerRig() {
    player.reset();
    ear.reset();
    audio::setService(nullptr);
  }

  /// As far as it comes.
  media::PlayerStatus openFully(const std::filesystem::path& file, bool wantsVideo = true) {
    auto made = media.initWithURL({file, wantsVideo}, *this);
    if (!made) {
      error = made.error().text;
      return media::PlayerStatus::failed;
    }
    player = std::move(*made);
    until(25, [this] { return player->status() != media::PlayerStatus::unknown; });
    error = player->error();
    return player->status();
  }

  /// Runs the main queue until the condition holds, at most so many seconds.
  template <class Condition>
  bool until(double seconds, Condition condition) {
    const std::uint64_t end = now() + static_cast<std::uint64_t>(seconds * 1e9);
    while (!condition() && now() < end) {
      host.mainQueue().drainUntil(now() + 5'000'000);
    }
    return condition();
  }
  void run(double seconds) {
    until(seconds, [] { return false; });
  }
  std::uint64_t now() const { return host.AudioGetCurrentHostTime(); }

  void playerStatusDidChange(media::Player&) override {}
  void playerDidJump(media::Player&, media::MediaTime time) override { jumps.push_back(time); }
  void playerRateDidChange(media::Player&) override {}
  void playerHasFrame(media::Player& from) override {
    const std::uint64_t at = now();
    if (const auto frame = from.takeFrame()) {
      shown.push_back({at, TestClip::numberOf(*frame), frame->time, frame->width});
    }
  }

  host::SystemHost host;
  const std::unique_ptr<audio::AudioService> audio =
      audio::serviceOver(std::make_unique<audio::BuiltinAudio>());
  std::unique_ptr<ClickEar> ear = std::make_unique<ClickEar>(*audio);
  media::GStreamerMedia media;
  std::unique_ptr<media::Player> player;
  std::string error;
  std::vector<Shown> shown;
  std::vector<media::MediaTime> jumps;
};

}  // namespace velor::test
