// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaPlaybackWindowController.h"

#include <cmath>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/clock/VLClock.h"
#include "Velor/media/VLMediaBookmark.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

constexpr const char* kNoClip = "Media Playback";  // for a title

double secondsOf(media::MediaTime time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

VLMediaPlaybackWindowController::VLMediaPlaybackWindowController(Delegate delegate)
    : mDelegate(std::move(delegate)),
      mInput(VLMediaPlaybackMTCIn::sharedInput()),
      mClipStartTime(KVSMPTETime::smpteTimeWithTime(VLClock::sharedClock().smpteOffset())->copy()) {
}

VLMediaPlaybackWindowController::~VLMediaPlaybackWindowController() {
  endListening();
}

std::shared_ptr<VLMediaPlaybackWindowController> VLMediaPlaybackWindowController::initWithDelegate(
    Delegate delegate) {
  std::shared_ptr<VLMediaPlaybackWindowController> controller(
      new VLMediaPlaybackWindowController(std::move(delegate)));
  controller->mChase =
      std::make_unique<VLMediaChase>(controller->mInput.queue(), controller->weak_from_this());
  return controller;
}

std::shared_ptr<VLMediaPlaybackWindowController>
VLMediaPlaybackWindowController::initWithEncodedState(
    std::shared_ptr<VLMediaPlaybackWindowState> state, const std::filesystem::path& folder,
    Delegate delegate) {
  auto controller = initWithDelegate(std::move(delegate));
  if (state == nullptr || !state->bookmark) {
    return controller;
  }
  const auto bookmark = VLMediaBookmark::fromData(*state->bookmark);
  controller->mRestored = state;
  controller->mDecoded = std::move(state);
  const auto clip = bookmark.resolve(folder);
  if (!clip) {
    std::error_code error;
    const bool isThere = std::filesystem::exists(bookmark.absolute, error);
    controller->mError = "cannot open '" + bookmark.absolute.string() +
                         (isThere ? "': not a regular file" : "': No such file or directory");
    VELOR_LOG_WARNING("the clip of a media window is missing: %s", bookmark.absolute.c_str());
    return controller;
  }
  controller->mMediumURLToLoad = *clip;
  const auto& start = controller->mRestored->startTime;
  if (start != nullptr && start->valid()) {
    controller->mClipStartTime = start->copy();
  }
  return controller;
}

std::shared_ptr<VLMediaPlaybackWindowState> VLMediaPlaybackWindowController::encodedState(
    const std::filesystem::path& folder) const {
  if (mMediumURL.empty() && mRestored != nullptr) {
    return mRestored;
  }
  auto state = std::make_shared<VLMediaPlaybackWindowState>();
  if (mRestored != nullptr) {
    *state = *mRestored;  // still to be applied
  } else {
    state->audioSumMode = audioSumMode();
    state->controlMasterClock = mControlMasterClock;
    state->online = mOnline;
    state->volume = volume();
    state->adjustSpeed = mAdjustSpeed;
  }
  if (mDecoded != nullptr) {
    state->takeRemainder(*mDecoded);
  }
  state->bookmark.reset();
  if (!mMediumURL.empty()) {
    state->bookmark = VLMediaBookmark::of(mMediumURL, folder).data();
  }
  state->startTime = mClipStartTime;
  return state;
}

// --- the window

void VLMediaPlaybackWindowController::showWindow() {
  if (!std::exchange(mIsLoaded, true)) {
    windowDidLoad();
  }
  mOutlet->showWindow();
}

void VLMediaPlaybackWindowController::windowDidLoad() {
  mTimecodeTypeObserver = KVNotificationCenter::defaultCenter().addObserver(
      VLChangedTimecodeType, [weak = weak_from_this()](const KVNotification&) {
        if (const auto self = weak.lock()) {
          self->timecodeTypeChanged();
        }
      });
  mOutlet->setTitle(mTitle);
  mOutlet->setMTCIn("MTC In: --:--:--:--");
  settingsChanged();
  mInput.addWindow(*mChase);
  mIsListening = true;
  host::current().mainQueue().async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self == nullptr) {
      return;
    }
    if (self->mMediumURLToLoad.empty()) {
      self->runOpenPanel();
    } else {
      self->loadMediumAtURL(self->mMediumURLToLoad);
    }
  });
}

void VLMediaPlaybackWindowController::windowWillClose() {
  const auto self = shared_from_this();
  endListening();
  if (mPlayer != nullptr && std::isnormal(mPlayer->player().rate())) {
    mPlayer->pauseInEveryCase();
  }
  if (const auto delegate = mDelegate.lock()) {
    delegate->mediaPlaybackWindowDidClose(*this);
  }
}

// A window that is closed may outlive the input.
void VLMediaPlaybackWindowController::endListening() {
  if (std::exchange(mIsListening, false)) {
    mInput.removeWindow(*mChase);
  }
}

// A window that has had a clip, even one that cannot be played, stays without an answer, and
// keeps its settings for the next one.
void VLMediaPlaybackWindowController::runOpenPanel() {
  const bool isReplaced = mTitle != kNoClip;
  mOutlet->beginOpenPanel([weak = weak_from_this(), isReplaced](const std::filesystem::path& path) {
    const auto self = weak.lock();
    if (self == nullptr || (path.empty() && isReplaced)) {
      return;
    }
    if (path.empty()) {
      self->mOutlet->close();
      return;
    }
    if (isReplaced) {
      auto settings = std::make_shared<VLMediaPlaybackWindowState>(*self->encodedState({}));
      settings->bookmark.reset();
      self->mRestored = std::move(settings);
    } else {
      self->mRestored = nullptr;
      self->mDecoded = nullptr;
    }
    self->loadMediumAtURL(path);
  });
}

void VLMediaPlaybackWindowController::setTitle(std::string title) {
  mTitle = std::move(title);
  mOutlet->setTitle(mTitle);
}

// --- the clip

void VLMediaPlaybackWindowController::putPlayer(std::unique_ptr<VLMediaPlayer> player) {
  mInput.queue().sync(
      [this, &player] { mChase->setPlayer(player != nullptr ? &player->player() : nullptr); });
  mPlayer = std::move(player);
  mSummingTaps.clear();
  mSeeksUnderWay = 0;
  mIsReady = false;
  mAssetDuration = std::numeric_limits<double>::quiet_NaN();
}

void VLMediaPlaybackWindowController::loadMediumAtURL(const std::filesystem::path& path) {
  KV_REQUIRE_PARAMETER(!path.empty(), "url");
  VELOR_LOG_INFO("Media Player is trying to load asset: %s", path.c_str());
  mError.clear();
  mMediumURL.clear();
  putPlayer(nullptr);
  auto player = VLMediaPlayer::initWithURL({path, mOutlet->wantsVideo()}, *this, *this);
  if (player) {
    mMediumURL = path;
    putPlayer(std::move(*player));
  } else {
    mError = player.error().text;
    VELOR_LOG_ERROR("failed to load medium: %s", path.c_str());
    mOutlet->presentError(mError);
  }
  setTitle(path.filename().string());
  VELOR_LOG_INFO("opened media asset \"%s\" at path: %s", mTitle.c_str(), path.c_str());
  mOutlet->playerDidChange();
  settingsChanged();
}

void VLMediaPlaybackWindowController::playerStatusDidChange(media::Player& player) {
  mIsReady = false;
  if (player.status() == media::PlayerStatus::readyToPlay) {
    becomeReady(player);
  } else if (player.status() == media::PlayerStatus::failed) {
    mError = player.error();
    VELOR_LOG_ERROR("ERROR: media player %s failed %s", mTitle.c_str(), mError.c_str());
    mOutlet->presentError(mError);
  }
  mOutlet->playerDidChange();
  settingsChanged();
}

void VLMediaPlaybackWindowController::becomeReady(media::Player& player) {
  VELOR_LOG_INFO("media player \"%s\" is ready to play", mTitle.c_str());
  mAssetDuration = secondsOf(player.duration());
  if (auto title = player.title(); !title.empty()) {
    setTitle(std::move(title));
  }
  makeTaps(player);
  mAdjustSpeed = true;
  if (const auto restored = std::exchange(mRestored, nullptr)) {
    setAudioSumMode(restored->audioSumMode);
    mOnline = restored->online;
    mControlMasterClock = restored->controlMasterClock;
    player.setVolume(restored->volume);
    mAdjustSpeed = restored->adjustSpeed;
  }
  mIsReady = true;
}

void VLMediaPlaybackWindowController::makeTaps(media::Player& player) {
  const std::int32_t mode = audioSumMode();
  for (std::size_t track = 0; track < player.audioTrackCount(); ++track) {
    auto tap = std::make_shared<VLMonoSumTap>();
    tap->setSummingMode(mode);
    player.setAudioTap(track, tap);
    mSummingTaps.push_back(std::move(tap));
  }
}

void VLMediaPlaybackWindowController::playerRateDidChange(media::Player& /*player*/) {
  mOutlet->playerDidChange();
}

void VLMediaPlaybackWindowController::playerHasFrame(media::Player& /*player*/) {
  mOutlet->playerHasFrame();
}

// --- the chase

void VLMediaPlaybackWindowController::chaseStarts(float rate, media::MediaTime position,
                                                  std::uint64_t hostTime) {
  if (mIsReady) {
    mPlayer->player().setRate(rate, position, hostTime);
    mOutlet->setMTCInStatus(VLClockRolling);
  }
}

// The user may have paused the clip since the report.
void VLMediaPlaybackWindowController::chaseFollows(float rate, media::MediaTime position,
                                                   std::uint64_t hostTime) {
  if (mIsReady && mPlayer->player().rate() > 0) {
    mPlayer->player().setRate(rate, position, hostTime);
  }
}

void VLMediaPlaybackWindowController::chaseStops() {
  if (mPlayer == nullptr || !std::isnormal(mPlayer->player().rate())) {
    return;
  }
  mIgnoreJumpsUntil = host::current().AudioGetCurrentHostTime() + kIgnoreAfterStop;
  mPlayer->pauseInEveryCase();
  mOutlet->setMTCInStatus(VLClockStopped);
  mOutlet->setDeviation("");
}

void VLMediaPlaybackWindowController::chaseLocates(media::MediaTime position) {
  if (mPlayer == nullptr) {
    return;
  }
  ++mSeeksUnderWay;
  mPlayer->player().seekToTime(
      position, [weak = weak_from_this(), player = mPlayer.get()](bool /*finished*/) {
        VELOR_LOG_VERBOSE("seek completion handler");
        if (const auto self = weak.lock(); self != nullptr && self->mPlayer.get() == player) {
          --self->mSeeksUnderWay;
        }
      });
}

// --- control of the master clock

void VLMediaPlaybackWindowController::playerDidJump(media::Player& player, media::MediaTime time) {
  mOutlet->playerDidChange();
  const bool isOurs =
      mSeeksUnderWay > 0 || host::current().AudioGetCurrentHostTime() < mIgnoreJumpsUntil;
  if (isOurs || player.rate() != 0 || !mControlMasterClock) {
    return;
  }
  const double start = ltc_seconds_from_smpte_time(mClipStartTime->timeStamp());
  const double seconds = std::round(start * 1000) / 1000 + secondsOf(time);
  SMPTETime jumped{};
  ltc_smpte_time_from_seconds(VLClock::sharedClock().smpteFormat(), jumped, seconds);
  VELOR_LOG_VERBOSE("did seek: %f, %s", seconds, stringFromSMPTETime(jumped).c_str());
  if (const auto delegate = mDelegate.lock()) {
    delegate->setCurrentSMPTETime(jumped);
  }
}

bool VLMediaPlaybackWindowController::mediaPlayerShouldPlay(VLMediaPlayer& /*player*/) {
  if (!mControlMasterClock) {
    return true;
  }
  if (const auto delegate = mDelegate.lock()) {
    delegate->play(*this);
  }
  return false;
}

bool VLMediaPlaybackWindowController::mediaPlayerShouldPause(VLMediaPlayer& /*player*/) {
  if (!mControlMasterClock) {
    return true;
  }
  if (const auto delegate = mDelegate.lock()) {
    delegate->stop(*this);
  }
  return false;
}

// --- settings

void VLMediaPlaybackWindowController::setOnline(bool online) {
  mOnline = online;
  settingsChanged();
}

void VLMediaPlaybackWindowController::setAdjustSpeed(bool adjust) {
  mAdjustSpeed = adjust;
  VELOR_LOG_VERBOSE("adjust speed: %d", static_cast<int>(adjust));
  settingsChanged();
}

void VLMediaPlaybackWindowController::setControlMasterClock(bool control) {
  mControlMasterClock = control;
  settingsChanged();
}

void VLMediaPlaybackWindowController::setClipStartTime(const SMPTETime& time) {
  mClipStartTime = KVSMPTETime::smpteTimeWithTime(time);
  VELOR_LOG_VERBOSE("clip start time: %s", mClipStartTime->stringValue().c_str());
  settingsChanged();
}

void VLMediaPlaybackWindowController::setClipStartTimeString(std::string_view text) {
  const auto typed = KVSMPTETime::smpteTimeWithString(text, mClipStartTime->type());
  if (typed == nullptr || !typed->valid()) {
    return;
  }
  setClipStartTime(typed->timeStamp());
  mInput.queue().sync([this] { mChase->startTimeTyped(); });
}

void VLMediaPlaybackWindowController::timecodeTypeChanged() {
  mClipStartTime->setType(VLClock::sharedClock().smpteFormat());
  settingsChanged();
}

std::int32_t VLMediaPlaybackWindowController::audioSumMode() const noexcept {
  return mSummingTaps.empty() ? VLMonoSumTap::kNoSumming : mSummingTaps.front()->summingMode();
}

void VLMediaPlaybackWindowController::setAudioSumMode(std::int32_t mode) {
  for (const auto& tap : mSummingTaps) {
    tap->setSummingMode(mode);
  }
  didChange();
}

void VLMediaPlaybackWindowController::setVolume(float volume) {
  if (mPlayer != nullptr) {
    mPlayer->player().setVolume(volume);
    didChange();
  }
}

void VLMediaPlaybackWindowController::settingsChanged() {
  mInput.queue().sync([this] {
    mChase->setSettings({mOnline, mAdjustSpeed, mIsReady, !mError.empty(),
                         mClipStartTime->timeStamp(), mAssetDuration, mTitle});
  });
  didChange();
}

void VLMediaPlaybackWindowController::didChange() {
  mOutlet->settingsDidChange();
  if (const auto delegate = mDelegate.lock()) {
    delegate->mediaPlaybackWindowDidChange(*this);
  }
}

}  // namespace velor
