// SPDX-License-Identifier: MIT
#pragma once

#include "kva/KADefaultOutputUnit.h"

namespace velor {

/// A unit that plays on a device of one's choice, or records from it.
class KAHALDeviceOutputUnit final : public KADefaultOutputUnit {
 public:
  /// For the nodes of a graph.
  static constexpr KAComponent componentDescription() noexcept { return KAComponent::halOutput; }

  void setDeviceID(audio::AudioObjectID deviceID);
  /// Which directions it uses: input on element 1, output on element 0.
  void enableInput(bool input, bool output);
};

}  // namespace velor
