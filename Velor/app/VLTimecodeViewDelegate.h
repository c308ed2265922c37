// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLTimecodeViewOutlet;

/// Applies the user's edits in the counters. Queue: main.
class VLTimecodeViewDelegate {
 public:
  virtual ~VLTimecodeViewDelegate() = default;

  virtual void timecodeDidChange(VLTimecodeViewOutlet& view) = 0;
  virtual void offsetDidChange(VLTimecodeViewOutlet& view) = 0;
  virtual void stopTimeDidChange(VLTimecodeViewOutlet& view) = 0;
  virtual void loopStartTimeDidChange(VLTimecodeViewOutlet& view) = 0;
  virtual void loopEndTimeDidChange(VLTimecodeViewOutlet& view) = 0;
  virtual bool canEditOffsetInTimecodeView(const VLTimecodeViewOutlet& view) const = 0;
  virtual bool canEditStopTimeInTimecodeView(const VLTimecodeViewOutlet& view) const = 0;
};

}  // namespace velor
