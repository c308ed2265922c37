// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObserverList.h"
#include "Velor/media/VLMediaChase.h"
#include "Velor/media/VLMediaPlaybackMTCIn.h"
#include "Velor/media/VLMediaPlaybackWindowDelegate.h"
#include "Velor/media/VLMediaPlaybackWindowOutlet.h"
#include "Velor/media/VLMediaPlaybackWindowState.h"
#include "Velor/media/VLMediaPlayer.h"
#include "Velor/media/VLMonoSumTap.h"
#include "kvtimecode/KVSMPTETime.h"

namespace velor {

/// One clip that follows the MTC of the shared input, with or without a window. The transport of
/// its player drives the master clock instead while `controlMasterClock` is on.
///
/// Queue: main.
class VLMediaPlaybackWindowController final
    : public VLMediaChaseDelegate,
      private VLMediaPlayerDelegate,
      private media::PlayerDelegate,
      public std::enable_shared_from_this<VLMediaPlaybackWindowController> {
 public:
  using Delegate = std::weak_ptr<VLMediaPlaybackWindowDelegate>;
  using Outlet = std::shared_ptr<VLMediaPlaybackWindowOutlet>;

  /// ns after a stop of ours in which a jump of the position is not the user's.
  static constexpr std::uint64_t kIgnoreAfterStop = 500'000'000;

  /// Publishes the input, so that stored routes find it. Raises KVException "err" where the MIDI
  /// service fails.
  static void createMediaPlaybackMTCIn() { VLMediaPlaybackMTCIn::sharedInput(); }

  /// Its clip starts at the clock's offset. Asks for a file when it is shown.
  static std::shared_ptr<VLMediaPlaybackWindowController> initWithDelegate(Delegate delegate);
  /// As it was encoded, in a document of the folder. Without a clip that is there it is a new one;
  /// it keeps the state until the user picks a clip, or closes the window.
  static std::shared_ptr<VLMediaPlaybackWindowController> initWithEncodedState(
      std::shared_ptr<VLMediaPlaybackWindowState> state, const std::filesystem::path& folder,
      Delegate delegate);
  ~VLMediaPlaybackWindowController() override;

  /// For a document of the folder; empty for none.
  std::shared_ptr<VLMediaPlaybackWindowState> encodedState(
      const std::filesystem::path& folder) const;

  /// The window to show. To be called once, before `showWindow`, or not at all: then the clip
  /// plays without a window.
  void setOutlet(Outlet outlet) { mOutlet = std::move(outlet); }
  /// The first call starts the chase, and the clip or the file panel a moment later.
  void showWindow();
  bool isVisible() const { return mOutlet->isVisible(); }
  void windowWillClose();
  /// The title; "Media Playback" before the window has a clip.
  const std::string& description() const noexcept { return mTitle; }

  /// In place of the clip before. What is wrong with it is shown by the outlet.
  void loadMediumAtURL(const std::filesystem::path& path);
  void runOpenPanel();
  /// Empty without a clip.
  const std::filesystem::path& mediumURL() const noexcept { return mMediumURL; }
  /// Null without a clip.
  VLMediaPlayer* mediaPlayer() const noexcept { return mPlayer.get(); }
  bool isReady() const noexcept { return mIsReady; }
  /// Why the clip cannot be played; empty while it can.
  const std::string& error() const noexcept { return mError; }

  // --- settings; the outlet hears of each change

  bool online() const noexcept { return mOnline; }
  void setOnline(bool online);
  bool adjustSpeed() const noexcept { return mAdjustSpeed; }
  void setAdjustSpeed(bool adjust);
  bool controlMasterClock() const noexcept { return mControlMasterClock; }
  void setControlMasterClock(bool control);
  void changeControlMasterClock() { setControlMasterClock(!mControlMasterClock); }

  /// The timecode of the clip's first frame.
  const KVSMPTETime& clipStartTime() const noexcept { return *mClipStartTime; }
  /// From the field; what runs is measured against it.
  void setClipStartTime(const SMPTETime& time);
  std::string clipStartTimeString() const { return mClipStartTime->stringValue(); }
  /// A text without a time is ignored; the next report starts the clip again.
  void setClipStartTimeString(std::string_view text);

  /// The mode of the summing tap; VLMonoSumTap::kNoSumming while the clip has no sound.
  std::int32_t audioSumMode() const noexcept;
  /// Sets the mode of the summing tap; does nothing while the clip has no sound.
  void setAudioSumMode(std::int32_t mode);

  float volume() const { return mPlayer != nullptr ? mPlayer->player().volume() : 1.0F; }
  /// Does nothing without a clip.
  void setVolume(float volume);

  // --- from the chase

  void chaseStarts(float rate, media::MediaTime position, std::uint64_t hostTime) override;
  void chaseFollows(float rate, media::MediaTime position, std::uint64_t hostTime) override;
  void chaseStops() override;
  void chaseLocates(media::MediaTime position) override;
  void chaseReceivedMTC(const std::string& text) override { mOutlet->setMTCIn(text); }
  void chaseMeasuredDeviation(const std::string& text) override { mOutlet->setDeviation(text); }

 private:
  explicit VLMediaPlaybackWindowController(Delegate delegate);

  bool mediaPlayerShouldPlay(VLMediaPlayer& player) override;
  bool mediaPlayerShouldPause(VLMediaPlayer& player) override;
  void playerStatusDidChange(media::Player& player) override;
  void playerDidJump(media::Player& player, media::MediaTime time) override;
  void playerRateDidChange(media::Player& player) override;
  void playerHasFrame(media::Player& player) override;

  void windowDidLoad();
  void endListening();
  void becomeReady(media::Player& player);
  void makeTaps(media::Player& player);
  void putPlayer(std::unique_ptr<VLMediaPlayer> player);
  void setTitle(std::string title);
  void timecodeTypeChanged();
  void settingsChanged();
  void didChange();

  const Delegate mDelegate;
  VLMediaPlaybackMTCIn& mInput;
  Outlet mOutlet = std::make_shared<VLMediaPlaybackWindowOutlet>();
  std::unique_ptr<VLMediaChase> mChase;
  std::unique_ptr<VLMediaPlayer> mPlayer;
  std::vector<std::shared_ptr<VLMonoSumTap>> mSummingTaps;
  KVObserverToken mTimecodeTypeObserver;

  std::filesystem::path mMediumURL;
  std::filesystem::path mMediumURLToLoad;
  std::shared_ptr<VLMediaPlaybackWindowState> mRestored;  // until it is applied or dropped
  std::shared_ptr<VLMediaPlaybackWindowState> mDecoded;   // for keys that a later version wrote
  std::shared_ptr<KVSMPTETime> mClipStartTime;
  std::string mTitle = "Media Playback";
  std::string mError;
  double mAssetDuration = std::numeric_limits<double>::quiet_NaN();  // seconds
  bool mIsLoaded = false;                                            // the window
  bool mIsListening = false;                                         // to the input
  bool mIsReady = false;
  bool mOnline = true;
  bool mAdjustSpeed = false;
  bool mControlMasterClock = false;
  // Jumps that are ours: until the host time, and while a seek is under way.
  std::uint64_t mIgnoreJumpsUntil = 0;
  int mSeeksUnderWay = 0;
};

}  // namespace velor
