// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "Velor/app/VLTimecodeValues.h"
#include "Velor/devices/LTCReaderDeviceDelegate.h"
#include "Velor/program/VLStatusLine.h"
#include "Velor/program/VLWantedDevices.h"

namespace velor {

/// The counters without a window: the status line, where there is a terminal. Queue: main.
class VLHeadlessView final : public VLTimecodeValues,
                             public LTCReaderDeviceDelegate,
                             public std::enable_shared_from_this<VLHeadlessView> {
 public:
  /// Shows nothing yet. Without a clock in use the reader is all that there is to tell.
  VLHeadlessView(VLWantedDevices& devices, bool isClockUsed)
      : mDevices(devices), mIsClockUsed(isClockUsed) {}

  /// From now on, and at times what no event announces.
  void begin();
  /// For a while.
  void showNotice(const std::string& notice);

  void setInputTimecode(const SMPTETime& time) override;
  void changedUserbits(std::uint32_t userbits) override;
  void changedCurrentSpeed(double speed) override;
  void mtcDidChangeState(VLMTCState state) override;

 protected:
  void valueDidChange(Value /*which*/) override { needsDisplay(); }

 private:
  void needsDisplay();
  void refresh();

  VLWantedDevices& mDevices;
  const bool mIsClockUsed;
  bool mHasBegun = false;
  SMPTETime mRead{};  // by the reader, last
  std::string mNotice;
  std::uint64_t mNoticeEnd = 0;  // host time
  VLStatusLine mLine;
};

}  // namespace velor
