// SPDX-License-Identifier: MIT
#include "Velor/app/VLClockDisplay.h"

#include <array>
#include <cstdint>
#include <string>

#include "Velor/app/VLOfferedFormats.h"
#include "Velor/app/VLOnMain.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

using Image = VLMainWindowOutlet::Image;

constexpr Image kArmedImage{"clockTemplate", Image::Tint::blue};
constexpr Image kDisarmedImage{"clockTemplate", Image::Tint::none};
constexpr Image kActivePlayImage{"playTemplate", Image::Tint::green};
constexpr Image kInactivePlayImage{"playTemplate", Image::Tint::black};
constexpr Image kActiveStopImage{"stopTemplate", Image::Tint::red};
constexpr Image kInactiveStopImage{"stopTemplate", Image::Tint::black};

}  // namespace

VLClockDisplay::VLClockDisplay(VLClock& clock, VLMainWindowOutlet& window,
                               VLTimecodeViewOutlet& counters)
    : mClock(clock), mWindow(window), mCounters(counters) {}

VLClockDisplay::~VLClockDisplay() {
  mClock.setProceedBlock(nullptr);
}

void VLClockDisplay::bind(std::string_view key, void (VLClockDisplay::*show)()) {
  (this->*show)();
  const auto job = mSelf.job([show](VLClockDisplay& self) { (self.*show)(); });
  mTokens.push_back(mClock.addObserver(key, [job](const auto&) { VLOnMain(job); }));
}

// --- the launch

void VLClockDisplay::bindPlayMode() {
  std::vector<VLChoice> modes;
  for (const VLPlayModeTitle& mode : kVLPlayModes) {
    modes.push_back({mode.title, mode.playMode});
  }
  mWindow.setPlayModes(modes, [&clock = mClock](std::uint64_t tag) { clock.setPlayMode(tag); });
  bind("playMode", &VLClockDisplay::showPlayMode);
}

void VLClockDisplay::bindTimes() {
  bind("loopStartTime", &VLClockDisplay::showLoopStartTime);
  bind("loopEndTime", &VLClockDisplay::showLoopEndTime);
  bind("smpteOffset", &VLClockDisplay::showSmpteOffset);
  bind("stopTime", &VLClockDisplay::showStopTime);
}

void VLClockDisplay::bindFormat() {
  constexpr auto kOffered = VLOfferedFormats();
  std::array<std::string, kOffered.size()> titles;
  std::vector<VLChoice> formats;
  for (std::size_t i = 0; i < titles.size(); ++i) {
    titles[i] = stringFromSMPTEFormat(kOffered[i]);
    formats.push_back({titles[i], kOffered[i]});
  }
  mWindow.setFormats(formats, [&clock = mClock](std::uint64_t tag) {
    clock.setSmpteFormat(static_cast<std::uint32_t>(tag));
  });
  bind("smpteFormat", &VLClockDisplay::showFormat);
}

void VLClockDisplay::bindStatus() {
  bind("status", &VLClockDisplay::showStatus);
}

void VLClockDisplay::followFrames() {
  mClock.setProceedBlock([this](const SMPTETime* time) { showFrame(*time); });
}

// --- what is shown

void VLClockDisplay::showPlayMode() {
  mWindow.setSelectedPlayMode(mClock.playMode());
  mCounters.setPlayMode(mClock.playMode());
}
void VLClockDisplay::showLoopStartTime() {
  mCounters.setLoopStartTime(mClock.loopStartTime());
}
void VLClockDisplay::showLoopEndTime() {
  mCounters.setLoopEndTime(mClock.loopEndTime());
}
void VLClockDisplay::showSmpteOffset() {
  mCounters.setSmpteOffset(mClock.smpteOffset());
}
void VLClockDisplay::showStopTime() {
  mCounters.setStopTime(mClock.stopTime());
}
void VLClockDisplay::showStatus() {
  mCounters.setClockStatus(mClock.status());
  mBigWindow.setClockStatus(mClock.status());
}
void VLClockDisplay::showFormat() {
  mWindow.setSelectedFormat(mClock.smpteFormat());
}

void VLClockDisplay::showFrame(const SMPTETime& time) {
  mCounters.copyTime(time);
  mBigWindow.setMainTime(time);
  // At every second frame; a clock that follows counts its blocks by threes.
  if (time.mCounter % 2 == 0) {
    VLOSCClientDispatcher::sharedDispatcher().updateTime(time);
  }
}

void VLClockDisplay::showTime() {
  mCounters.setSmpteTime(mClock.time());
}

void VLClockDisplay::showJump() {
  const SMPTETime time = mClock.time();
  mCounters.setSmpteTime(time);
  mBigWindow.setMainTime(time);
  VLOSCClientDispatcher::sharedDispatcher().updateTime(time);
}

void VLClockDisplay::showStartTime() {
  mCounters.setStartTime(mClock.startTimeSMPTE());
}

void VLClockDisplay::showRunning() {
  mCounters.setMainCounterIsEditable(false);
  mWindow.setStartImage(kActivePlayImage);
  mWindow.setStopImage(kInactiveStopImage);
}

void VLClockDisplay::showStopped() {
  mCounters.setMainCounterIsEditable(true);
  mWindow.setStartImage(kInactivePlayImage);
  mWindow.setStopImage(kActiveStopImage);
  showTime();
}

void VLClockDisplay::showArmed(bool armed) {
  mWindow.setArmImage(armed ? kArmedImage : kDisarmedImage, armed);
}

}  // namespace velor
