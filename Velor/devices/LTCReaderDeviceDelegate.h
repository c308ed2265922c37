// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Velor/mtc/VLMTCState.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// Is notified of the times that an LTC reader reads. Queue: main.
class LTCReaderDeviceDelegate {
 public:
  virtual ~LTCReaderDeviceDelegate() = default;

  /// Every second frame that is read.
  virtual void setInputTimecode(const SMPTETime& time) = 0;
  /// The eight digits, the first group lowest.
  virtual void changedUserbits(std::uint32_t userbits) = 0;
  /// Frames a second, smoothed.
  virtual void changedCurrentSpeed(double speed) = 0;
  /// The device has the status that follows from it.
  virtual void mtcDidChangeState(VLMTCState state) = 0;
};

}  // namespace velor
