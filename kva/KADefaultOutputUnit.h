// SPDX-License-Identifier: MIT
#pragma once

#include "kva/KAAudioUnit.h"

namespace velor {

/// A unit that plays on a device.
class KADefaultOutputUnit : public KAAudioUnit {
 public:
  using KAAudioUnit::KAAudioUnit;

  void start();
  /// Its callbacks do not run any more when this returns.
  void stop();
  bool isRunning() const;
  /// Frames a second at the device's side.
  double sampleRate() const;
  audio::AudioObjectID deviceID() const;
};

}  // namespace velor
