// SPDX-License-Identifier: MIT
#include "Velor/mtc/VLMTC.h"

#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVNanosecondsFromSeconds.h"
#include "Kv-Appkit/kv_watchdog.h"
#include "Velor/mtc/MTC_Tx.h"
#include "Velor/mtc/VLMTCTransitions.h"
#include "Velor/mtc/mtc_wire.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Seqlock.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kQuarterFramesPerFrame = 4.0;
constexpr std::uint64_t kDefaultInterval = 10'000'000;  // ns, 25 frames per second
constexpr double kDefaultFreewheelTime = 5.0;           // s
constexpr double kWatchdogFrames = 4.0;

// The timer may be late by this part of a quarter-frame, and always is: so times that
// come at the very rate put it off before it is due, and the end of four frames of
// silence is known before the block that goes out then.
constexpr std::uint64_t kLeewayDivisor = 20;

// Who may send: the gate between the reader's path and the timer's.
using Tag = std::uint32_t;
constexpr Tag kNobody = 0;
constexpr Tag kReader = KVFourCC("ltc ");
constexpr Tag kFreewheel = KVFourCC("wcdg");

// Each end of a freewheel that is scheduled has its own, so that one which comes
// late is known from that of a later freewheel.
std::atomic<std::uint32_t> gLastFreewheelId{1};
constexpr std::uint32_t kNoFreewheelId = 0;

struct Snapshot {
  SMPTETime time;
  VLMTCMode mode = VLMTCMode::idle;
};

struct Listener {
  VLMTCStateCallback callback = nullptr;
  void* refCon = nullptr;
};

// A time as the reader hands it over.
struct Arrival {
  SMPTETime time;
  std::uint64_t hostTime = 0;
  std::uint64_t now = 0;  // the host time when it was handed over
};

}  // namespace

struct VLMTC : std::enable_shared_from_this<VLMTC> {
  void take(const Arrival& arrival) KV_RUNS_ON(queue);
  void happen(VLMTCEvent event, const Arrival* arrival = nullptr) KV_RUNS_ON(queue);
  void dispose();

  std::atomic<midi::MIDIEndpointRef> source{0};
  std::atomic<std::uint64_t> interval{kDefaultInterval};  // of quarter-frames, ns
  std::atomic<double> freewheelTime{kDefaultFreewheelTime};
  std::atomic<std::int32_t> status{0};  // of the last block; the queue's to write
  host::Seqlocked<Snapshot> snapshot;   // the queue's to write
  host::Seqlocked<Listener> listener;   // the owner's to write
  std::shared_ptr<VLMTC> self;          // the owner's reference
  host::Host& host = host::current();

  VLMTCMode mode KV_ON_QUEUE(queue) = VLMTCMode::idle;

  // Last, so that it ends before what its jobs use.
  host::Queue queue{"mtc.watchdog", host::ThreadRole::timing};

 private:
  std::int32_t send(const SMPTETime& read, std::uint64_t timestamp, Tag path) KV_RUNS_ON(queue);
  void publish() KV_RUNS_ON(queue) { snapshot.store({mTime, mode}); }
  void endFreewheel() KV_RUNS_ON(queue);
  void putTimerOff(std::uint64_t now) KV_RUNS_ON(queue);
  void timerFired() KV_RUNS_ON(queue);
  void startWatchdog() KV_RUNS_ON(queue);
  void dropWatchdog() KV_RUNS_ON(queue);
  void scheduleEnd() KV_RUNS_ON(queue);
  void tell(std::uint32_t actions) KV_RUNS_ON(queue);
  template <class StateByThen>
  void tellState(StateByThen stateByThen);

  Tag mTag KV_ON_QUEUE(queue) = kNobody;
  SMPTETime mTime KV_ON_QUEUE(queue);                    // last sent
  std::uint64_t mNextTimestamp KV_ON_QUEUE(queue) = 0;   // host time of mTime, ns
  kv_watchdog* mWatchdog KV_ON_QUEUE(queue) = nullptr;   // while reading
  std::optional<host::Timer> mTimer KV_ON_QUEUE(queue);  // runs while not idle
  std::uint64_t mTimerDeadline KV_ON_QUEUE(queue) = 0;   // host time, ns
  std::uint64_t mTimerPeriod KV_ON_QUEUE(queue) = 0;     // ns
  std::uint32_t mFreewheelId KV_ON_QUEUE(queue) = kNoFreewheelId;
};

void VLMTC::take(const Arrival& arrival) {
  const std::uint32_t formerType = mTime.mType;
  happen(VLMTCEvent::timeRead, &arrival);
  if (arrival.time.mType != formerType) {
    happen(VLMTCEvent::typeChanged);
  }
}

void VLMTC::happen(VLMTCEvent event, const Arrival* arrival) {
  const VLMTCTransition* row = KVTransitionFor(kVLMTCTransitions, mode, event);
  if (row == nullptr) {
    return;
  }
  const std::uint32_t actions = row->actions;
  mode = row->to;
  if ((actions & kMTCEndsFreewheel) != 0) {
    endFreewheel();
  }
  if ((actions & (kMTCNobodySends | kMTCReaderSends | kMTCTimerSends)) != 0) {
    mTag = (actions & kMTCReaderSends) != 0  ? kReader
           : (actions & kMTCTimerSends) != 0 ? kFreewheel
                                             : kNobody;
  }
  if ((actions & kMTCTakesTime) != 0) {
    putTimerOff(arrival->now);
    status.store(send(arrival->time, arrival->hostTime, kReader));
  }
  publish();
  if ((actions & kMTCStartsWatchdog) != 0) {
    startWatchdog();
    mTimer->resume();
  }
  if ((actions & kMTCFeedsWatchdog) != 0) {
    if (mWatchdog != nullptr) {
      kv_watchdog_validate(mWatchdog);
    } else {
      startWatchdog();
    }
  }
  if ((actions & kMTCDropsWatchdog) != 0) {
    dropWatchdog();
  }
  if ((actions & kMTCSchedulesEnd) != 0) {
    scheduleEnd();
  }
  tell(actions);
}

std::int32_t VLMTC::send(const SMPTETime& read, std::uint64_t timestamp, Tag path) {
  if (mTag != path) {
    return 0;
  }
  const std::uint64_t quarterFrame = interval.load();
  mTime = read;
  mNextTimestamp = timestamp + kMTCPieces * quarterFrame;
  ltc_add_frames(mTime, kMTCFramesPerBlock);
  midi::MIDIPacketList list;
  mtc_quarter_frames(mTime, mNextTimestamp, quarterFrame, &list);
  return midi::service().MIDIReceived(source.load(), &list);
}

void VLMTC::endFreewheel() {
  mFreewheelId = kNoFreewheelId;
  mTimer.reset();
}

void VLMTC::putTimerOff(std::uint64_t now) {
  if (!mTimer) {
    mTimer.emplace(queue, [this] {
      queue.assertCurrent();
      timerFired();
    });
  }
  const std::uint64_t quarterFrame = interval.load();
  mTimerPeriod = kMTCPieces * quarterFrame;
  mTimerDeadline = now + mTimerPeriod + quarterFrame / kLeewayDivisor;
  mTimer->setDeadline(mTimerDeadline);
}

void VLMTC::timerFired() {
  // It may have been put off before it had its turn on the queue.
  if (mTimerDeadline <= host.AudioGetCurrentHostTime()) {
    mTimerDeadline += mTimerPeriod;
    if (mTag == kFreewheel) {
      status.store(send(SMPTETime(mTime), mNextTimestamp, kFreewheel));
      publish();
    }
  }
  mTimer->setDeadline(mTimerDeadline);
  mTimer->resume();
}

// Without a rate there is no time for it; then the next time that is read tries again.
void VLMTC::startWatchdog() {
  double rate = std::numeric_limits<double>::quiet_NaN();
  VLMTCGetFramerate(this, &rate);
  const double seconds = kWatchdogFrames / rate;
  const auto silence = [](kv_watchdog*, void* record) {
    auto& mtc = *static_cast<VLMTC*>(record);
    mtc.queue.assertCurrent();
    mtc.happen(VLMTCEvent::silence);
  };
  if (kv_watchdog_create(&mWatchdog, silence, &queue, this, seconds) == 0) {
    kv_watchdog_resume_after(mWatchdog, seconds);
  }
}

void VLMTC::dropWatchdog() {
  kv_watchdog_dispose(std::exchange(mWatchdog, nullptr));
}

void VLMTC::scheduleEnd() {
  const double seconds = freewheelTime.load();
  if (seconds < 0) {
    return;
  }
  if (seconds == 0) {
    happen(VLMTCEvent::noFreewheelTime);
    return;
  }
  const std::uint32_t id = ++gLastFreewheelId;
  mFreewheelId = id;
  host.mainQueue().after(KVNanosecondsFromSeconds(seconds), [id, weak = weak_from_this()] {
    if (const auto strong = weak.lock()) {
      strong->queue.async([id, mtc = strong.get()] {
        mtc->queue.assertCurrent();
        if (id == mtc->mFreewheelId) {
          mtc->happen(VLMTCEvent::timeRanOut);
        }
      });
    }
  });
}

void VLMTC::tell(std::uint32_t actions) {
  if (listener.load().callback == nullptr) {
    return;
  }
  const auto tellOf = [this, actions](std::uint32_t action, VLMTCState state) {
    if ((actions & action) != 0) {
      tellState([state](const VLMTC&) { return state; });
    }
  };
  tellOf(kMTCTellsResume, kVLMTCDidResume);
  tellOf(kMTCTellsStart, kVLMTCDidStartReading);
  tellOf(kMTCTellsType, kVLMTCDidChangeFramerate);
  tellOf(kMTCTellsStop, kVLMTCDidStopFreewheel);
  if ((actions & kMTCTellsFreewheel) != 0) {
    tellState([](const VLMTC& mtc) {
      return mtc.snapshot.load().mode == VLMTCMode::freewheeling ? kVLMTCDidStartFreewheel
                                                                 : kVLMTCDidStopFreewheel;
    });
  }
}

template <class StateByThen>
void VLMTC::tellState(StateByThen stateByThen) {
  host.mainQueue().async([stateByThen, weak = weak_from_this()] {
    if (const auto strong = weak.lock()) {
      const Listener present = strong->listener.load();
      if (present.callback != nullptr) {
        present.callback(strong.get(), stateByThen(*strong), present.refCon);
      }
    }
  });
}

void VLMTC::dispose() {
  listener.store({});
  queue.sync([this] {
    queue.assertCurrent();
    dropWatchdog();
    endFreewheel();
    mode = VLMTCMode::idle;
    mTag = kNobody;
  });
  // A report or an end that is under way on the main thread may hold the record a
  // little longer; it finds nothing to do.
  self.reset();
}

std::int32_t VLMTCCreate(VLMTC** mtc) {
  if (mtc == nullptr) {
    return kVLMTCParamErr;
  }
  try {
    const auto record = std::make_shared<VLMTC>();
    record->self = record;
    *mtc = record.get();
  } catch (const std::bad_alloc&) {
    return kVLMTCErr;
  }
  return 0;
}

std::int32_t VLMTCDispose(VLMTC* mtc) {
  KV_ASSERT(mtc != NULL);  // NOLINT(modernize-use-nullptr): the condition is the text
  mtc->dispose();
  return 0;
}

std::int32_t VLMTCSetFramerate(VLMTC* mtc, double framesPerSecond) noexcept {
  // clang-format off
  KV_ASSERT(mtc!= NULL);  // NOLINT(modernize-use-nullptr): the condition is the text
  // clang-format on
  if (!ltc_is_valid_frame_rate(framesPerSecond)) {
    return kVLMTCErr;
  }
  mtc->interval.store(static_cast<std::uint64_t>(kNanosecondsPerSecond /
                                                 (framesPerSecond * kQuarterFramesPerFrame)));
  return 0;
}

std::int32_t VLMTCGetFramerate(const VLMTC* mtc, double* outFrameRate) noexcept {
  KV_ASSERT(mtc != NULL);           // NOLINT(modernize-use-nullptr): the condition is the text
  KV_ASSERT(outFrameRate != NULL);  // NOLINT(modernize-use-nullptr)
  const auto interval = static_cast<double>(mtc->interval.load());
  const double framesPerSecond = kNanosecondsPerSecond / (interval * kQuarterFramesPerFrame);
  if (!ltc_is_valid_frame_rate(framesPerSecond)) {
    return kVLMTCErr;
  }
  *outFrameRate = framesPerSecond;
  return 0;
}

std::int32_t VLMTCSetFreewheelTime(VLMTC* mtc, double seconds) noexcept {
  if (mtc == nullptr || (seconds != 0 && !std::isnormal(seconds))) {
    return kVLMTCParamErr;
  }
  mtc->freewheelTime.store(seconds);
  return 0;
}

std::int32_t VLMTCGetFreewheelTime(const VLMTC* mtc, double* seconds) noexcept {
  if (mtc == nullptr || seconds == nullptr) {
    return kVLMTCParamErr;
  }
  *seconds = mtc->freewheelTime.load();
  return 0;
}

std::int32_t VLMTCCreateSource(midi::MIDIEndpointRef* source, const std::string& name,
                               midi::MIDIClientRef client) {
  return midi::service().MIDISourceCreate(client, name, source);
}

std::int32_t VLMTCSetSource(VLMTC* mtc, midi::MIDIEndpointRef source) noexcept {
  if (mtc == nullptr) {
    return kVLMTCParamErr;
  }
  mtc->source.store(source);
  return 0;
}

std::int32_t VLMTCSendTime(const host::RealtimeContext& realtime, VLMTC* mtc, const SMPTETime* time,
                           std::uint64_t hostTime) noexcept {
  if (mtc == nullptr || time == nullptr) {
    return kVLMTCParamErr;
  }
  const Arrival arrival{*time, hostTime, mtc->host.AudioGetCurrentHostTime()};
  const bool taken = mtc->queue.async(realtime, [mtc, arrival] {
    mtc->queue.assertCurrent();
    mtc->take(arrival);
  });
  return taken ? mtc->status.load() : midi::kMIDIMessageSendErr;
}

std::int32_t VLMTCGetTime(const VLMTC* mtc, SMPTETime* time, bool* reading,
                          bool* freewheeling) noexcept {
  if (mtc == nullptr) {
    return kVLMTCParamErr;
  }
  const Snapshot snapshot = mtc->snapshot.load();
  if (time != nullptr) {
    *time = snapshot.time;
  }
  if (reading != nullptr) {
    *reading = snapshot.mode != VLMTCMode::idle;
  }
  if (freewheeling != nullptr) {
    *freewheeling = snapshot.mode == VLMTCMode::freewheeling;
  }
  return 0;
}

std::int32_t VLMTCIsFreewheeling(const VLMTC* mtc, bool* freewheeling) noexcept {
  return freewheeling == nullptr ? kVLMTCParamErr
                                 : VLMTCGetTime(mtc, nullptr, nullptr, freewheeling);
}

std::int32_t VLMTCStopFreewheeling(VLMTC* mtc) {
  if (mtc == nullptr) {
    return kVLMTCParamErr;
  }
  return mtc->queue.sync([mtc] {
    mtc->queue.assertCurrent();
    if (mtc->mode != VLMTCMode::freewheeling) {
      return kVLMTCErr;
    }
    mtc->happen(VLMTCEvent::stopRequested);
    return 0;
  });
}

std::int32_t VLMTCSetStateCallback(VLMTC* mtc, VLMTCStateCallback callback, void* refCon) noexcept {
  if (mtc == nullptr) {
    return kVLMTCParamErr;
  }
  mtc->listener.store({callback, refCon});
  return 0;
}

}  // namespace velor
