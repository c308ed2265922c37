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
#include "Velor/mtc/mtc_wire.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Seqlock.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr double kQuarterFramesPerFrame = 4.0;
constexpr std::uint64_t kDefaultInterval = 10'000'000;  // ns, 25 frames per second
constexpr double kDefaultFreewheelTime = 5.0;           // s
constexpr double kWatchdogFrames = 4.0;

// The timer may be late by this part of a quarter-frame, and always is: so times that
// come at the very rate put it off before it is due, and the end of four frames of
// silence is known before the block that goes out then.
constexpr std::uint64_t kLeewayDivisor = 20;

// Each end of a freewheel that is scheduled has its own, so that one which comes
// late is known from that of a later freewheel.
std::atomic<std::uint32_t> gLastFreewheelId{1};
constexpr std::uint32_t kNoFreewheelId = 0;

enum class Mode : std::uint8_t { idle, reading, freewheeling };

struct Snapshot {
  SMPTETime time;
  Mode mode = Mode::idle;
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
  // All that changes the mode. Each reports to the owner when the change is published.
  void readTime(const Arrival& arrival) KV_RUNS_ON(queue);
  void fallSilent() KV_RUNS_ON(queue);
  void endFreewheel() KV_RUNS_ON(queue);
  std::int32_t stopFreewheel() KV_RUNS_ON(queue);

  void dispose();

  std::atomic<midi::MIDIEndpointRef> source{0};
  std::atomic<std::uint64_t> interval{kDefaultInterval};  // of quarter-frames, ns
  std::atomic<double> freewheelTime{kDefaultFreewheelTime};
  std::atomic<std::int32_t> status{0};  // of the last block; the queue's to write
  host::Seqlocked<Snapshot> snapshot;   // the queue's to write
  host::Seqlocked<Listener> listener;   // the owner's to write
  std::shared_ptr<VLMTC> self;          // the owner's reference
  host::Host& host = host::current();

  // After all that its jobs use, so that it ends first.
  host::Queue queue{"mtc.watchdog", host::ThreadRole::timing};

 private:
  std::int32_t send(SMPTETime time, std::uint64_t timestamp) KV_RUNS_ON(queue);
  void publish() KV_RUNS_ON(queue) { snapshot.store({mTime, mMode}); }
  void putTimerOff(std::uint64_t now) KV_RUNS_ON(queue);
  void timerFired() KV_RUNS_ON(queue);
  void takeBackTimer() KV_RUNS_ON(queue);
  void startWatchdog() KV_RUNS_ON(queue);
  void dropWatchdog() KV_RUNS_ON(queue);
  void scheduleEnd(double seconds) KV_RUNS_ON(queue);
  void report(VLMTCState state);

  Mode mMode KV_ON_QUEUE(queue) = Mode::idle;
  SMPTETime mTime KV_ON_QUEUE(queue);                   // last sent
  std::uint64_t mNextTimestamp KV_ON_QUEUE(queue) = 0;  // host time of mTime, ns
  MTCBlockOrder mOrder KV_ON_QUEUE(queue);
  kv_watchdog* mWatchdog KV_ON_QUEUE(queue) = nullptr;   // while reading
  std::optional<host::Timer> mTimer KV_ON_QUEUE(queue);  // runs while not idle
  std::uint64_t mTimerDeadline KV_ON_QUEUE(queue) = 0;   // host time, ns
  std::uint64_t mTimerPeriod KV_ON_QUEUE(queue) = 0;     // ns
  std::uint32_t mFreewheelId KV_ON_QUEUE(queue) = kNoFreewheelId;
};

void VLMTC::readTime(const Arrival& arrival) {
  const Mode former = mMode;
  const std::uint32_t formerType = mTime.mType;
  // 1. The timer sends nothing more, and the end of a freewheel does not come any more.
  if (former == Mode::freewheeling) {
    takeBackTimer();
  }
  mMode = Mode::reading;
  putTimerOff(arrival.now);
  // 2. Send the time, unless it is the first one after a freewheel.
  status.store(former == Mode::freewheeling ? 0 : send(arrival.time, arrival.hostTime));
  publish();
  // 3. Watch for silence from here on.
  if (mWatchdog != nullptr) {
    kv_watchdog_validate(mWatchdog);
  } else {
    startWatchdog();
  }
  // 4. Begin to read, where that is new.
  if (former != Mode::reading) {
    mTimer->resume();
    if (former == Mode::freewheeling) {
      report(kVLMTCDidResume);
    }
    report(kVLMTCDidStartReading);
  }
  // 5. Report another format than that of the last time sent.
  if (arrival.time.mType != formerType) {
    report(kVLMTCDidChangeFramerate);
  }
}

void VLMTC::fallSilent() {
  // 1. The timer sends from here on.
  mMode = Mode::freewheeling;
  publish();
  // 2. The watchdog is spent.
  dropWatchdog();
  // 3. Schedule the end; a negative time has none.
  const double seconds = freewheelTime.load();
  if (seconds > 0) {
    scheduleEnd(seconds);
  } else if (seconds == 0) {
    endFreewheel();
  }
  // 4. Report it. Where it has ended by then, its end is reported once more.
  report(kVLMTCDidStartFreewheel);
}

void VLMTC::endFreewheel() {
  // 1. The timer sends nothing more, and a later end does not come any more.
  takeBackTimer();
  // 2. Wait for the next time.
  mMode = Mode::idle;
  publish();
  // 3. Report it.
  report(kVLMTCDidStopFreewheel);
}

std::int32_t VLMTC::stopFreewheel() {
  if (mMode != Mode::freewheeling) {
    return kVLMTCErr;
  }
  endFreewheel();
  return 0;
}

std::int32_t VLMTC::send(SMPTETime time, std::uint64_t timestamp) {
  const std::uint64_t quarterFrame = interval.load();
  mTime = time;
  mNextTimestamp = mOrder.begin(time, timestamp, quarterFrame) + kMTCPieces * quarterFrame;
  ltc_add_two_frames(mTime);
  midi::MIDIPacketList list;
  mtc_quarter_frames(mTime, mNextTimestamp, quarterFrame, &list);
  return midi::service().MIDIReceived(source.load(), &list);
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
  mTimerDeadline += mTimerPeriod;
  mTimer->setDeadline(mTimerDeadline);
  mTimer->resume();
  if (mMode == Mode::freewheeling) {
    status.store(send(mTime, mNextTimestamp));
    publish();
  }
}

void VLMTC::takeBackTimer() {
  mFreewheelId = kNoFreewheelId;
  mTimer.reset();
}

// Without a rate it has no interval, and none is made; the next time read tries again.
void VLMTC::startWatchdog() {
  double rate = std::numeric_limits<double>::quiet_NaN();
  VLMTCGetFramerate(this, &rate);
  const double seconds = kWatchdogFrames / rate;
  const auto silence = [](kv_watchdog*, void* record) {
    auto& mtc = *static_cast<VLMTC*>(record);
    mtc.queue.assertCurrent();
    mtc.fallSilent();
  };
  if (kv_watchdog_create(&mWatchdog, silence, &queue, this, seconds) == 0) {
    kv_watchdog_resume_after(mWatchdog, seconds);
  }
}

void VLMTC::dropWatchdog() {
  kv_watchdog_dispose(std::exchange(mWatchdog, nullptr));
}

void VLMTC::scheduleEnd(double seconds) {
  const std::uint32_t id = ++gLastFreewheelId;
  mFreewheelId = id;
  host.mainQueue().after(KVNanosecondsFromSeconds(seconds), [id, weak = weak_from_this()] {
    if (const auto strong = weak.lock()) {
      strong->queue.async([id, mtc = strong.get()] {
        mtc->queue.assertCurrent();
        if (id == mtc->mFreewheelId) {
          mtc->endFreewheel();
        }
      });
    }
  });
}

void VLMTC::report(VLMTCState state) {
  if (listener.load().callback == nullptr) {
    return;
  }
  host.mainQueue().async([state, weak = weak_from_this()] {
    const auto strong = weak.lock();
    const Listener present = strong != nullptr ? strong->listener.load() : Listener();
    if (present.callback == nullptr) {
      return;
    }
    const bool isOver =
        state == kVLMTCDidStartFreewheel && strong->snapshot.load().mode != Mode::freewheeling;
    present.callback(strong.get(), isOver ? kVLMTCDidStopFreewheel : state, present.refCon);
  });
}

void VLMTC::dispose() {
  listener.store({});
  queue.sync([this] {
    queue.assertCurrent();
    dropWatchdog();
    takeBackTimer();
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
  mtc->interval.store(
      static_cast<std::uint64_t>(host::kNsPerSecond / (framesPerSecond * kQuarterFramesPerFrame)));
  return 0;
}

std::int32_t VLMTCGetFramerate(const VLMTC* mtc, double* outFrameRate) noexcept {
  KV_ASSERT(mtc != NULL);           // NOLINT(modernize-use-nullptr): the condition is the text
  KV_ASSERT(outFrameRate != NULL);  // NOLINT(modernize-use-nullptr)
  const auto interval = static_cast<double>(mtc->interval.load());
  const double framesPerSecond = host::kNsPerSecond / (interval * kQuarterFramesPerFrame);
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
    mtc->readTime(arrival);
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
    *reading = snapshot.mode != Mode::idle;
  }
  if (freewheeling != nullptr) {
    *freewheeling = snapshot.mode == Mode::freewheeling;
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
    return mtc->stopFreewheel();
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
