// SPDX-License-Identifier: MIT
#pragma once

#include "kva/KADefaultOutputUnit.h"

namespace velor {

/// A unit that plays on a device of one's choice, or records from it.
class KAHALDeviceOutputUnit final : public KADefaultOutputUnit {
 public:
  /// A unit of its own, which goes with this object. Ends the process where the
  /// service has no such component.
  KAHALDeviceOutputUnit();
  /// One of a graph.
  using KADefaultOutputUnit::KADefaultOutputUnit;
  ~KAHALDeviceOutputUnit() override;

  /// For the nodes of a graph.
  static audio::AudioComponentDescription componentDescription() noexcept;

  void setDeviceID(audio::AudioObjectID deviceID);
  /// Which directions it uses: input on element 1, output on element 0.
  void enableInput(bool input, bool output);

 private:
  bool mIsOwn = false;
};

}  // namespace velor
