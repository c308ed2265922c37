// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "Velor/app/VLTimecodeViewDelegate.h"
#include "Velor/app/VLTimecodeViewOutlet.h"
#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

/// The counters without a window: keeps the values, and by itself shows them to nobody.
/// Queue: main.
class VLTimecodeValues : public VLTimecodeViewOutlet {
 public:
  enum class Value {
    smpteTime,
    startTime,
    smpteOffset,
    stopTime,
    loopStartTime,
    loopEndTime,
    playMode,
    clockStatus,
    mainCounterIsEditable
  };

  SMPTETime smpteTime() const override { return mSmpteTime; }
  SMPTETime startTime() const override { return mStartTime; }
  SMPTETime smpteOffset() const override { return mSmpteOffset; }
  SMPTETime stopTime() const override { return mStopTime; }
  SMPTETime loopStartTime() const override { return mLoopStartTime; }
  SMPTETime loopEndTime() const override { return mLoopEndTime; }
  std::uint64_t playMode() const noexcept { return mPlayMode; }
  VLClockStatus clockStatus() const noexcept { return mClockStatus; }
  bool mainCounterIsEditable() const noexcept { return mMainCounterIsEditable; }

  void setSmpteTime(const SMPTETime& time) override { copyTime(time); }
  void copyTime(const SMPTETime& time) override { set(Value::smpteTime, mSmpteTime, time); }
  void setStartTime(const SMPTETime& time) override { set(Value::startTime, mStartTime, time); }
  void setSmpteOffset(const SMPTETime& time) override {
    set(Value::smpteOffset, mSmpteOffset, time);
  }
  void setStopTime(const SMPTETime& time) override { set(Value::stopTime, mStopTime, time); }
  void setLoopStartTime(const SMPTETime& time) override {
    set(Value::loopStartTime, mLoopStartTime, time);
  }
  void setLoopEndTime(const SMPTETime& time) override {
    set(Value::loopEndTime, mLoopEndTime, time);
  }
  void setPlayMode(std::uint64_t playMode) override { set(Value::playMode, mPlayMode, playMode); }
  void setClockStatus(VLClockStatus status) override {
    set(Value::clockStatus, mClockStatus, status);
  }
  void setMainCounterIsEditable(bool editable) override {
    set(Value::mainCounterIsEditable, mMainCounterIsEditable, editable);
  }

  void setDelegate(std::weak_ptr<VLTimecodeViewDelegate> delegate) override {
    mDelegate = std::move(delegate);
  }
  std::shared_ptr<VLTimecodeViewDelegate> delegate() const { return mDelegate.lock(); }

 protected:
  virtual void valueDidChange(Value /*which*/) {}

 private:
  static bool isSame(const SMPTETime& a, const SMPTETime& b) noexcept {
    return ltc_identical(a, b);
  }
  template <class Plain>
  static bool isSame(const Plain& a, const Plain& b) noexcept {
    return a == b;
  }
  template <class Field>
  void set(Value which, Field& field, const Field& value) {
    const bool isOther = !isSame(field, value);
    field = value;
    if (isOther) {
      valueDidChange(which);
    }
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
