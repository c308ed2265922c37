// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "Velor/app/VLTimecodeViewDelegate.h"
#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The counters of the main window, as the controller knows them: what they show,
/// which is also what the user has typed there. By itself it keeps the values and
/// shows them to nobody. Queue: main.
class VLTimecodeViewOutlet {
 public:
  virtual ~VLTimecodeViewOutlet() = default;

  const SMPTETime& smpteTime() const noexcept { return mSmpteTime; }
  const SMPTETime& startTime() const noexcept { return mStartTime; }
  const SMPTETime& smpteOffset() const noexcept { return mSmpteOffset; }
  const SMPTETime& stopTime() const noexcept { return mStopTime; }
  const SMPTETime& loopStartTime() const noexcept { return mLoopStartTime; }
  const SMPTETime& loopEndTime() const noexcept { return mLoopEndTime; }
  std::uint64_t playMode() const noexcept { return mPlayMode; }
  VLClockStatus clockStatus() const noexcept { return mClockStatus; }
  bool mainCounterIsEditable() const noexcept { return mMainCounterIsEditable; }

  void setSmpteTime(const SMPTETime& time) { set(mSmpteTime, time); }
  /// Comes with every frame of a running clock.
  void copyTime(const SMPTETime& time) { set(mSmpteTime, time); }
  void setStartTime(const SMPTETime& time) { set(mStartTime, time); }
  void setSmpteOffset(const SMPTETime& offset) { set(mSmpteOffset, offset); }
  void setStopTime(const SMPTETime& time) { set(mStopTime, time); }
  void setLoopStartTime(const SMPTETime& time) { set(mLoopStartTime, time); }
  void setLoopEndTime(const SMPTETime& time) { set(mLoopEndTime, time); }
  void setPlayMode(std::uint64_t playMode) { set(mPlayMode, playMode); }
  void setClockStatus(VLClockStatus status) { set(mClockStatus, status); }
  void setMainCounterIsEditable(bool editable) { set(mMainCounterIsEditable, editable); }

  /// Held weakly.
  void setDelegate(std::weak_ptr<VLTimecodeViewDelegate> delegate) {
    mDelegate = std::move(delegate);
  }
  std::shared_ptr<VLTimecodeViewDelegate> delegate() const { return mDelegate.lock(); }

 protected:
  /// One of the values was set.
  virtual void needsDisplay() {}

 private:
  template <class Value>
  void set(Value& field, const Value& value) {
    field = value;
    needsDisplay();
  }

  SMPTETime mSmpteTime{};
  SMPTETime mStartTime{};
  SMPTETime mSmpteOffset{};
  SMPTETime mStopTime{};
  SMPTETime mLoopStartTime{};
  SMPTETime mLoopEndTime{};
  std::uint64_t mPlayMode = 0;
  VLClockStatus mClockStatus = VLClockStopped;
  bool mMainCounterIsEditable = false;
  std::weak_ptr<VLTimecodeViewDelegate> mDelegate;
};

}  // namespace velor
