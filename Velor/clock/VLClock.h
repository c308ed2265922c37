// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/kv_hptimer.h"
#include "Velor/clock/VLClockDelegate.h"
#include "Velor/clock/VLClockStatus.h"
#include "Velor/clock/VLClockTransitions.h"
#include "Velor/clock/VLLoopCheck.h"
#include "Velor/clock/VLSharedCell.h"
#include "Velor/mtc/VLMTCParser.h"
#include "Velor/mtc/VLMTCParserDelegate.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Host.h"
#include "platform/host/Queue.h"
#include "platform/host/Seqlock.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// The master clock: counts timecode frame by frame on a timer and hands every
/// second frame to all MTC destinations. Whatever leaves the application as
/// timecode comes from here.
///
/// Its time is a count of frames and nothing else: a tick adds exactly one, and
/// the play rate only changes the length of a tick, so that no frame is ever lost
/// or repeated. A clock that stands stays on its frame.
///
/// Armed, it gives its timer up and follows the MTC of one source: each block
/// replaces its time and is passed on at once.
///
/// What belongs together is owned by one serial queue, "velor.gentimer". An
/// operation that says "waits for the queue" must not come from that queue.
/// Values that are read without it are the latest ones written there.
class VLClock final : public KVObservable, public VLMTCParserDelegate {
 public:
  /// Gets the latest time, which may be later than the change that caused the
  /// call, and must not be kept. Main queue.
  using ProceedBlock = std::function<void(const SMPTETime* time)>;

  /// The clock of the process. The first call is the main thread's.
  static VLClock& sharedClock();

  /// For the shared clock and for tests. MIDI ports that cannot be made are
  /// logged and done without. Main thread.
  VLClock();
  /// Stops without reports, and lets go of MIDI. Main thread; waits for the tick
  /// under way.
  ~VLClock() override;

  // --- for whom ---

  /// Held weakly. Any thread.
  void setDelegate(std::weak_ptr<VLClockDelegate> delegate);
  std::shared_ptr<VLClockDelegate> delegate() const { return mDelegate.load().lock(); }

  /// Called after every change of the time; when the main queue is far behind,
  /// once for several. Any thread.
  void setProceedBlock(ProceedBlock block);
  ProceedBlock proceedBlock() const;

  // --- transport ---

  /// Starts a stopped clock, or stops one that rolls; nothing in other states. The
  /// first tick comes one interval after the start, and one more follows a stop,
  /// which waits for it. Main thread; waits for the queue.
  void setRunning(bool running);
  bool running() const noexcept;
  void start();
  void stop();

  VLClockStatus status() const noexcept { return mStatus.load(); }
  bool canChangeFormat() const noexcept { return !running(); }

  // --- time ---

  /// Waits for the queue.
  SMPTETime time() const;
  /// Takes the digits over into the clock's format. One that stands keeps it as
  /// its start time and locates the receivers. Any thread; waits for the queue.
  void setTime(const SMPTETime& time);
  void setClockTime(const SMPTETime& time) { setTime(time); }

  /// Where it last started from, or was last set to while it stood.
  SMPTETime startTimeSMPTE() const noexcept { return _startTime.load(); }

  /// A format code (SMPTETime.h). Ignored while running and for what is no
  /// format. All times keep their real time, not their digits. Waits for the queue.
  void setSmpteFormat(std::uint32_t smpteFormat);
  std::uint32_t smpteFormat() const noexcept { return _time.load().mType; }

  /// Added to what goes out, and nowhere else; standing receivers learn of it at
  /// the next locate. Raises unless valid and of the clock's format. Waits for the
  /// queue.
  void setSmpteOffset(const SMPTETime& smpteOffset);
  SMPTETime smpteOffset() const noexcept { return _offset.load(); }

  // --- rate ---

  /// 1 is real time, and there is no limit. Raises unless it is a normal number.
  /// Waits for the queue.
  void setPlayRate(double playRate);
  double playRate() const noexcept { return _playRate.load(); }

  /// Percent off real time, held to -2 to 2; NaN and the like are ignored.
  void setPlayRatePercent(double percent);
  double playRatePercent() const noexcept { return (playRate() - 1) * 100; }

  /// For a control without a value: "playRatePercent" becomes 0; other keys raise.
  void setNilValueForKey(std::string_view key);

  // --- play mode and its points ---

  /// Any value is stored; from the next tick on. Any thread.
  void setPlayMode(std::uint64_t playMode);
  std::uint64_t playMode() const noexcept { return _playMode.load(); }
  /// Stores one of the four play modes, ignores others. Waits for the queue.
  void setPlaybackMode(std::uint64_t playbackMode);
  /// The play mode; normal until one was set.
  std::uint64_t playbackMode() const noexcept;

  /// Any record. A stop is tested for on the frame itself, not past it. Waits for
  /// the queue.
  void setStopTime(const SMPTETime& stopTime);
  SMPTETime stopTime() const noexcept { return _stopTime.load(); }

  static constexpr double kLoopCorrection = 60;  // s

  /// Ignored unless valid and of the clock's format. A point that would end the
  /// loop before it starts moves the other one to 60 s from it. Wait for the queue.
  void setLoopStartTime(const SMPTETime& loopStartTime);
  void setLoopEndTime(const SMPTETime& loopEndTime);
  SMPTETime loopStartTime() const noexcept { return _loopTimes.load().start; }
  SMPTETime loopEndTime() const noexcept { return _loopTimes.load().end; }

  /// Whether a start goes back by the pre-roll time; never by time of day.
  void setPreroll(bool preroll);
  bool preroll() const noexcept { return _preroll.load(); }
  /// Seconds, held to 0 to 60. Raises for NaN and the like.
  void setPrerollTime(double prerollTime);
  double prerollTime() const noexcept { return _prerollTime.load(); }

  // --- MTC out ---

  /// An equal endpoint counts as the same. A clock that stands locates it. Waits
  /// for the queue.
  void addMTCDestination(std::shared_ptr<KVMIDIEndpoint> destination);
  void removeMTCDestination(const std::shared_ptr<KVMIDIEndpoint>& destination);

  // --- MTC in ---

  /// Arms a stopped clock, or disarms one, which ends a chase. Arming one that rolls
  /// changes nothing, and is reported as disarmed. Observers of the status hear of
  /// the end of a chase on the queue itself. Any thread; waits for the queue.
  void setArmed(bool armed);
  bool armed() const noexcept { return (status() & kVLClockArmedBit) != 0; }
  void arm() { setArmed(true); }
  void disarm() { setArmed(false); }

  /// The one source that is followed, or null. Independent of arming; a source that
  /// cannot be connected is kept all the same. One thread at a time.
  void setMIDISyncSource(const std::shared_ptr<KVMIDIEndpoint>& source);
  std::shared_ptr<KVMIDIEndpoint> MIDISyncSource() const { return _mtcSyncSource.load(); }

  /// Sends a token to every destination, if the delegate wants that, and looks for
  /// it on the sync source for 100 ms; nothing while that goes on. Any thread.
  void doLoopDetection();

  void parserDidStopReading(VLMTCParser& parser) override;
  void parserDidReceiveFFMsg(VLMTCParser& parser, const SMPTETime& time) override;
  void parserDidReceiveLoopToken(VLMTCParser& parser, std::uint32_t token) override;

  // --- colours ---

  static VLColor colorForClockState(VLClockStatus status) noexcept;
  static VLColor stopModeColor() noexcept;
  static VLColor loopModeColor() noexcept;

 private:
  struct LoopTimes {
    SMPTETime start;
    SMPTETime end;
  };

  // Announces a change of a property around a scope.
  class Change {
   public:
    Change(VLClock& clock, std::string_view key);
    ~Change();
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    VLClock& mClock;
    const std::string_view mKey;
  };

  // On the timer's thread, once a tick.
  void timerFired(const host::RealtimeContext& realtime) noexcept;

  void tick(std::uint64_t hostTime) KV_RUNS_ON(mTimerQueue);
  void sendTime(const SMPTETime& time, std::uint64_t hostTime) KV_RUNS_ON(mTimerQueue);
  void locate(const SMPTETime& time, const KVMIDIEndpoint& destination) KV_RUNS_ON(mTimerQueue);
  bool beginRun() KV_RUNS_ON(mTimerQueue);
  bool assignTime(const SMPTETime& time) KV_RUNS_ON(mTimerQueue);
  void changeFormat(std::uint32_t smpteFormat) KV_RUNS_ON(mTimerQueue);
  void applyInterval() KV_RUNS_ON(mTimerQueue);
  // Takes the way that the table has for the event and gives its row, whose
  // reports are the caller's to make; null when it has none.
  const VLClockTransition* enter(VLClockEvent event) KV_RUNS_ON(mTimerQueue);

  void followBlock(const SMPTETime& block, std::uint64_t hostTime) KV_RUNS_ON(mTimerQueue);

  void startRunning();
  void stopRunning();
  void setToWallClock();
  void createOutputPort();
  void createSyncInPort();
  // The time with the count of ticks in it.
  SMPTETime currentTime() const noexcept;
  void postProceed();
  void proceed();
  void reportOnMain(const VLClockTransition& row, std::uint32_t receivedFormat = 0);
  void moveLoopPoint(SMPTETime LoopTimes::*moved, SMPTETime LoopTimes::*other, double distance,
                     const SMPTETime& time);

  host::Host& mHost;

  // Written on mTimerQueue, read anywhere. The tick count stands by itself, since
  // the timer's thread clears it: `_time.mCounter` is not looked at.
  host::Seqlocked<SMPTETime> _time;
  std::atomic<std::uint32_t> mCounter{0};
  host::Seqlocked<SMPTETime> _offset;
  host::Seqlocked<SMPTETime> _startTime;
  host::Seqlocked<SMPTETime> _stopTime;
  host::Seqlocked<LoopTimes> _loopTimes;
  std::atomic<VLClockStatus> mStatus{VLClockStopped};
  std::atomic<double> _playRate{1.0};

  // Plain words, written by whoever sets them.
  std::atomic<std::uint64_t> _playMode{0};
  std::atomic<bool> _preroll{false};
  std::atomic<double> _prerollTime{0};
  std::atomic<bool> _startedWithPreroll{false};  // and has not yet reached the start time

  VLSharedCell<std::weak_ptr<VLClockDelegate>> mDelegate;
  VLSharedCell<std::shared_ptr<const ProceedBlock>> mProceedBlock;
  std::atomic<std::uint32_t> mProceedsPending{0};

  std::uint64_t mNominalTimerInterval KV_ON_QUEUE(mTimerQueue) = 0;  // ns a frame at rate 1
  std::uint64_t mTimerInterval KV_ON_QUEUE(mTimerQueue) = 0;         // ns a tick
  std::vector<std::shared_ptr<KVMIDIEndpoint>> mDestinations KV_ON_QUEUE(mTimerQueue);

  VLLoopCheck mLoopCheck{mTimerQueue};

  VLSharedCell<std::shared_ptr<KVMIDIEndpoint>> _mtcSyncSource;
  std::shared_ptr<VLMTCParser> mMTCParser;  // set in construction for good

  // Set in construction for good; 0 for none.
  midi::MIDIPortRef mMIDIOutputPort = 0;
  midi::MIDIPortRef mMIDISyncInPort = 0;

  // The timer thread's own; one run's thread has ended when the next begins.
  struct {
    double mWeightedDelta = 0;  // ns
  } rt;
  kv_hptimer_s* mHPTimer = nullptr;

  // What waits on the main queue holds the clock by this, weakly.
  const std::shared_ptr<VLClock> mSelf;

  // Last, so that it ends before anything that its jobs use.
  mutable host::Queue mTimerQueue{"velor.gentimer", host::ThreadRole::timing};
};

}  // namespace velor
