// SPDX-License-Identifier: MIT
#pragma once

class QObject;

namespace velor {

/// How screen readers see the views of times: each time that is shown is a text of its own,
/// named after its label; the description is the status of the clock. A change at frame
/// rate is not announced, but whoever asks gets the present time. So it is with the row of
/// the status. Queue: main.
class VLTimecodeAccessible {
 public:
  /// Once for the process; further calls do nothing.
  static void install();
  static void focusDidMove(QObject& cell);
};

}  // namespace velor
