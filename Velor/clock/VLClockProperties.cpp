// SPDX-License-Identifier: MIT
#include "Velor/clock/VLClockProperties.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVFourCC.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

constexpr double kMostPreroll = 60;  // s

constexpr std::array<KVDependency, 15> kDependencies{{
    {"playRatePercent", "playRate"},
    {"status", "armed"},
    {"status", "running"},
    {"running", "armed"},
    {"running", "status"},
    {"loopStartTime", "smpteFormat"},
    {"loopStartTime", "loopEndTime"},
    {"loopEndTime", "smpteFormat"},
    {"loopEndTime", "loopStartTime"},
    {"startTimeSMPTE", "smpteFormat"},
    {"stopTime", "smpteFormat"},
    {"smpteOffset", "smpteFormat"},
    {"canChangeFormat", "armed"},
    {"canChangeFormat", "running"},
    {"canChangeFormat", "status"},
}};

SMPTETime timeOfFormat(std::uint32_t format) {
  SMPTETime t;
  t.mType = format;
  ltc_set_time(t, 0, 0, 0, 0);
  return t;
}

}  // namespace

VLClockProperties::VLClockProperties(host::Queue& queue)
    : KVObservable(kDependencies), mQueue(queue) {
  const SMPTETime zero = timeOfFormat(kSMPTETimeType25);
  SMPTETime hour = zero;
  ltc_set_time(hour, 1, 0, 0, 0);
  _time.store(zero);
  _offset.store(zero);
  _startTime.store(zero);
  _stopTime.store(hour);
  _loopTimes.store({zero, zero});
}

void VLClockProperties::convertTimes(std::uint32_t smpteFormat) {
  for (host::Seqlocked<SMPTETime>* cell : {&_time, &_offset, &_startTime, &_stopTime}) {
    SMPTETime t = cell->load();
    ltc_change_format(t, smpteFormat);
    cell->store(t);
  }
  LoopTimes loopTimes = _loopTimes.load();
  ltc_change_format(loopTimes.start, smpteFormat);
  ltc_change_format(loopTimes.end, smpteFormat);
  _loopTimes.store(loopTimes);
}

void VLClockProperties::setSmpteOffset(const SMPTETime& smpteOffset) {
  KV_REQUIRE_PARAMETER((smpteOffset.mFlags & kSMPTETimeValid) == kSMPTETimeValid,
                       "(smpteOffset.mFlags & kSMPTETimeValid) == kSMPTETimeValid");
  KV_REQUIRE_PARAMETER(smpteOffset.mType == smpteFormat(), "smpteOffset.mType == self.smpteFormat");
  const KVAnnouncement change(*this, "smpteOffset");
  mQueue.sync([this, &smpteOffset] {
    mQueue.assertCurrent();
    _offset.store(smpteOffset);
  });
  VELOR_LOG_INFO("did change clock offset: %s", stringFromSMPTETime(smpteOffset).c_str());
}

// --- play mode and its points ---

void VLClockProperties::setPlayMode(std::uint64_t playMode) {
  const KVAnnouncement change(*this, "playMode");
  _playMode.store(playMode);
}

void VLClockProperties::setPlaybackMode(std::uint64_t playbackMode) {
  const KVAnnouncement change(*this, "playbackMode");
  mQueue.sync([this, playbackMode] {
    mQueue.assertCurrent();
    if (std::any_of(kVLPlayModes.begin(), kVLPlayModes.end(),
                    [playbackMode](const auto& row) { return row.playMode == playbackMode; })) {
      _playMode.store(playbackMode);
    }
  });
  VELOR_LOG_INFO("set playback mode %s",
                 stringFromFourCC(static_cast<std::uint32_t>(playMode())).c_str());
}

std::uint64_t VLClockProperties::playbackMode() const noexcept {
  const std::uint64_t mode = playMode();
  return mode != 0 ? mode : VLPlayModeNormal;
}

void VLClockProperties::setStopTime(const SMPTETime& stopTime) {
  const KVAnnouncement change(*this, "stopTime");
  // On the queue, so that a change of format does not overwrite it.
  mQueue.sync([this, &stopTime] {
    mQueue.assertCurrent();
    _stopTime.store(stopTime);
  });
}

void VLClockProperties::setLoopStartTime(const SMPTETime& loopStartTime) {
  const KVAnnouncement change(*this, "loopStartTime");
  moveLoopPoint(&LoopTimes::start, &LoopTimes::end, kLoopCorrection, loopStartTime);
}

void VLClockProperties::setLoopEndTime(const SMPTETime& loopEndTime) {
  const KVAnnouncement change(*this, "loopEndTime");
  moveLoopPoint(&LoopTimes::end, &LoopTimes::start, -kLoopCorrection, loopEndTime);
}

// `distance` in seconds is where the other point goes, seen from the moved one,
// when the start would not be before the end.
void VLClockProperties::moveLoopPoint(SMPTETime LoopTimes::*moved, SMPTETime LoopTimes::*other,
                                      double distance, const SMPTETime& time) {
  if (!ltc_is_valid(time) || time.mType != smpteFormat()) {
    return;
  }
  const LoopTimes loopTimes = mQueue.sync([this, moved, other, distance, &time] {
    mQueue.assertCurrent();
    LoopTimes points = _loopTimes.load();
    points.*moved = time;
    if (!ltc_cancompare(points.start, points.end) || ltc_compare(points.start, points.end) != -1) {
      points.*other = time;
      ltc_add_seconds(points.*other, distance);
    }
    _loopTimes.store(points);
    return points;
  });
  VELOR_LOG_INFO("loop start/stop: |:%s %s:|", stringFromSMPTETime(loopTimes.start).c_str(),
                 stringFromSMPTETime(loopTimes.end).c_str());
}

void VLClockProperties::setPreroll(bool preroll) {
  const KVAnnouncement change(*this, "preroll");
  _preroll.store(preroll);
}

void VLClockProperties::setPrerollTime(double prerollTime) {
  KV_REQUIRE_PARAMETER(std::isnormal(prerollTime) || prerollTime == .0,
                       "isnormal(prerollTime) || prerollTime == .0");
  const KVAnnouncement change(*this, "prerollTime");
  _prerollTime.store(std::clamp(prerollTime, 0.0, kMostPreroll));
}

}  // namespace velor
