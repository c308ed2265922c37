// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "Velor/clock/VLClockDelegate.h"
#include "Velor/clock/VLClockMIDI.h"
#include "Velor/clock/VLClockProceed.h"
#include "Velor/clock/VLClockProperties.h"
#include "Velor/clock/VLClockStatus.h"
#include "Velor/clock/VLClockTimer.h"
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
#include "platform/host/WeakSelf.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// The master clock: counts timecode frame by frame on a timer and hands every
/// second frame to all MTC destinations. All timecode that leaves the application
/// comes from here.
///
/// Its time is a count of frames and nothing else: a tick adds exactly one, and
/// the play rate only changes the length of a tick, so that no frame is ever lost
/// or repeated. A clock that stands stays on its frame.
///
/// Armed, it gives its timer up and follows the MTC of one source: each block
/// replaces its time and is passed on at once.
///
/// One serial queue, "velor.gentimer", owns the times and all that is sent. An
/// operation that says "waits for the queue" must not come from that queue.
/// Values that are read without it are the latest ones written there.
class VLClock final : public VLClockProperties, public VLMTCParserDelegate {
 public:
  /// Gets the latest time, which may be later than the change that caused the
  /// call, and must not be kept. Main queue.
  using ProceedBlock = VLClockProceed::Block;

  /// The clock of the process. The first call is the main thread's.
  static VLClock& sharedClock();

  /// For the shared clock and for tests. The clock logs MIDI ports that it cannot
  /// make, and works without them. Main thread.
  VLClock();
  /// Stops without reports, and closes the MIDI ports. Main thread; waits for the
  /// current tick.
  ~VLClock() override;

  // --- delegate and proceed callback ---

  /// Held weakly. Any thread.
  void setDelegate(std::weak_ptr<VLClockDelegate> delegate);
  std::shared_ptr<VLClockDelegate> delegate() const { return mDelegate.load().lock(); }

  /// Called after every change of the time; while the main queue is slow, once for
  /// several changes. Any thread.
  void setProceedBlock(ProceedBlock block);
  ProceedBlock proceedBlock() const { return mProceed.block(); }

  /// Runs the job on the main queue after the clock's queue has come to it, so never while
  /// that queue hangs. Any thread.
  void whenQueueAnswers(std::function<void()> job);

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

  /// A format code (SMPTETime.h). Ignored while running and if it is
  /// invalid. All times keep their real time, not their digits. Waits for the queue.
  void setSmpteFormat(std::uint32_t smpteFormat);

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

  // --- MTC out ---

  /// An equal endpoint counts as the same. A clock that stands locates it. Waits
  /// for the queue.
  void addMTCDestination(std::shared_ptr<KVMIDIEndpoint> destination);
  void removeMTCDestination(const std::shared_ptr<KVMIDIEndpoint>& destination);

  // --- MTC in ---

  /// Arms a stopped clock, or disarms one, which ends a chase. Arming one that rolls
  /// changes nothing, and is reported as disarmed. Observers of the status are
  /// notified of the end of a chase on the queue itself. Any thread; waits for the queue.
  void setArmed(bool armed);
  bool armed() const noexcept { return (status() & kVLClockArmedBit) != 0; }
  void arm() { setArmed(true); }
  void disarm() { setArmed(false); }

  /// The one source that is followed, or null. Independent of arming; a source that
  /// cannot be connected is kept all the same. One thread at a time.
  void setMIDISyncSource(const std::shared_ptr<KVMIDIEndpoint>& source);
  std::shared_ptr<KVMIDIEndpoint> MIDISyncSource() const { return mMIDI.syncSource(); }

  /// Sends a token to every destination, if the delegate wants that, and looks for
  /// it on the sync source for 100 ms; nothing while that goes on. Any thread.
  void doLoopDetection();

  void parserDidStopReading(VLMTCParser& parser) override;
  void parserDidReceiveFFMsg(VLMTCParser& parser, const SMPTETime& time) override;
  void parserDidReceiveLoopToken(VLMTCParser& parser, std::uint32_t token) override;

  // --- colours ---

  static constexpr VLColor colorForClockState(VLClockStatus status) noexcept {
    return (status & kVLClockArmedBit) != 0    ? VLColor{0.15, 0.15, 0.95, 1.0}
           : (status & kVLClockMovingBit) != 0 ? VLColor{0.15, 0.95, 0.0, 1.0}
                                               : VLColor{0.95, 0.15, 0.0, 1.0};
  }
  static constexpr VLColor stopModeColor() noexcept { return colorForClockState(VLClockStopped); }
  static constexpr VLColor loopModeColor() noexcept {
    return {70 / 255.0, 130 / 255.0, 180 / 255.0, 1.0};  // steel blue
  }

 private:
  // On the queue: what the events do.
  void tick(std::uint64_t hostTime) KV_RUNS_ON(mTimerQueue);
  bool beginRun() KV_RUNS_ON(mTimerQueue);
  bool endRun() KV_RUNS_ON(mTimerQueue);
  void reachStopTime() KV_RUNS_ON(mTimerQueue);
  void endChase() KV_RUNS_ON(mTimerQueue);
  void followBlock(const SMPTETime& block, std::uint64_t hostTime) KV_RUNS_ON(mTimerQueue);
  void changeFormat(std::uint32_t smpteFormat) KV_RUNS_ON(mTimerQueue);
  bool assignTime(const SMPTETime& time) KV_RUNS_ON(mTimerQueue);

  // Takes the way that the table has for the event; false when it has none.
  bool enter(VLClockEvent event) KV_RUNS_ON(mTimerQueue);
  void markTimeStanding() KV_RUNS_ON(mTimerQueue);

  void startRunning();
  void stopRunning();
  void setToWallClock();
  // The time with the count of ticks in it, and what goes out for it.
  SMPTETime currentTime() const noexcept;
  SMPTETime timeToSend() const noexcept;
  void postProceed();
  // Runs the job on the main queue, if the clock is still there.
  template <class Job>
  void onMain(Job job);
  // To the delegate.
  template <class... Arguments>
  void report(void (VLClockDelegate::*what)(VLClock&, Arguments...), Arguments... arguments);
  // On the main queue, after the status was announced there.
  template <class... Arguments>
  void reportOnMain(void (VLClockDelegate::*what)(VLClock&, Arguments...), Arguments... arguments);

  host::Host& mHost;

  // Written on mTimerQueue, read anywhere. The tick count stands by itself, since
  // the timer's thread clears it: `_time.mCounter` is not looked at.
  std::atomic<std::uint32_t> mCounter{0};
  std::atomic<VLClockStatus> mStatus{VLClockStopped};
  std::atomic<double> _playRate{1.0};
  std::atomic<bool> _startedWithPreroll{false};  // and has not yet reached the start time

  VLSharedCell<std::weak_ptr<VLClockDelegate>> mDelegate;
  VLClockProceed mProceed;

  VLLoopCheck mLoopCheck{mTimerQueue};
  VLClockMIDI mMIDI{mTimerQueue};

  VLClockTimer mTimer;

  const host::WeakSelf<VLClock> mSelf;

  // Last, so that it ends before anything that its jobs use.
  mutable host::Queue mTimerQueue{"velor.gentimer", host::ThreadRole::timing};
};

}  // namespace velor
