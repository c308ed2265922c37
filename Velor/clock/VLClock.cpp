// SPDX-License-Identifier: MIT
#include "Velor/clock/VLClock.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVShared.h"
#include "Velor/mtc/MTC_Tx.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr std::uint64_t kFirstTimerInterval = 40'000'000;  // ns, a frame at 25
constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kMostRatePercent = 2;
constexpr double kMostPreroll = 60;  // s
constexpr double kDeltaWeight = 0.1;
constexpr std::int64_t kStallLimit = 20'000'000;  // ns, smoothed

// Calls of the proceed callback that may wait on a main queue that is behind;
// those beyond it are merged, so that the queue does not grow without bound.
constexpr std::uint32_t kMostProceedsPending = 32;

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

bool isFrame(const SMPTETime& a, const SMPTETime& b) {
  return ltc_cancompare(a, b) && ltc_compare(a, b) == 0;
}

// What is no length of time gives 0, which the timer refuses.
std::uint64_t truncatedNanoseconds(double nanoseconds) {
  constexpr double kLimit = 0x1p64;
  return nanoseconds >= 0 && nanoseconds < kLimit ? static_cast<std::uint64_t>(nanoseconds) : 0;
}

// 0 where there is none, which no port can be made with.
midi::MIDIClientRef defaultClient() {
  try {
    return KVMIDICore::sharedCore().defaultClient();
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("%s", exception.what());
    return 0;
  }
}

}  // namespace

VLClock::Change::Change(VLClock& clock, std::string_view key) : mClock(clock), mKey(key) {
  mClock.willChangeValueForKey(mKey);
}

VLClock::Change::~Change() {
  mClock.didChangeValueForKey(mKey);
}

VLClock& VLClock::sharedClock() {
  return KVShared<VLClock>::instance();
}

VLClock::VLClock()
    : KVObservable(kDependencies), mHost(host::current()), mSelf(this, [](VLClock*) {}) {
  const SMPTETime zero = timeOfFormat(kSMPTETimeType25);
  SMPTETime stopTime = zero;
  ltc_set_time(stopTime, 1, 0, 0, 0);
  mTimerQueue.sync([this, &zero, &stopTime] {
    mTimerQueue.assertCurrent();
    _time.store(zero);
    _startTime.store(zero);
    _loopTimes.store({zero, zero});
    _stopTime.store(stopTime);
  });
  createOutputPort();
  kv_hptimer_create(&mHPTimer, kFirstTimerInterval);
  kv_hptimer_set_block(mHPTimer,
                       [this](const host::RealtimeContext& realtime) { timerFired(realtime); });
  createSyncInPort();
  setSmpteFormat(zero.mType);
  setSmpteOffset(zero);
  setPlayRate(1.0);
}

VLClock::~VLClock() {
  kv_hptimer_stop(mHPTimer);
  // Without a thread it clears the count of wake-ups, or the timer would start
  // once more on its disposal.
  kv_hptimer_stop(mHPTimer);
  kv_hptimer_dispose(mHPTimer);
  midi::service().waitUntilSettled();  // a check for loops may be waiting for that
  // The input first: its read function is not running any more then.
  for (const midi::MIDIPortRef port : {mMIDISyncInPort, mMIDIOutputPort}) {
    if (port != 0) {
      midi::service().MIDIPortDispose(port);
    }
  }
  // The queue drops its timed jobs before its last jobs run, so none of those may
  // ask for a timed one.
  mTimerQueue.sync([] {});
}

void VLClock::createOutputPort() {
  const midi::OSStatus status =
      midi::service().MIDIOutputPortCreate(defaultClient(), "Velor Clock Out", &mMIDIOutputPort);
  if (status != 0) {
    VELOR_LOG_ERROR("failed to create MIDI Port for clock (%d)", status);
    mMIDIOutputPort = 0;
  }
}

void VLClock::createSyncInPort() {
  mMTCParser = VLMTCParser::initWithCompletionBlock(
      [this](const SMPTETime& block, std::uint64_t hostTime, double /*deviation*/) {
        mTimerQueue.sync([this, &block, hostTime] {
          mTimerQueue.assertCurrent();
          followBlock(block, hostTime);
        });
      });
  mMTCParser->setDelegate(mSelf);
  const midi::OSStatus status = midi::service().MIDIInputPortCreate(
      defaultClient(), "Velor Sync In", &VLMTCParser::readPackets, mMTCParser.get(),
      &mMIDISyncInPort);
  if (status != 0) {
    VELOR_LOG_ERROR("failed to create Sync In MIDI Port (%d)", status);
    mMIDISyncInPort = 0;
  }
}

// --- for whom ---

void VLClock::setDelegate(std::weak_ptr<VLClockDelegate> delegate) {
  const Change change(*this, "delegate");
  mDelegate.store(std::move(delegate));
}

void VLClock::setProceedBlock(ProceedBlock block) {
  const Change change(*this, "proceedBlock");
  mProceedBlock.store(std::make_shared<const ProceedBlock>(std::move(block)));
}

VLClock::ProceedBlock VLClock::proceedBlock() const {
  const auto block = mProceedBlock.load();
  return block != nullptr ? *block : ProceedBlock();
}

void VLClock::postProceed() {
  // Each call that is counted has yet to read the time, and will find this one.
  if (mProceedsPending.fetch_add(1) >= kMostProceedsPending) {
    mProceedsPending.fetch_sub(1);
    return;
  }
  mHost.mainQueue().async([weak = std::weak_ptr<VLClock>(mSelf)] {
    if (const auto self = weak.lock()) {
      self->proceed();
    }
  });
}

void VLClock::proceed() {
  mProceedsPending.fetch_sub(1);
  if (const auto block = mProceedBlock.load(); block != nullptr && *block) {
    const SMPTETime latest = currentTime();
    (*block)(&latest);
  }
}

void VLClock::reportOnMain(const VLClockTransition& row, std::uint32_t receivedFormat) {
  if ((row.actions & kOnMainQueue) == 0) {
    return;
  }
  mHost.mainQueue().async(
      [weak = std::weak_ptr<VLClock>(mSelf), actions = row.actions, receivedFormat] {
        const auto self = weak.lock();
        if (self == nullptr) {
          return;
        }
        if ((actions & kTellsOnMain) != 0) {
          const Change change(*self, "status");
        }
        const auto delegate = self->delegate();
        if (delegate == nullptr) {
          return;
        }
        if ((actions & kReportsStart) != 0) {
          delegate->clockDidStartPlaying(*self);
        }
        if ((actions & kReportsStop) != 0) {
          delegate->clockDidStopPlaying(*self);
        }
        if ((actions & kReportsWrongFormat) != 0) {
          delegate->clockReceivesWrongFormat(*self, receivedFormat);
        }
      });
}

const VLClockTransition* VLClock::enter(VLClockEvent event) {
  const VLClockTransition* row = KVTransitionFor(kVLClockTransitions, mStatus.load(), event);
  if (row == nullptr) {
    return nullptr;
  }
  std::optional<Change> told;
  if ((row->actions & kTellsHere) != 0) {
    told.emplace(*this, "status");
  }
  if ((row->actions & (kTimeRuns | kTimeStands)) != 0) {
    SMPTETime now = _time.load();
    now.mFlags = (row->actions & kTimeRuns) != 0 ? now.mFlags | kSMPTETimeRunning : kSMPTETimeValid;
    _time.store(now);
  }
  mStatus.store(row->to);
  return row;
}

// --- ticks ---

void VLClock::timerFired(const host::RealtimeContext& realtime) noexcept {
  // Back to back: what is smoothed is how long this thread is held up, not how
  // far the ticks lie apart.
  const std::uint64_t t1 = mHost.AudioGetCurrentHostTime();
  const std::uint64_t t2 = mHost.AudioGetCurrentHostTime();
  rt.mWeightedDelta = (1.0 - kDeltaWeight) * rt.mWeightedDelta +
                      static_cast<double>(static_cast<std::int64_t>(t2 - t1)) * kDeltaWeight;
  if (std::abs(static_cast<std::int64_t>(rt.mWeightedDelta)) >= kStallLimit) {
    mCounter.store(0);
    rt.mWeightedDelta = 0;
  }
  mTimerQueue.async(realtime, [this, t1] {
    mTimerQueue.assertCurrent();
    tick(t1);
  });
}

// It does not ask whether the clock runs: the last tick of a run comes behind the stop.
void VLClock::tick(std::uint64_t hostTime) {
  const std::uint32_t count = mCounter.fetch_add(1) + 1;
  if (count % 2 == 0) {
    sendTime(currentTime(), hostTime);
  }
  SMPTETime now = _time.load();
  if (_startedWithPreroll.load() && isFrame(now, _startTime.load())) {
    _startedWithPreroll.store(false);
  }
  const std::uint64_t mode = playMode();
  if (mode == VLPlayModeStop && isFrame(now, _stopTime.load())) {
    if (const VLClockTransition* row = enter(VLClockEvent::stopTimeReached)) {
      kv_hptimer_stop(mHPTimer);
      _startedWithPreroll.store(false);
      // Not before the timer's last tick is on the queue: what the delegate does
      // on this must come behind it.
      reportOnMain(*row);
      now = _time.load();
    }
  }
  if (mode == VLPlayModeLoop && isFrame(now, _loopTimes.load().end)) {
    ltc_assign_time(_loopTimes.load().start, now);
  } else {
    ltc_add_frames(now, 1);
  }
  _time.store(now);
  postProceed();
}

void VLClock::sendTime(const SMPTETime& time, std::uint64_t hostTime) {
  SMPTETime sent = time;
  ltc_add(sent, _offset.load());
  for (const auto& destination : mDestinations) {
    velor::sendTime(*destination, sent, hostTime, mMIDIOutputPort);
  }
}

void VLClock::locate(const SMPTETime& time, const KVMIDIEndpoint& destination) {
  midi::MIDIPacketList list;
  midi::MIDIPacketListInit(&list);  // an invalid time leaves it as it is
  if (mtc_full_frame_from_smpte_time(&time, &list) == 0) {
    midi::service().MIDISend(mMIDIOutputPort, destination.endpoint(), &list);
  }
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
  const Change change(*this, "running");
  if (this->running() == running) {
    return;
  }
  if (running) {
    startRunning();
  } else {
    stopRunning();
  }
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
  kv_hptimer_start(mHPTimer);
  if (const auto delegate = this->delegate()) {
    delegate->clockDidStartPlaying(*this);
  }
}

bool VLClock::beginRun() {
  if (KVTransitionFor(kVLClockTransitions, mStatus.load(), VLClockEvent::runRequested) == nullptr) {
    return false;
  }
  mCounter.store(0);
  SMPTETime now = currentTime();
  const double prerollTime = _prerollTime.load();
  const bool withPreroll =
      _preroll.load() && std::isnormal(prerollTime) && playMode() != VLPlayModeTimeOfDay;
  _startTime.store(now);
  _startedWithPreroll.store(withPreroll);
  if (withPreroll) {
    ltc_add_seconds(now, -prerollTime);
    _time.store(now);
  }
  return enter(VLClockEvent::runRequested) != nullptr;
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
    return enter(VLClockEvent::stopRequested) != nullptr;
  });
  if (!ended) {
    return;
  }
  kv_hptimer_stop(mHPTimer);
  // The last tick is on the queue by now, ahead of this.
  const bool beforeStartTime = mTimerQueue.sync([this] { return _startedWithPreroll.load(); });
  if (beforeStartTime) {
    setTime(startTimeSMPTE());
    _startedWithPreroll.store(false);
  }
  if (const auto delegate = this->delegate()) {
    delegate->clockDidStopPlaying(*this);
  }
}

// --- time ---

SMPTETime VLClock::currentTime() const noexcept {
  SMPTETime now = _time.load();
  now.mCounter = mCounter.load();
  return now;
}

SMPTETime VLClock::time() const {
  return mTimerQueue.sync([this] { return currentTime(); });
}

void VLClock::setTime(const SMPTETime& time) {
  const Change change(*this, "time");
  mTimerQueue.sync([this, &time] {
    mTimerQueue.assertCurrent();
    if (assignTime(time) && !running()) {
      SMPTETime sent = currentTime();
      ltc_add(sent, _offset.load());
      for (const auto& destination : mDestinations) {
        locate(sent, *destination);
      }
    }
  });
  if (const auto delegate = this->delegate()) {
    delegate->clockDidChangeStartTime(*this);
  }
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
  const Change change(*this, "smpteFormat");
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
  mNominalTimerInterval =
      truncatedNanoseconds(ltc_seconds_per_frame(smpteFormat) * kNanosecondsPerSecond);
  applyInterval();
  for (host::Seqlocked<SMPTETime>* cell : {&_time, &_offset, &_startTime, &_stopTime}) {
    SMPTETime t = cell->load();
    ltc_change_format(t, smpteFormat);
    cell->store(t);
  }
  mCounter.store(0);  // the record is a new one
  LoopTimes loopTimes = _loopTimes.load();
  ltc_change_format(loopTimes.start, smpteFormat);
  ltc_change_format(loopTimes.end, smpteFormat);
  _loopTimes.store(loopTimes);
  if (_time.load().mType != smpteFormat) {
    KVAssertionFailed("_time.mType == smpteFormat && \"change type\"", __FILE__, __LINE__);
  }
}

void VLClock::setSmpteOffset(const SMPTETime& smpteOffset) {
  KV_REQUIRE_PARAMETER((smpteOffset.mFlags & kSMPTETimeValid) == kSMPTETimeValid,
                       "(smpteOffset.mFlags & kSMPTETimeValid) == kSMPTETimeValid");
  KV_REQUIRE_PARAMETER(smpteOffset.mType == smpteFormat(), "smpteOffset.mType == self.smpteFormat");
  const Change change(*this, "smpteOffset");
  mTimerQueue.sync([this, &smpteOffset] {
    mTimerQueue.assertCurrent();
    _offset.store(smpteOffset);
  });
  VELOR_LOG_INFO("did change clock offset: %s", stringFromSMPTETime(smpteOffset).c_str());
}

// --- rate ---

void VLClock::applyInterval() {
  mTimerInterval =
      truncatedNanoseconds(static_cast<double>(mNominalTimerInterval) / _playRate.load());
  kv_hptimer_set_interval(mHPTimer, mTimerInterval);
}

void VLClock::setPlayRate(double playRate) {
  KV_REQUIRE_PARAMETER(std::isnormal(playRate), "isnormal(playRate)");
  VELOR_LOG_VERBOSE("will set play rate %f", playRate);
  const Change change(*this, "playRate");
  mTimerQueue.sync([this, playRate] {
    mTimerQueue.assertCurrent();
    _playRate.store(playRate);
    applyInterval();
  });
  VELOR_LOG_INFO("did set play rate: %f", playRate);
}

void VLClock::setPlayRatePercent(double percent) {
  const Change change(*this, "playRatePercent");
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

// --- play mode and its points ---

void VLClock::setPlayMode(std::uint64_t playMode) {
  const Change change(*this, "playMode");
  _playMode.store(playMode);
}

void VLClock::setPlaybackMode(std::uint64_t playbackMode) {
  const Change change(*this, "playbackMode");
  mTimerQueue.sync([this, playbackMode] {
    mTimerQueue.assertCurrent();
    if (std::any_of(kVLPlayModes.begin(), kVLPlayModes.end(),
                    [playbackMode](const auto& row) { return row.playMode == playbackMode; })) {
      _playMode.store(playbackMode);
    }
  });
  VELOR_LOG_INFO("set playback mode %s",
                 stringFromFourCC(static_cast<std::uint32_t>(playMode())).c_str());
}

std::uint64_t VLClock::playbackMode() const noexcept {
  const std::uint64_t mode = playMode();
  return mode != 0 ? mode : VLPlayModeNormal;
}

void VLClock::setStopTime(const SMPTETime& stopTime) {
  const Change change(*this, "stopTime");
  // On the queue, so that a change of format does not overwrite it.
  mTimerQueue.sync([this, &stopTime] {
    mTimerQueue.assertCurrent();
    _stopTime.store(stopTime);
  });
}

void VLClock::setLoopStartTime(const SMPTETime& loopStartTime) {
  const Change change(*this, "loopStartTime");
  moveLoopPoint(&LoopTimes::start, &LoopTimes::end, kLoopCorrection, loopStartTime);
}

void VLClock::setLoopEndTime(const SMPTETime& loopEndTime) {
  const Change change(*this, "loopEndTime");
  moveLoopPoint(&LoopTimes::end, &LoopTimes::start, -kLoopCorrection, loopEndTime);
}

// `distance` in seconds is where the other point goes, seen from the moved one,
// when the start would not be before the end.
void VLClock::moveLoopPoint(SMPTETime LoopTimes::*moved, SMPTETime LoopTimes::*other,
                            double distance, const SMPTETime& time) {
  if (!ltc_is_valid(time) || time.mType != smpteFormat()) {
    return;
  }
  const LoopTimes loopTimes = mTimerQueue.sync([this, moved, other, distance, &time] {
    mTimerQueue.assertCurrent();
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

void VLClock::setPreroll(bool preroll) {
  const Change change(*this, "preroll");
  _preroll.store(preroll);
}

void VLClock::setPrerollTime(double prerollTime) {
  KV_REQUIRE_PARAMETER(std::isnormal(prerollTime) || prerollTime == .0,
                       "isnormal(prerollTime) || prerollTime == .0");
  const Change change(*this, "prerollTime");
  _prerollTime.store(std::clamp(prerollTime, 0.0, kMostPreroll));
}

// --- MTC out ---

void VLClock::addMTCDestination(std::shared_ptr<KVMIDIEndpoint> destination) {
  mTimerQueue.sync([this, &destination] {
    mTimerQueue.assertCurrent();
    if (!running()) {
      locate(currentTime(), *destination);
    } else {
      midi::MIDIPacketList none;
      midi::MIDIPacketListInit(&none);  // opens its port, for the token and the next block
      midi::service().MIDISend(mMIDIOutputPort, destination->endpoint(), &none);
    }
    // Equality is by a hash that is fixed when it is first asked for, so that it
    // is asked for now, while the endpoint is there.
    destination->hash();
    if (std::none_of(mDestinations.begin(), mDestinations.end(),
                     [&](const auto& member) { return member->isEqual(*destination); })) {
      mDestinations.push_back(std::move(destination));
    }
  });
  doLoopDetection();
}

void VLClock::removeMTCDestination(const std::shared_ptr<KVMIDIEndpoint>& destination) {
  mTimerQueue.sync([this, &destination] {
    mTimerQueue.assertCurrent();
    std::erase_if(mDestinations, [&](const auto& member) {
      const bool isIt = member->isEqual(*destination);
      if (isIt) {
        midi::service().endSending(mMIDIOutputPort, member->endpoint());
      }
      return isIt;
    });
  });
}

// --- MTC in ---

void VLClock::setArmed(bool armed) {
  const Change change(*this, "armed");
  if (this->armed() == armed) {
    return;
  }
  mTimerQueue.sync([this, armed] {
    mTimerQueue.assertCurrent();
    if (const VLClockTransition* row =
            enter(armed ? VLClockEvent::armRequested : VLClockEvent::disarmRequested)) {
      reportOnMain(*row);
    }
  });
  const bool armedNow = this->armed();
  if (const auto delegate = this->delegate()) {
    if (armedNow) {
      delegate->clockDidArm(*this);
    } else {
      delegate->clockDidDisarm(*this);
    }
  }
  VELOR_LOG_INFO("clock is %s", armedNow ? "armed" : "disarmed");
}

void VLClock::setMIDISyncSource(const std::shared_ptr<KVMIDIEndpoint>& source) {
  if (source == nullptr && _mtcSyncSource.load() == nullptr) {
    return;  // asked for at every change of the MIDI setup
  }
  const Change change(*this, "MIDISyncSource");
  VELOR_LOG_INFO("set MIDI sync source: %s",
                 source != nullptr ? source->description().c_str() : "(none)");
  if (const auto former = _mtcSyncSource.load()) {
    if (midi::service().MIDIPortDisconnectSource(mMIDISyncInPort, former->endpoint()) != 0) {
      VELOR_LOG_ERROR("failed to disconnect %s from MIDI Sync In", former->description().c_str());
    } else {
      VELOR_LOG_VERBOSE("disconnected %s from MIDI Sync In", former->description().c_str());
    }
  }
  _mtcSyncSource.store(source);
  if (source == nullptr) {
    return;
  }
  if (midi::service().MIDIPortConnectSource(mMIDISyncInPort, source->endpoint(), nullptr) != 0) {
    VELOR_LOG_ERROR("failed to connect %s from MIDI Sync In", source->description().c_str());
  } else {
    VELOR_LOG_VERBOSE("connected %s to MIDI Sync In", source->description().c_str());
  }
  doLoopDetection();
}

void VLClock::followBlock(const SMPTETime& block, std::uint64_t hostTime) {
  const bool isOfFormat = block.mType == smpteFormat();
  if (const VLClockTransition* row =
          enter(isOfFormat ? VLClockEvent::mtcOfFormat : VLClockEvent::mtcOfOtherFormat)) {
    reportOnMain(*row, block.mType);
  }
  if (!isOfFormat || mStatus.load() != VLClockChasing) {
    return;
  }
  _time.store(block);
  mCounter.store(block.mCounter);
  sendTime(block, hostTime);
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
    const Change change(*this, "status");
    mTimerQueue.sync([this] {
      mTimerQueue.assertCurrent();
      enter(VLClockEvent::mtcEnded);
    });
  }
  if (const auto delegate = this->delegate()) {
    delegate->clockDidStopPlaying(*this);
  }
}

void VLClock::doLoopDetection() {
  const auto delegate = this->delegate();
  if (delegate == nullptr || mLoopCheck.isUnderWay() ||
      !delegate->clockShouldCheckForMTCLoop(*this) || !mLoopCheck.begin()) {
    return;
  }
  // A token that goes out before all connections are open could not come back.
  midi::service().whenSettled(mTimerQueue, [this] {
    mTimerQueue.assertCurrent();
    mLoopCheck.sendTokens(_mtcSyncSource.load(), mDestinations, mMIDIOutputPort);
  });
}

void VLClock::parserDidReceiveLoopToken(VLMTCParser& /*parser*/, std::uint32_t token) {
  bool isChecked = false;
  // On the queue: a token that comes back while others still go out is found.
  const auto destination = mTimerQueue.sync([this, token, &isChecked] {
    isChecked = mLoopCheck.source() != nullptr;
    return mLoopCheck.destinationOf(token);
  });
  if (isChecked && destination != nullptr) {
    mHost.mainQueue().async([weak = std::weak_ptr<VLClock>(mSelf), destination] {
      const auto self = weak.lock();
      const auto delegate = self != nullptr ? self->delegate() : nullptr;
      if (delegate == nullptr) {
        return;
      }
      // As it is by now: the check may have ended.
      const auto source =
          self->mTimerQueue.sync([clock = self.get()] { return clock->mLoopCheck.source(); });
      delegate->clockDetectedMTCLoop(*self, source, destination);
    });
  }
  VELOR_LOG_INFO("detected MTC Loop: %s",
                 destination != nullptr ? destination->description().c_str() : "");
}

// --- colours ---

VLColor VLClock::colorForClockState(VLClockStatus status) noexcept {
  if ((status & kVLClockArmedBit) != 0) {
    return {0.15, 0.15, 0.95, 1.0};
  }
  if ((status & kVLClockMovingBit) != 0) {
    return {0.15, 0.95, 0.0, 1.0};
  }
  return {0.95, 0.15, 0.0, 1.0};
}

VLColor VLClock::stopModeColor() noexcept {
  return colorForClockState(VLClockStopped);
}

VLColor VLClock::loopModeColor() noexcept {
  return {70 / 255.0, 130 / 255.0, 180 / 255.0, 1.0};  // steel blue
}

}  // namespace velor
