// SPDX-License-Identifier: MIT
#include "Velor/clock/VLClock.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <string>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVShared.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr double kMostRatePercent = 2;

bool isFrame(const SMPTETime& a, const SMPTETime& b) {
  return ltc_cancompare(a, b) && ltc_compare(a, b) == 0;
}

}  // namespace

VLClock& VLClock::sharedClock() {
  return KVShared<VLClock>::instance();
}

VLClock::VLClock()
    : VLClockProperties(mTimerQueue),
      mHost(host::current()),
      mTimer([this](const host::RealtimeContext& realtime, std::uint64_t hostTime, bool wasHeldUp) {
        if (wasHeldUp) {
          mCounter.store(0);
        }
        mTimerQueue.async(realtime, [this, hostTime] {
          mTimerQueue.assertCurrent();
          tick(hostTime);
        });
      }),
      mSelf(this) {
  mMIDI.open(
      [this](const SMPTETime& block, std::uint64_t hostTime, double /*deviation*/) {
        mTimerQueue.sync([this, &block, hostTime] {
          mTimerQueue.assertCurrent();
          followBlock(block, hostTime);
        });
      },
      mSelf);
  setSmpteFormat(smpteFormat());
  setSmpteOffset(_offset.load());
  setPlayRate(1.0);
}

VLClock::~VLClock() {
  mTimer.stop();
  midi::service().waitUntilSettled();  // a check for loops may be waiting for that
  mMIDI.close();
  // The queue drops its timed jobs before its last jobs run, so none of those may
  // ask for a timed one.
  mTimerQueue.sync([] {});
}

// --- delegate and proceed callback ---

void VLClock::setDelegate(std::weak_ptr<VLClockDelegate> delegate) {
  const KVAnnouncement change(*this, "delegate");
  mDelegate.store(std::move(delegate));
}

void VLClock::setProceedBlock(ProceedBlock block) {
  const KVAnnouncement change(*this, "proceedBlock");
  mProceed.setBlock(std::move(block));
}

void VLClock::postProceed() {
  if (mProceed.begin()) {
    onMain([](VLClock& self) { self.mProceed.call([&self] { return self.currentTime(); }); });
  }
}

template <class Job>
void VLClock::onMain(Job job) {
  mHost.mainQueue().async(mSelf.job(std::move(job)));
}

void VLClock::whenQueueAnswers(std::function<void()> job) {
  mTimerQueue.async([this, job = std::move(job)] { onMain([job](VLClock&) { job(); }); });
}

template <class... Arguments>
void VLClock::report(void (VLClockDelegate::*what)(VLClock&, Arguments...),
                     Arguments... arguments) {
  if (const auto delegate = this->delegate()) {
    ((*delegate).*what)(*this, arguments...);
  }
}

template <class... Arguments>
void VLClock::reportOnMain(void (VLClockDelegate::*what)(VLClock&, Arguments...),
                           Arguments... arguments) {
  onMain([what, arguments...](VLClock& self) {
    { const KVAnnouncement change(self, "status"); }
    self.report(what, arguments...);
  });
}

bool VLClock::enter(VLClockEvent event) {
  const VLClockTransition* row = KVTransitionFor(kVLClockTransitions, mStatus.load(), event);
  if (row != nullptr) {
    mStatus.store(row->to);
  }
  return row != nullptr;
}

void VLClock::markTimeStanding() {
  SMPTETime now = _time.load();
  now.mFlags = kSMPTETimeValid;
  _time.store(now);
}

// --- ticks ---

// It does not ask whether the clock runs: the last tick of a run comes after the stop.
void VLClock::tick(std::uint64_t hostTime) {
  const std::uint32_t count = mCounter.fetch_add(1) + 1;
  if (count % 2 == 0) {
    mMIDI.sendTime(timeToSend(), hostTime);
  }
  SMPTETime now = _time.load();
  if (_startedWithPreroll.load() && isFrame(now, _startTime.load())) {
    _startedWithPreroll.store(false);
  }
  const std::uint64_t mode = playMode();
  if (mode == VLPlayModeStop && isFrame(now, _stopTime.load())) {
    reachStopTime();
    now = _time.load();
  }
  if (mode == VLPlayModeLoop && isFrame(now, _loopTimes.load().end)) {
    ltc_assign_time(_loopTimes.load().start, now);
  } else {
    ltc_add_frames(now, 1);
  }
  _time.store(now);
  postProceed();
}

void VLClock::reachStopTime() {
  if (!enter(VLClockEvent::stopTimeReached)) {
    return;
  }
  // 1. The time stands.
  markTimeStanding();
  // 2. The timer ends. Its last tick is on the queue by then.
  mTimer.stop();
  _startedWithPreroll.store(false);
  // 3. Report it: what the delegate does on this must come after that tick.
  reportOnMain(&VLClockDelegate::clockDidStopPlaying);
}

// --- transport ---

bool VLClock::running() const noexcept {
  return (_time.load().mFlags & kSMPTETimeRunning) != 0 && (status() & kVLClockMovingBit) != 0;
}

void VLClock::start() {
  if (!running()) {
    setRunning(true);
  }
}

void VLClock::stop() {
  if (running()) {
    setRunning(false);
  }
}

void VLClock::setRunning(bool running) {
  const KVAnnouncement change(*this, "running");
  if (this->running() == running) {
    return;
  }
  running ? startRunning() : stopRunning();
}

void VLClock::startRunning() {
  const bool begun = mTimerQueue.sync([this] {
    mTimerQueue.assertCurrent();
    return beginRun();
  });
  if (!begun) {
    return;
  }
  if (playMode() == VLPlayModeTimeOfDay) {
    setToWallClock();
  }
  mTimer.start();
  report(&VLClockDelegate::clockDidStartPlaying);
}

bool VLClock::beginRun() {
  if (!enter(VLClockEvent::runRequested)) {
    return false;
  }
  // 1. The first tick counts 1.
  mCounter.store(0);
  // 2. The run starts here, or goes back by the pre-roll time.
  SMPTETime now = currentTime();
  const double prerollTime = _prerollTime.load();
  const bool withPreroll =
      _preroll.load() && std::isnormal(prerollTime) && playMode() != VLPlayModeTimeOfDay;
  _startTime.store(now);
  _startedWithPreroll.store(withPreroll);
  if (withPreroll) {
    ltc_add_seconds(now, -prerollTime);
  }
  // 3. The time runs.
  now.mFlags |= kSMPTETimeRunning;
  _time.store(now);
  return true;
}

bool VLClock::endRun() {
  const bool ended = enter(VLClockEvent::stopRequested);
  if (ended) {
    markTimeStanding();
  }
  return ended;
}

void VLClock::setToWallClock() {
  const timeval wall = mHost.gettimeofday();
  tm local{};
  localtime_r(&wall.tv_sec, &local);
  mTimerQueue.sync([this, &wall, &local] {
    mTimerQueue.assertCurrent();
    SMPTETime now = _time.load();
    const std::int32_t frames =
        ltc_frames_per_second(now.mType) * static_cast<std::int32_t>(wall.tv_usec) / 1'000'000;
    ltc_set_time(now, local.tm_hour, local.tm_min, local.tm_sec, frames);
    _time.store(now);
  });
}

void VLClock::stopRunning() {
  const bool ended = mTimerQueue.sync([this] {
    mTimerQueue.assertCurrent();
    return endRun();
  });
  if (!ended) {
    return;
  }
  mTimer.stop();
  // The last tick is on the queue by now, before this.
  if (mTimerQueue.sync([this] { return _startedWithPreroll.load(); })) {
    setTime(startTimeSMPTE());
    _startedWithPreroll.store(false);
  }
  report(&VLClockDelegate::clockDidStopPlaying);
}

// --- time ---

SMPTETime VLClock::currentTime() const noexcept {
  SMPTETime now = _time.load();
  now.mCounter = mCounter.load();
  return now;
}

SMPTETime VLClock::timeToSend() const noexcept {
  SMPTETime sent = currentTime();
  ltc_add(sent, _offset.load());
  return sent;
}

SMPTETime VLClock::time() const {
  return mTimerQueue.sync([this] { return currentTime(); });
}

void VLClock::setTime(const SMPTETime& time) {
  const KVAnnouncement change(*this, "time");
  mTimerQueue.sync([this, &time] {
    mTimerQueue.assertCurrent();
    if (assignTime(time) && !running()) {
      mMIDI.locate(timeToSend());
    }
  });
  report(&VLClockDelegate::clockDidChangeStartTime);
  postProceed();
}

// False when it is that time already.
bool VLClock::assignTime(const SMPTETime& time) {
  SMPTETime now = _time.load();
  if (ltc_identical(now, time)) {
    return false;
  }
  ltc_assign_time(time, now);
  _time.store(now);
  if (!running()) {
    _startTime.store(currentTime());
  }
  return true;
}

void VLClock::setSmpteFormat(std::uint32_t smpteFormat) {
  const KVAnnouncement change(*this, "smpteFormat");
  if (!ltc_is_valid_type(smpteFormat)) {
    return;
  }
  mTimerQueue.sync([this, smpteFormat] {
    mTimerQueue.assertCurrent();
    if (canChangeFormat()) {
      VELOR_LOG_VERBOSE("set clock SMPTE Format: %s", stringFromSMPTEFormat(smpteFormat).c_str());
      changeFormat(smpteFormat);
    }
  });
}

void VLClock::changeFormat(std::uint32_t smpteFormat) {
  enter(VLClockEvent::formatSet);
  mTimer.setFormat(smpteFormat);
  convertTimes(smpteFormat);
  mCounter.store(0);  // the record is a new one
  if (_time.load().mType != smpteFormat) {
    KVAssertionFailed("_time.mType == smpteFormat && \"change type\"", __FILE__, __LINE__);
  }
}

// --- rate ---

void VLClock::setPlayRate(double playRate) {
  KV_REQUIRE_PARAMETER(std::isnormal(playRate), "isnormal(playRate)");
  VELOR_LOG_VERBOSE("will set play rate %f", playRate);
  const KVAnnouncement change(*this, "playRate");
  mTimerQueue.sync([this, playRate] {
    mTimerQueue.assertCurrent();
    _playRate.store(playRate);
    mTimer.setRate(playRate);
  });
  VELOR_LOG_INFO("did set play rate: %f", playRate);
}

void VLClock::setPlayRatePercent(double percent) {
  const KVAnnouncement change(*this, "playRatePercent");
  if (std::isnormal(percent) || percent == 0) {
    setPlayRate(1 + std::clamp(percent, -kMostRatePercent, kMostRatePercent) / 100);
  }
}

void VLClock::setNilValueForKey(std::string_view key) {
  if (key != "playRatePercent") {
    throw KVException(kParameterExceptionName, "no value for the key " + std::string(key));
  }
  setPlayRatePercent(0);
}

// --- MTC out ---

void VLClock::addMTCDestination(std::shared_ptr<KVMIDIEndpoint> destination) {
  mTimerQueue.sync([this, &destination] {
    mTimerQueue.assertCurrent();
    const SMPTETime now = currentTime();
    mMIDI.addDestination(std::move(destination), running() ? nullptr : &now);
  });
  doLoopDetection();
}

void VLClock::removeMTCDestination(const std::shared_ptr<KVMIDIEndpoint>& destination) {
  mTimerQueue.sync([this, &destination] { mMIDI.removeDestination(destination); });
}

// --- MTC in ---

void VLClock::setArmed(bool armed) {
  const KVAnnouncement change(*this, "armed");
  if (this->armed() == armed) {
    return;
  }
  mTimerQueue.sync([this, armed] {
    mTimerQueue.assertCurrent();
    if (armed) {
      enter(VLClockEvent::armRequested);
    } else if (mStatus.load() == VLClockChasing) {
      endChase();
    } else {
      enter(VLClockEvent::disarmRequested);
    }
  });
  const bool armedNow = this->armed();
  report(armedNow ? &VLClockDelegate::clockDidArm : &VLClockDelegate::clockDidDisarm);
  VELOR_LOG_INFO("clock is %s", armedNow ? "armed" : "disarmed");
}

void VLClock::endChase() {
  {
    // 1. Announce the change of the status around it, on this queue.
    const KVAnnouncement change(*this, "status");
    enter(VLClockEvent::disarmRequested);
    // 2. The time stands.
    markTimeStanding();
  }
  // 3. Report it.
  onMain([](VLClock& self) { self.report(&VLClockDelegate::clockDidStopPlaying); });
}

void VLClock::setMIDISyncSource(const std::shared_ptr<KVMIDIEndpoint>& source) {
  if (source == nullptr && MIDISyncSource() == nullptr) {
    return;  // it is set to none at every change of the MIDI setup
  }
  const KVAnnouncement change(*this, "MIDISyncSource");
  VELOR_LOG_INFO("set MIDI sync source: %s",
                 source != nullptr ? source->description().c_str() : "(none)");
  mMIDI.setSyncSource(source);
  if (source != nullptr) {
    doLoopDetection();
  }
}

void VLClock::followBlock(const SMPTETime& block, std::uint64_t hostTime) {
  // 1. A block of another format ends the chase, or goes by.
  if (block.mType != smpteFormat()) {
    if (enter(VLClockEvent::mtcOfOtherFormat)) {
      reportOnMain(&VLClockDelegate::clockReceivesWrongFormat, block.mType);
    }
    return;
  }
  // 2. The first one of the clock's format begins the chase, if the clock is armed.
  if (enter(VLClockEvent::mtcOfFormat)) {
    reportOnMain(&VLClockDelegate::clockDidStartPlaying);
  }
  if (mStatus.load() != VLClockChasing) {
    return;
  }
  // 3. Its time becomes the clock's, and goes out at once.
  _time.store(block);
  mCounter.store(block.mCounter);
  mMIDI.sendTime(timeToSend(), hostTime);
  postProceed();
}

void VLClock::parserDidReceiveFFMsg(VLMTCParser& /*parser*/, const SMPTETime& time) {
  if (status() == VLClockArmed && time.mType == smpteFormat()) {
    setTime(time);
  }
}

void VLClock::parserDidStopReading(VLMTCParser& /*parser*/) {
  if (status() != VLClockChasing) {
    return;
  }
  {
    const KVAnnouncement change(*this, "status");
    mTimerQueue.sync([this] {
      mTimerQueue.assertCurrent();
      if (enter(VLClockEvent::mtcEnded)) {
        markTimeStanding();
      }
    });
  }
  report(&VLClockDelegate::clockDidStopPlaying);
}

void VLClock::doLoopDetection() {
  const auto delegate = this->delegate();
  if (delegate == nullptr || mLoopCheck.isUnderWay() ||
      !delegate->clockShouldCheckForMTCLoop(*this) || !mLoopCheck.begin()) {
    return;
  }
  // A token that goes out before all connections are open could not come back.
  midi::service().whenSettled(mTimerQueue, [this] { mMIDI.sendTokens(mLoopCheck); });
}

void VLClock::parserDidReceiveLoopToken(VLMTCParser& /*parser*/, std::uint32_t token) {
  bool isChecked = false;
  // On the queue: a token that comes back while others still go out is found.
  const auto destination = mTimerQueue.sync([this, token, &isChecked] {
    isChecked = mLoopCheck.source() != nullptr;
    return mLoopCheck.destinationOf(token);
  });
  if (isChecked && destination != nullptr) {
    onMain([destination](VLClock& self) {
      // As it is by now: the check may have ended.
      const auto source = self.mTimerQueue.sync([&self] { return self.mLoopCheck.source(); });
      if (const auto delegate = self.delegate()) {
        delegate->clockDetectedMTCLoop(self, source, destination);
      }
    });
  }
  VELOR_LOG_INFO("detected MTC Loop: %s",
                 destination != nullptr ? destination->description().c_str() : "");
}

}  // namespace velor
