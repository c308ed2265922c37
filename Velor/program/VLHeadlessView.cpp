// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadlessView.h"

#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/osc/VLOSCServer.h"
#include "platform/host/Host.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr std::uint64_t kRefreshInterval = 500'000'000;
constexpr std::uint64_t kNoticeTime = 10'000'000'000;

}  // namespace

void VLHeadlessView::begin() {
  mHasBegun = true;
  if (mLine.isVisible()) {
    refresh();
  }
}

void VLHeadlessView::refresh() {
  needsDisplay();
  host::current().mainQueue().after(kRefreshInterval, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->refresh();
    }
  });
}

void VLHeadlessView::showNotice(const std::string& notice) {
  mNotice = notice;
  mNoticeEnd = host::current().AudioGetCurrentHostTime() + kNoticeTime;
  needsDisplay();
  mLine.leave();
}

void VLHeadlessView::needsDisplay() {
  if (!mHasBegun || !mLine.isVisible()) {
    return;
  }
  VLStatus status;
  status.time = smpteTime();
  status.clockStatus = clockStatus();
  if (host::current().AudioGetCurrentHostTime() < mNoticeEnd) {
    status.notice = mNotice;
  }
  status.isClockUsed = mIsClockUsed;
  status.server = midi::service().serverDescription();
  status.oscPort = VLOSCServer::sharedServer().port();
  mDevices.describe(status);
  if (status.ltcIn) {
    status.ltcIn->time = mRead;
    const auto reader = mDevices.reader();
    if (reader != nullptr && reader->freewheeling()) {
      reader->getLatestTime(status.ltcIn->time);
    }
  }
  mLine.show(status);
}

void VLHeadlessView::setInputTimecode(const SMPTETime& time) {
  mRead = time;
  needsDisplay();
}

void VLHeadlessView::changedUserbits(std::uint32_t /*userbits*/) {
  needsDisplay();
}

void VLHeadlessView::changedCurrentSpeed(double /*speed*/) {
  needsDisplay();
}

void VLHeadlessView::mtcDidChangeState(VLMTCState /*state*/) {
  needsDisplay();
}

}  // namespace velor
