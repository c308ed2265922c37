// SPDX-License-Identifier: MIT
#include "Velor/app/VLTransport.h"

#include <algorithm>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Velor/app/VLAppDelegate.h"
#include "kva/MIDI/KVMIDICore.h"

namespace velor {
namespace {

bool isInSystem(const std::shared_ptr<KVMIDIEndpoint>& source) {
  const KVMIDICore::Endpoints sources = KVMIDICore::sharedCore().sources();
  return source != nullptr &&
         std::any_of(sources.begin(), sources.end(),
                     [&source](const auto& each) { return each->isEqual(*source); });
}

}  // namespace

VLTransport::VLTransport(VLAppDelegate& app, VLMainWindowOutlet& window,
                         VLTimecodeViewOutlet& counters, VLClockDisplay& display)
    : mApp(app), mWindow(window), mCounters(counters), mDisplay(display) {}

void VLTransport::play() {
  if (!mApp.clock().running()) {
    saveState();
    mApp.clock().start();
  }
}

void VLTransport::stop() {
  if (mApp.clock().running()) {
    mApp.clock().stop();
    return;
  }
  if (mWindow.isControlKeyHeld()) {
    setCurrentTime(KVSMPTETime::smpteTimeWithHours(0, 0, 0, 0, mApp.clock().smpteFormat()));
    return;
  }
  auto start = KVSMPTETime::smpteTimeWithTime(mCounters.startTime());
  if (!mStartTimes.empty()) {
    start = std::move(mStartTimes.back());
    mStartTimes.pop_back();
  }
  setCurrentTime(start);
}

void VLTransport::setCurrentTime(const std::shared_ptr<KVSMPTETime>& time) {
  KV_REQUIRE_PARAMETER(time != nullptr, "currentTime");
  const auto old = mApp.currentTime();
  const bool isOther = !time->isEqual(old.get());
  if (time->valid() && isOther) {
    mApp.clock().setTime(time->time());
  }
  if (!mApp.clock().running() && isOther) {
    mApp.undoManager().registerUndo(
        mSelf.job([old](VLTransport& self) { self.setCurrentTime(old); }));
    mApp.undoManager().setActionName("change start time " + old->stringValue());
    mDisplay.showJump();
  }
}

// So that a press of play starts the clock by itself, whatever it followed.
void VLTransport::saveState() {
  mStateBeforeStart = {mApp.syncSource(), mApp.clock().armed()};
  mApp.setSyncSource(nullptr);
}

void VLTransport::didStart(std::shared_ptr<KVSMPTETime> startTime) {
  mStartTimes.push_back(std::move(startTime));
}

void VLTransport::didStop() {
  if (!mStateBeforeStart) {
    return;
  }
  mApp.setSyncSource(syncSourceAfterStop());
  if (std::exchange(mStateBeforeStart, std::nullopt)->armed && mApp.syncSource() != nullptr) {
    mApp.clock().arm();
  } else {
    mApp.clock().disarm();
  }
}

std::shared_ptr<KVMIDIEndpoint> VLTransport::syncSourceAfterStop() const {
  if (!mStateBeforeStart) {
    return mApp.syncSource();
  }
  return isInSystem(mStateBeforeStart->syncSource) ? mStateBeforeStart->syncSource : nullptr;
}

void VLTransport::dropVanishedSyncSource() {
  if (!isInSystem(mApp.syncSource())) {
    mApp.setSyncSource(nullptr);
  }
}

void VLTransport::setType(std::uint32_t format) {
  for (const auto& time : mStartTimes) {
    // A conversion to the format that it has could lose a frame.
    if (time->type() != format) {
      time->setType(format);
    }
  }
}

}  // namespace velor
