// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLTimecodeField;

/// Queue: main.
class VLTimecodeFieldDelegate {
 public:
  virtual ~VLTimecodeFieldDelegate() = default;

  virtual void timecodeFieldDidChangeTimecode(VLTimecodeField& /*field*/) {}
};

}  // namespace velor
